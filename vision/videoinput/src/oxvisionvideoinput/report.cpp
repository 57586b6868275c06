// Records and errors of the device. The texts are part of the published interface, since clients
// match on them: what is put together here must stay the same character for character.
#include "report.h"

#include <oxframework/oxlog.h>

namespace OX::report {

void log(int pLevel, const char* pFunction, const std::string& pMessage, const char* pCategory) {
  ki::log::log(pLevel, pCategory, pMessage, "", pFunction, 0);
}

void raise(const std::string& pModule, const char* pMethod, const std::string& pMessage,
           OXSourceLocation pWhere) {
  throw OXError(pModule, pMethod, pMessage, kSourceFile, pWhere.fLine);
}

void fail(const std::string& pModule, const char* pFunction, const char* pMethod,
          const std::string& pMessage, OXSourceLocation pWhere) {
  log(ki::log::kError, pFunction, pMessage);
  raise(pModule, pMethod, pMessage, pWhere);
}

std::string unknownSubscriber(const SubscriberTexts& pTexts, const std::string& pId) {
  const std::string begin = pTexts.unknownBegin + pId;
  return pTexts.unknownMiddle ? begin + pTexts.unknownMiddle + pId + pTexts.unknownEnd
                              : begin + pTexts.unknownEnd;
}

}  // namespace OX::report
