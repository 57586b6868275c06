// Texts of numbers and type codes. Introspection shows the names of types: they never change.
#include <oxframework/oxtools.h>

namespace OX {

std::string DecToString(int pNumber) { return std::to_string(pNumber); }

std::string getTypeString(int pTypeCode) {
  switch (pTypeCode) {
    case kTypeVoid:
      return "void";
    case kTypeBool:
      return "bool";
    case kTypeInt:
      return "int";
    case kTypeFloat:
      return "float";
    case kTypeString:
      return "string";
    case kTypeValue:
      return "OXValue";
    case kTypeFloatList:
      return "vector<float>";
    case kTypeImagePointer:
      return "OXImage*";
    default:
      return "unknown";
  }
}

}  // namespace OX
