/// How the device reports a failure: one record in the log, one error with the same text.
#pragma once

#include <sstream>
#include <string>

#include <oxframework/oxerror.h>

namespace OX::report {

constexpr const char* kCategory = "vision.oxvisionvideoinput";
/// The path that errors carry: this room. Clients know it, so it is not the file of the caller.
constexpr const char* kSourceFile = "vision/videoinput/src/oxvisionvideoinput";

/// The pieces of a message in a row.
template <typename... Pieces>
std::string text(const Pieces&... pPieces) {
  std::ostringstream stream;
  (stream << ... << pPieces);
  return stream.str();
}

/// One record, by default in the device's category.
void log(int pLevel, const char* pFunction, const std::string& pMessage,
         const char* pCategory = kCategory);

/// Logs at level 2 under pFunction and throws OXError(pModule, pMethod, pMessage) with the line of
/// pWhere. A look-up on behalf of an operation passes the operation's own place on.
[[noreturn]] void fail(const std::string& pModule, const char* pFunction, const char* pMethod,
                       const std::string& pMessage,
                       OXSourceLocation pWhere = OXSourceLocation::current());

/// Throws without a record.
[[noreturn]] void raise(const std::string& pModule, const char* pMethod,
                        const std::string& pMessage,
                        OXSourceLocation pWhere = OXSourceLocation::current());

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
