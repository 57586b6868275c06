// What functors of all signatures share, out of the templates.
#include "oxvalue/detail/oxfunctor.h"

#include <exception>

#include <oxframework/oxerror.h>

namespace OX::detail {

OXError currentError() {
  try {
    throw;
  } catch (const OXError& error) {
    return error;
  } catch (const std::exception& error) {
    return {"OXFunctor", "call", std::string("The method failed: ") + error.what()};
  } catch (...) {
    return {"OXFunctor", "call", "The method failed: an exception of an unknown type"};
  }
}

void OXGuardedFunctor::call(const OXValue& pParams, OXValue& pResult) {
  try {
    xCall(pParams, pResult);
  } catch (...) {
    throw currentError();
  }
}

void completeDescription(OXMethodInfo& pInfo, int pResultCode,
                         std::initializer_list<int> pArgumentCodes) {
  pInfo.returnType = getTypeString(pResultCode);
  pInfo.arity = static_cast<int>(pArgumentCodes.size());
  while (pInfo.parameters.size() < pArgumentCodes.size())
    pInfo.parameters.push_back({"arg" + std::to_string(pInfo.parameters.size() + 1), "", "", 0});
  std::size_t index = 0;
  for (const int code : pArgumentCodes) {
    pInfo.parameters[index].type = getTypeString(code);
    pInfo.parameters[index].typeCode = code;
    ++index;
  }
}

}  // namespace OX::detail
