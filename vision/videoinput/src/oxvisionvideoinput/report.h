/// How the device speaks of failures: one record in the log, one error with the same text.
#pragma once

#include <sstream>
#include <string>

namespace OX::report {

constexpr const char* kCategory = "vision.oxvisionvideoinput";
/// The path that errors carry: this room.
constexpr const char* kSourceFile = "vision/videoinput/src/oxvisionvideoinput";

/// The pieces of a message, written one behind the other.
template <typename... Pieces>
std::string text(const Pieces&... pPieces) {
  std::ostringstream stream;
  (stream << ... << pPieces);
  return stream.str();
}

/// One record, by default in the device's category.
void log(int pLevel, const char* pFunction, const std::string& pMessage,
         const char* pCategory = kCategory);

/// Logs at level 2 under pFunction and throws OXError(pModule, pMethod, pMessage).
[[noreturn]] void fail(const std::string& pModule, const char* pFunction, const char* pMethod,
                       const std::string& pMessage, int pLine);

/// Throws without a record.
[[noreturn]] void raise(const std::string& pModule, const char* pMethod,
                        const std::string& pMessage, int pLine);

/// What an operation says when it does not find its subscriber, or finds one of the other family.
struct SubscriberTexts {
  const char* function;                       ///< for the record
  const char* method;                         ///< for the error
  const char* unknownBegin;                   ///< then the name
  const char* wrongFamily;                    ///< null: both families may call
  const char* unknownMiddle = ") : module ";  ///< then the name again; null: no second name
  const char* unknownEnd = " unknown!";
};

std::string unknownSubscriber(const SubscriberTexts& pTexts, const std::string& pName);

}  // namespace OX::report
