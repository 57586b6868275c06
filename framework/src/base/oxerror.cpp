// The one exception and the one function that throws it. Out of line, so that a check costs its
// caller a branch and a call, and no code that builds strings.
#include <oxframework/oxerror.h>

namespace OX {

OXError::OXError(const std::string& pModuleName, const std::string& pFunctionName,
                 const std::string& pDescription, const OXSourceLocation& pWhere)
    : OXError(pModuleName, pFunctionName, pDescription, pWhere.fFile, pWhere.fLine) {}

OXError::OXError(const std::string& pModuleName, const std::string& pFunctionName,
                 const std::string& pDescription, const std::string& pFileName, unsigned int pLine)
    : fModuleName(pModuleName),
      fFunctionName(pFunctionName),
      fDescription(pDescription),
      fFileName(pFileName),
      fLine(pLine) {}

OXError::~OXError() = default;

std::string OXError::toString() const {
  std::string text = fModuleName + "::" + fFunctionName + "\n\t" + fDescription;
  if (!fFileName.empty()) text += "\n\t" + fFileName + ":" + std::to_string(fLine);
  return text;
}

void raiseError(const std::string& pModuleName, const std::string& pFunctionName,
                const std::string& pDescription, const OXSourceLocation& pWhere) {
  throw OXError(pModuleName, pFunctionName, pDescription, pWhere);
}

}  // namespace OX
