// OXValue over std::variant. Conversions are checked one by one here, because std::get would throw
// an error that names neither the kind found nor the kind wanted.
#include <oxframework/oxvalue.h>

#include <array>
#include <boost/make_shared.hpp>
#include <cstring>

#include <oxframework/oxerror.h>

namespace OX {
namespace {

template <typename Numbers>
OXValue::Array makeArray(const Numbers& pNumbers) {
  return OXValue::Array(pNumbers.begin(), pNumbers.end());
}

[[noreturn]] void raiseWrongKind(const OXValue& pValue, const char* pFunction, const char* pWanted,
                                 const OXSourceLocation& pWhere = OXSourceLocation::current()) {
  raiseError("OXValue", pFunction,
             "Value is " + OXValue::TypeToString(pValue.getType()) + " instead of " + pWanted,
             pWhere);
}

}  // namespace

OXValue::OXValue(const std::vector<int>& pValues) : fValue(makeArray(pValues)) {}
OXValue::OXValue(const std::vector<float>& pValues) : fValue(makeArray(pValues)) {}
OXValue::OXValue(const std::vector<std::string>& pValues) : fValue(makeArray(pValues)) {}

std::string OXValue::TypeToString(int pType) {
  static constexpr std::array<const char*, 7> kNames{"invalid", "bool",  "int",   "float",
                                                     "string",  "array", "binary"};
  const bool known = pType >= 0 && pType < static_cast<int>(kNames.size());
  return known ? kNames[static_cast<std::size_t>(pType)] : "unknown";
}

// Only these conversions: bool and int into each other, int into float. A text is never read as a
// number, since a wrong kind is a mistake of the caller that must show.
bool OXValue::toBool() const {
  if (const bool* value = std::get_if<bool>(&fValue)) return *value;
  if (const int* value = std::get_if<int>(&fValue)) return *value != 0;
  raiseWrongKind(*this, "toBool", "bool");
}

int OXValue::toInt() const {
  if (const int* value = std::get_if<int>(&fValue)) return *value;
  if (const bool* value = std::get_if<bool>(&fValue)) return *value ? 1 : 0;
  raiseWrongKind(*this, "toInt", "int");
}

float OXValue::toFloat() const {
  if (const float* value = std::get_if<float>(&fValue)) return *value;
  if (const int* value = std::get_if<int>(&fValue)) return static_cast<float>(*value);
  raiseWrongKind(*this, "toFloat", "float");
}

const std::string& OXValue::toString() const {
  if (const std::string* value = std::get_if<std::string>(&fValue)) return *value;
  raiseWrongKind(*this, "toString", "string");
}

const OXValue::Array& OXValue::toArray() const {
  if (const Array* value = std::get_if<Array>(&fValue)) return *value;
  raiseWrongKind(*this, "toArray", "array");
}

std::vector<int> OXValue::toIntVector() const {
  std::vector<int> numbers;
  numbers.reserve(toArray().size());
  for (const OXValue& element : toArray()) numbers.push_back(element.toInt());
  return numbers;
}

std::vector<float> OXValue::toFloatVector() const {
  std::vector<float> numbers;
  ToFloatArray(numbers, false);
  return numbers;
}

void OXValue::ToFloatArray(std::vector<float>& pResult, bool pAppend) const {
  // Into a vector of its own first: a failure must leave pResult unchanged.
  std::vector<float> numbers;
  numbers.reserve(toArray().size());
  for (const OXValue& element : toArray()) numbers.push_back(element.toFloat());
  if (!pAppend) pResult.clear();
  pResult.insert(pResult.end(), numbers.begin(), numbers.end());
}

// No conversions here: a reference needs an int that exists.
OXValue::operator int&() {
  if (int* value = std::get_if<int>(&fValue)) return *value;
  raiseWrongKind(*this, "operator int&", "int");
}

OXValue::operator std::string&() {
  if (std::string* value = std::get_if<std::string>(&fValue)) return *value;
  raiseWrongKind(*this, "operator string&", "string");
}

void OXValue::xCheckIndex(int pIndex) const {
  const int size = static_cast<int>(toArray().size());
  if (pIndex >= 0 && pIndex < size) return;
  raiseError("OXValue", "operator[]",
             "Index " + std::to_string(pIndex) + " is outside an array of " + std::to_string(size) +
                 " elements");
}

OXValue& OXValue::operator[](int pIndex) {
  xCheckIndex(pIndex);
  return std::get<Array>(fValue)[static_cast<std::size_t>(pIndex)];
}

const OXValue& OXValue::operator[](int pIndex) const {
  xCheckIndex(pIndex);
  return std::get<Array>(fValue)[static_cast<std::size_t>(pIndex)];
}

void OXValue::arraySetSize(int pSize) {
  if (pSize < 0)
    raiseError("OXValue", "arraySetSize", "Size " + std::to_string(pSize) + " is negative");
  if (!isArray()) fValue = Array();
  std::get<Array>(fValue).resize(static_cast<std::size_t>(pSize));
}

// Through a fresh value, so that a negative size leaves this one unchanged.
void OXValue::arrayReserve(int pSize) {
  OXValue fresh;
  fresh.arraySetSize(pSize);
  *this = std::move(fresh);
}

void OXValue::arrayPush(OXValue pValue) {
  if (!isValid()) fValue = Array();
  if (!isArray()) raiseWrongKind(*this, "arrayPush", "array");
  std::get<Array>(fValue).push_back(std::move(pValue));
}

int OXValue::getSize() const {
  if (const Array* array = std::get_if<Array>(&fValue)) return static_cast<int>(array->size());
  if (const Binary* binary = std::get_if<Binary>(&fValue)) return binary->size;
  if (const std::string* text = std::get_if<std::string>(&fValue))
    return static_cast<int>(text->size());
  return 0;
}

void OXValue::SetBinary(const void* pData, int pSize) {
  if (pSize < 0 || (pSize > 0 && !pData))
    raiseError("OXValue", "SetBinary",
               "A binary needs a size of 0 or more and its data, not size " +
                   std::to_string(pSize) + (pData ? "" : " without data"));
  const auto size = static_cast<std::size_t>(pSize);
  // One byte at least, so that an empty binary has an address, too.
  const boost::shared_ptr<unsigned char[]> block =
      boost::make_shared_noinit<unsigned char[]>(size ? size : 1);
  if (size) std::memcpy(block.get(), pData, size);
  AdoptBinary(boost::shared_ptr<const void>(block, block.get()), block.get(), pSize);
}

void OXValue::AdoptBinary(boost::shared_ptr<const void> pOwner, const void* pData, int pSize) {
  if (pSize < 0 || (pSize > 0 && !pData))
    raiseError("OXValue", "AdoptBinary", "A binary needs a size of 0 or more and its data");
  fValue = Binary{std::move(pOwner), static_cast<const unsigned char*>(pData), pSize};
}

const void* OXValue::GetBinary() const {
  if (const Binary* binary = std::get_if<Binary>(&fValue)) return binary->data;
  raiseWrongKind(*this, "GetBinary", "binary");
}

boost::shared_ptr<const void> OXValue::GetBinaryOwner() const {
  if (const Binary* binary = std::get_if<Binary>(&fValue)) return binary->owner;
  raiseWrongKind(*this, "GetBinaryOwner", "binary");
}

bool OXValue::Binary::operator==(const Binary& pOther) const {
  return size == pOther.size &&
         (size == 0 || std::memcmp(data, pOther.data, static_cast<std::size_t>(size)) == 0);
}

bool OXValue::operator==(const OXValue& pOther) const { return fValue == pOther.fValue; }

}  // namespace OX
