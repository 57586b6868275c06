// Plain blocking calls: whatever a transport adds to them is its cost.
#include "rawchannel.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <system_error>
#include <utility>

namespace OX::benchmarks {
namespace {

constexpr char kUnix[] = "unix:";
// As framework/src/transport/socketoptions.cpp has it: the same kind of socket.
constexpr int kSendBufferBytes = 1024 * 1024;

[[noreturn]] void raise(const char* pCall) {
  throw std::system_error(errno, std::generic_category(), pCall);
}

int check(int pResult, const char* pCall) {
  if (pResult < 0) raise(pCall);
  return pResult;
}

bool isUnix(const std::string& pAddress) { return pAddress.starts_with(kUnix); }

sockaddr_un unixAddress(const std::string& pPath) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (pPath.size() >= sizeof address.sun_path) throw std::runtime_error("path too long: " + pPath);
  std::memcpy(address.sun_path, pPath.data(), pPath.size());
  return address;
}

sockaddr_in tcpAddress(const std::string& pAddress) {
  const std::size_t colon = pAddress.rfind(':');
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<std::uint16_t>(std::stoi(pAddress.substr(colon + 1))));
  if (::inet_pton(AF_INET, pAddress.substr(0, colon).c_str(), &address.sin_addr) != 1)
    throw std::runtime_error("no address: " + pAddress);
  return address;
}

void setOptions(int pSocket) {
  const timeval limit{10, 0};
  ::setsockopt(pSocket, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
  ::setsockopt(pSocket, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
  int family = 0;
  socklen_t size = sizeof family;
  ::getsockopt(pSocket, SOL_SOCKET, SO_DOMAIN, &family, &size);
  const int yes = 1;
  if (family == AF_UNIX)
    ::setsockopt(pSocket, SOL_SOCKET, SO_SNDBUF, &kSendBufferBytes, sizeof kSendBufferBytes);
  else
    ::setsockopt(pSocket, IPPROTO_TCP, TCP_NODELAY, &yes, sizeof yes);
}

int connectTo(const std::string& pAddress) {
  const bool local = isUnix(pAddress);
  const int descriptor =
      check(::socket(local ? AF_UNIX : AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0), "socket");
  int result = 0;
  if (local) {
    const sockaddr_un address = unixAddress(pAddress.substr(sizeof kUnix - 1));
    result = ::connect(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address);
  } else {
    const sockaddr_in address = tcpAddress(pAddress);
    result = ::connect(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address);
  }
  if (result != 0) {
    const int reason = errno;
    ::close(descriptor);
    errno = reason;
    raise("connect");
  }
  return descriptor;
}

}  // namespace

RawSocket::RawSocket(const std::string& pAddress) : RawSocket(connectTo(pAddress)) {}

RawSocket::RawSocket(int pDescriptor) : fDescriptor(pDescriptor) { setOptions(fDescriptor); }

RawSocket::RawSocket(RawSocket&& pOther) noexcept
    : fDescriptor(std::exchange(pOther.fDescriptor, -1)) {}

RawSocket::~RawSocket() {
  if (fDescriptor >= 0) ::close(fDescriptor);
}

void RawSocket::write(const void* pBytes, std::size_t pSize) {
  for (const char* bytes = static_cast<const char*>(pBytes); pSize > 0;) {
    const ssize_t sent = ::send(fDescriptor, bytes, pSize, MSG_NOSIGNAL);
    if (sent <= 0) raise("send");
    bytes += sent;
    pSize -= static_cast<std::size_t>(sent);
  }
}

void RawSocket::read(void* pBytes, std::size_t pSize) {
  if (!readUnlessClosed(pBytes, pSize)) throw std::runtime_error("the other side has closed");
}

bool RawSocket::readUnlessClosed(void* pBytes, std::size_t pSize) {
  char* bytes = static_cast<char*>(pBytes);
  for (std::size_t done = 0; done < pSize;) {
    const ssize_t got = ::recv(fDescriptor, bytes + done, pSize - done, 0);
    if (got == 0 && done == 0) return false;
    if (got == 0) throw std::runtime_error("the other side has closed within a message");
    if (got < 0) raise("recv");
    done += static_cast<std::size_t>(got);
  }
  return true;
}

std::vector<char> RawSocket::readUntilQuiet() {
  constexpr int kQuietMs = 200;
  std::vector<char> all;
  std::vector<char> piece(1024 * 1024);
  pollfd ready{fDescriptor, POLLIN, 0};
  while (all.empty() || ::poll(&ready, 1, kQuietMs) > 0) {
    const ssize_t got = ::recv(fDescriptor, piece.data(), piece.size(), 0);
    if (got <= 0) raise("recv");
    all.insert(all.end(), piece.begin(), piece.begin() + got);
  }
  return all;
}

std::string socketFile() {
  static int count = 0;
  return (std::filesystem::temp_directory_path() /
          ("oxstream" + std::to_string(::getpid()) + "." + std::to_string(count++)))
      .string();
}

RawListener::RawListener(bool pTcp) {
  fDescriptor = check(::socket(pTcp ? AF_INET : AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0), "socket");
  if (pTcp) {
    sockaddr_in address = tcpAddress("127.0.0.1:0");
    socklen_t size = sizeof address;
    check(::bind(fDescriptor, reinterpret_cast<const sockaddr*>(&address), size), "bind");
    ::getsockname(fDescriptor, reinterpret_cast<sockaddr*>(&address), &size);
    fAddress = "127.0.0.1:" + std::to_string(ntohs(address.sin_port));
  } else {
    const std::string path = socketFile();
    const sockaddr_un address = unixAddress(path);
    check(::bind(fDescriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address), "bind");
    fAddress = kUnix + path;
  }
  check(::listen(fDescriptor, 1), "listen");
}

RawListener::~RawListener() {
  ::close(fDescriptor);
  if (isUnix(fAddress)) ::unlink(fAddress.c_str() + sizeof kUnix - 1);
}

RawSocket RawListener::accept() {
  pollfd ready{fDescriptor, POLLIN, 0};
  if (::poll(&ready, 1, 10'000) <= 0) throw std::runtime_error("nobody connects");
  return RawSocket(check(::accept4(fDescriptor, nullptr, nullptr, SOCK_CLOEXEC), "accept"));
}

RawRequest::RawRequest(const std::string& pModuleAndMethod,
                       const std::vector<std::variant<std::string, int>>& pArguments) {
  std::string bytes{'\x94', '\x00', '\xcd', '\0', '\0'};
  const auto addText = [&](const std::string& pText) {
    // Up to 31 bytes the length is part of the first byte.
    if (pText.size() > 31) bytes += '\xd9';
    bytes += static_cast<char>(pText.size() + (pText.size() > 31 ? 0 : 0xa0));
    bytes += pText;
  };
  const auto addInt = [&](int pNumber) {
    if (pNumber < 0 || pNumber > 127) {
      bytes += '\xd2';
      for (int shift = 24; shift > 0; shift -= 8) bytes += static_cast<char>(pNumber >> shift);
    }
    bytes += static_cast<char>(pNumber);
  };
  addText(pModuleAndMethod);
  bytes += static_cast<char>(0x90 + pArguments.size());
  for (const auto& argument : pArguments)
    if (const auto* text = std::get_if<std::string>(&argument))
      addText(*text);
    else
      addInt(std::get<int>(argument));
  fBytes.assign(bytes.begin(), bytes.end());
}

const std::vector<char>& RawRequest::next() {
  fNumber = fNumber == 60'000 ? std::uint16_t{1000} : static_cast<std::uint16_t>(fNumber + 1);
  fBytes[3] = static_cast<char>(fNumber >> 8);
  fBytes[4] = static_cast<char>(fNumber & 0xff);
  return fBytes;
}

void runRawChannel(Conversation& pConversation, const std::vector<std::string>& pArguments) {
  RawListener listener(pArguments.at(0) == "tcp");
  std::vector<char> request(std::stoul(pArguments.at(1)));
  std::vector<char> answer(std::max<std::size_t>(8, std::stoul(pArguments.at(2))), 77);
  pConversation.say(listener.address());
  RawSocket socket = listener.accept();
  for (std::uint64_t count = 1; socket.readUnlessClosed(request.data(), request.size()); ++count) {
    std::memcpy(answer.data(), &count, sizeof count);
    socket.write(answer.data(), std::stoul(pArguments.at(2)));
  }
}

}  // namespace OX::benchmarks
