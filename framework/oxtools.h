/// Texts of numbers and types that modules share. Every function may be called from any thread.
#pragma once

#include <string>

#include "oxapi.h"

namespace OX {

/// The decimal text of a number.
OX_API std::string DecToString(int pNumber);

/// Codes of the types that published methods take and return.
enum TypeCode : int {
  kTypeVoid = 1,
  kTypeBool = 2,
  kTypeInt = 3,
  kTypeFloat = 4,
  kTypeString = 5,
  kTypeValue = 6,
  kTypeFloatList = 24,
  kTypeImagePointer = 27,
};

/// The name of a type code: "void", "bool", "int", "float", "string", "OXValue",
/// "vector<float>", "OXImage*"; "unknown" for any other number.
OX_API std::string getTypeString(int pTypeCode);

}  // namespace OX
