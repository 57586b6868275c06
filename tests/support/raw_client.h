/// A client that sends and reads plain bytes, so that a test can break every rule of the wire.
#pragma once

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <linux/filter.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <string>

namespace OX::test {

/// Reads end after a time limit that only a failure reaches.
class RawClient {
 public:
  /// Accepts both forms of address that a server on this machine prints.
  explicit RawClient(const std::string& pAddress) {
    const bool local = pAddress.starts_with("unix:");
    fSocket = ::socket(local ? AF_UNIX : AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const timeval limit{20, 0};
    ::setsockopt(fSocket, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    fConnected = (local ? xConnectLocal(pAddress) : xConnectTcp(pAddress)) == 0;
  }
  ~RawClient() { close(); }
  RawClient(const RawClient&) = delete;
  RawClient& operator=(const RawClient&) = delete;

  bool isConnected() const { return fConnected; }

  /// False when the other side has closed.
  bool send(const std::string& pBytes) {
    for (std::size_t done = 0; done < pBytes.size();) {
      const ssize_t sent =
          ::send(fSocket, pBytes.data() + done, pBytes.size() - done, MSG_NOSIGNAL);
      if (sent <= 0) return false;
      done += static_cast<std::size_t>(sent);
    }
    return true;
  }

  /// pSize bytes, or fewer when the other side closed or nothing arrived in time.
  std::string read(std::size_t pSize) {
    std::string bytes(pSize, '\0');
    std::size_t done = 0;
    while (done < pSize) {
      const ssize_t got = ::recv(fSocket, bytes.data() + done, pSize - done, 0);
      if (got <= 0) break;
      done += static_cast<std::size_t>(got);
    }
    bytes.resize(done);
    return bytes;
  }

  /// Whether the other side closes the connection, possibly after sending more.
  bool isClosedByPeer() {
    char byte;
    ssize_t got;
    do got = ::recv(fSocket, &byte, 1, 0);
    while (got > 0);
    return got == 0 || errno == ECONNRESET;
  }

  void close() {
    if (fSocket >= 0) ::close(fSocket);
    fSocket = -1;
  }

  /// Hears and acknowledges nothing any more, as if the cable had been pulled.
  void vanish() {
    sock_filter nothing{BPF_RET | BPF_K, 0, 0, 0};
    const sock_fprog filter{1, &nothing};
    ASSERT_EQ(::setsockopt(fSocket, SOL_SOCKET, SO_ATTACH_FILTER, &filter, sizeof filter), 0);
  }

  /// Resets the connection, as a machine does that has crashed and restarted.
  void reset() {
    const linger abort{1, 0};
    ::setsockopt(fSocket, SOL_SOCKET, SO_LINGER, &abort, sizeof abort);
    close();
  }

 private:
  int xConnectTcp(const std::string& pAddress) {
    const std::size_t colon = pAddress.rfind(':');
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(std::stoi(pAddress.substr(colon + 1))));
    ::inet_pton(AF_INET, pAddress.substr(0, colon).c_str(), &address.sin_addr);
    return ::connect(fSocket, reinterpret_cast<const sockaddr*>(&address), sizeof address);
  }

  int xConnectLocal(const std::string& pAddress) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, pAddress.c_str() + 5, sizeof address.sun_path - 1);
    return ::connect(fSocket, reinterpret_cast<const sockaddr*>(&address), sizeof address);
  }

  int fSocket;
  bool fConnected = false;
};

/// A request with a text as method and arguments that are encoded already.
inline std::string request(char pId, const std::string& pMethod,
                           const std::string& pArguments = "\x90") {
  return std::string("\x94\x00", 2) + pId + "\xd9" + static_cast<char>(pMethod.size()) + pMethod +
         pArguments;
}

/// The answer to a request whose result is a small positive number.
inline std::string answer(char pId, char pNumber) {
  return std::string("\x94\x01") + pId + "\xc0" + pNumber;
}

}  // namespace OX::test
