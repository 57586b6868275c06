/// How the device reports a failure: one record in the log, one error with the same text. Free
/// functions, thread-safe.
#pragma once

#include <sstream>
#include <string>

#include <oxframework/oxerror.h>

namespace OX::report {

constexpr const char* kCategory = "vision.oxvisionvideoinput";
/// The path that errors carry. Clients match on it, so it is this room and not the caller's file.
constexpr const char* kSourceFile = "vision/videoinput/src/oxvisionvideoinput";

/// Concatenates the pieces of a message, as a stream writes them.
template <typename... Pieces>
std::string text(const Pieces&... pPieces) {
  std::ostringstream stream;
  (stream << ... << pPieces);
  return stream.str();
}

/// Writes one record, by default in the device's category.
void log(int pLevel, const char* pFunction, const std::string& pMessage,
         const char* pCategory = kCategory);

/// Logs at level 2 under pFunction and throws OXError(pModule, pMethod, pMessage) with the line of
/// pWhere. A look-up on behalf of an operation passes on where the operation called it.
[[noreturn]] void fail(const std::string& pModule, const char* pFunction, const char* pMethod,
                       const std::string& pMessage,
                       OXSourceLocation pWhere = OXSourceLocation::current());

/// Throws without a record.
[[noreturn]] void raise(const std::string& pModule, const char* pMethod,
                        const std::string& pMessage,
                        OXSourceLocation pWhere = OXSourceLocation::current());

/// The texts of an operation for an unknown subscriber and for one of the wrong family.
struct SubscriberTexts {
  const char* function;                       ///< for the record
  const char* method;                         ///< for the error
  const char* unknownBegin;                   ///< before the id
  const char* wrongFamily;                    ///< null: both families may call
  const char* unknownMiddle = ") : module ";  ///< before the id again; null: the id is said once
  const char* unknownEnd = " unknown!";
};

std::string unknownSubscriber(const SubscriberTexts& pTexts, const std::string& pId);

}  // namespace OX::report
