/// The raw channel: what two processes reach that know each other's bytes beforehand, with blocking
/// calls on one socket of the kind that a broker listens on. Also speaks to a broker in its bytes,
/// which shows which side of a call costs what.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <variant>
#include <vector>

#include "child.h"

namespace OX::benchmarks {

/// A blocking stream socket, with the options that the transport sets. Calls end after 10 s;
/// everything throws std::runtime_error. Movable; one thread only.
class RawSocket {
 public:
  /// Connects to "unix:PATH" or "ADDRESS:PORT".
  explicit RawSocket(const std::string& pAddress);
  /// Takes over a connected descriptor.
  explicit RawSocket(int pDescriptor);
  RawSocket(RawSocket&& pOther) noexcept;
  RawSocket& operator=(RawSocket&&) = delete;
  ~RawSocket();

  /// All of the bytes.
  void write(const void* pBytes, std::size_t pSize);
  void read(void* pBytes, std::size_t pSize);
  /// The same; false when the other side has closed before the first byte.
  bool readUnlessClosed(void* pBytes, std::size_t pSize);
  /// What comes until nothing more does: an answer whose length is not known yet.
  std::vector<char> readUntilQuiet();

 private:
  int fDescriptor;
};

/// Listens for one connection.
class RawListener {
 public:
  /// On a socket file of its own, or a port of the loopback.
  explicit RawListener(bool pTcp);
  ~RawListener();
  RawListener(const RawListener&) = delete;
  RawListener& operator=(const RawListener&) = delete;

  /// As RawSocket takes it.
  const std::string& address() const { return fAddress; }
  RawSocket accept();

 private:
  int fDescriptor;
  std::string fAddress;
};

/// A path in the folder for temporary files that no other process uses.
std::string socketFile();

/// A request as a client sends it, [0, number, "Module.method", [argument, ...]], with the number
/// in three bytes.
class RawRequest {
 public:
  /// Arguments are names of up to 31 bytes, and ints.
  RawRequest(const std::string& pModuleAndMethod,
             const std::vector<std::variant<std::string, int>>& pArguments);
  /// The bytes, with the next number.
  const std::vector<char>& next();

 private:
  std::vector<char> fBytes;
  std::uint16_t fNumber = 1000;  ///< below 256 it would take fewer bytes
};

/// The role "raw": answers requests of a fixed size with a fixed number of bytes from one buffer.
/// Arguments: unix or tcp, bytes of a request, bytes of an answer, of which the first eight count.
void runRawChannel(Conversation& pConversation, const std::vector<std::string>& pArguments);

}  // namespace OX::benchmarks
