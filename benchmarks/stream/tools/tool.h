/// Other tools that pass images from one process to another. Each one is there only if CMake found
/// it (OX_WITH_DDS, OX_WITH_GSTREAMER).
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "../child.h"
#include "../measured.h"
#include "../placement.h"

namespace OX::benchmarks {

/// The first bytes of an image that a tool passes on: which one it is, and when its sender began to
/// pass it, by the clock that all processes share.
struct ImageMark {
  std::uint64_t number = 0;
  std::int64_t sentNs = 0;
};

/// The receiving end, in this process. Connected to a sender when it was made.
class Receiver {
 public:
  virtual ~Receiver() = default;
  /// Waits for the next image, at most 10 s, until its last byte can be read in place. Throws
  /// std::runtime_error when none comes or it is not pBytes long.
  virtual ImageMark receive(std::size_t pBytes) = 0;
};

/// A tool: its name in the table, the role of its sender, what both are told, and the receiver.
struct Tool {
  const char* name;
  const char* role;
  const char* kind;
  std::unique_ptr<Receiver> (*receiver)(const char* pKind, const std::string& pGreeting);
};

// The senders: roles. Arguments: kind, bytes of an image. Each says where it is, then sends an
// image, without an answer, for each line "send".
void runDdsSender(Conversation& pConversation, const std::vector<std::string>& pArguments);
void runGStreamerSender(Conversation& pConversation, const std::vector<std::string>& pArguments);

std::unique_ptr<Receiver> makeDdsReceiver(const char* pKind, const std::string& pGreeting);
std::unique_ptr<Receiver> makeGStreamerReceiver(const char* pKind, const std::string& pGreeting);

}  // namespace OX::benchmarks
