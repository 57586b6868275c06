/// The variant value that crosses the broker: arguments, results, preference entries.
#pragma once

#include <boost/shared_ptr.hpp>
#include <cstddef>
#include <string>
#include <variant>
#include <vector>

#include "oxapi.h"

namespace OX {

/// Invalid (the default), bool, int (32 bits), float (single precision), string, array, binary.
///
/// A plain value type. Copying shares a binary's bytes and never copies them; they are immutable
/// once they are set. Arrays and strings are copied with the value; moving is cheap.
/// Misuse (another kind, an index out of range) throws OXError and changes nothing.
/// As thread-safe as an int; values on several threads may share one binary.
class OX_API OXValue {
 public:
  enum Type {
    TypeInvalid = 0,
    TypeBool,
    TypeInt,
    TypeFloat,
    TypeString,
    TypeArray,
    TypeBinary,
  };

  using Array = std::vector<OXValue>;

  OXValue() = default;
  OXValue(const OXValue&) = default;
  OXValue(OXValue&&) noexcept = default;
  OXValue& operator=(const OXValue&) = default;
  OXValue& operator=(OXValue&&) noexcept = default;
  ~OXValue() = default;

  OXValue(bool pValue) : fValue(pValue) {}
  OXValue(int pValue) : fValue(pValue) {}
  OXValue(float pValue) : fValue(pValue) {}
  /// Rounded to single precision.
  OXValue(double pValue) : fValue(static_cast<float>(pValue)) {}
  OXValue(const std::string& pValue) : fValue(pValue) {}
  OXValue(std::string&& pValue) : fValue(std::move(pValue)) {}
  OXValue(const char* pValue) : fValue(std::string(pValue)) {}
  OXValue(const std::vector<int>& pValues);
  OXValue(const std::vector<float>& pValues);
  OXValue(const std::vector<std::string>& pValues);
  OXValue(Array pValues) : fValue(std::move(pValues)) {}
  OXValue(const void*) = delete;

  /// An array of its arguments: OXValue::array("name", 3, true).
  template <typename... Values>
  static OXValue array(Values&&... pValues) {
    return OXValue(Array{OXValue(std::forward<Values>(pValues))...});
  }

  Type getType() const { return static_cast<Type>(fValue.index()); }
  /// "invalid", "bool", "int", "float", "string", "array", "binary"; "unknown" for other numbers.
  static std::string TypeToString(int pType);

  bool isValid() const { return getType() != TypeInvalid; }
  bool isBool() const { return getType() == TypeBool; }
  bool isInt() const { return getType() == TypeInt; }
  bool isFloat() const { return getType() == TypeFloat; }
  bool isString() const { return getType() == TypeString; }
  bool isArray() const { return getType() == TypeArray; }
  bool isBinary() const { return getType() == TypeBinary; }

  /// The value as a kind. An int also reads as bool and float, a bool also as int (0 or 1); every
  /// other kind throws OXError. A vector needs an array whose every element reads as its kind.
  bool toBool() const;
  int toInt() const;
  float toFloat() const;
  const std::string& toString() const;
  std::vector<int> toIntVector() const;
  std::vector<float> toFloatVector() const;
  const Array& toArray() const;

  /// The same by conversion. The two that return a reference throw unless the kind is exact; the
  /// non-const forms exist so that `bool b = value;` does not convert through int&.
  operator int&();
  operator std::string&();
  operator bool() { return toBool(); }
  operator float() { return toFloat(); }
  operator bool() const { return toBool(); }
  operator int() const { return toInt(); }
  operator float() const { return toFloat(); }
  operator const std::string&() const { return toString(); }
  operator std::vector<int>() const { return toIntVector(); }

  /// Element of an array. Throws on any other kind and outside 0 .. getSize() - 1.
  OXValue& operator[](int pIndex);
  const OXValue& operator[](int pIndex) const;

  /// Makes this an array of pSize elements. Keeps the elements of an array; new ones are invalid.
  /// Throws on a negative size.
  void arraySetSize(int pSize);
  /// Makes this an array of pSize invalid elements, of none with 0. Throws on a negative size.
  void arrayReserve(int pSize);
  /// Appends to an array, or makes an invalid value an array of one. Throws on other kinds.
  void arrayPush(OXValue pValue);

  /// Elements of an array, bytes of a string or a binary, 0 for other kinds.
  int getSize() const;

  /// Makes this a binary with a copy of pSize bytes. Throws on a negative size or a null
  /// pointer with a size.
  void SetBinary(const void* pData, int pSize);
  /// Makes this a binary that shares a block: pOwner keeps pData alive, and nobody may write it.
  /// Throws as SetBinary().
  void AdoptBinary(boost::shared_ptr<const void> pOwner, const void* pData, int pSize);
  /// The bytes of a binary, valid while any copy of this value lives. Throws on another kind.
  const void* GetBinary() const;
  /// What keeps the bytes of a binary alive, to hand them on without a copy. Throws on another
  /// kind.
  boost::shared_ptr<const void> GetBinaryOwner() const;

  /// Fills the vector from an array of numbers (ints and floats), after its own elements with
  /// pAppend. Throws on anything else, and then leaves the vector unchanged.
  void ToFloatArray(std::vector<float>& pResult, bool pAppend) const;

  /// Same kind and same content; binaries by their bytes.
  bool operator==(const OXValue& pOther) const;
  bool operator!=(const OXValue& pOther) const { return !(*this == pOther); }

 private:
  struct Binary {
    boost::shared_ptr<const void> owner;
    const unsigned char* data = nullptr;
    int size = 0;
    bool operator==(const Binary& pOther) const;
  };

  void xCheckIndex(int pIndex) const;

  std::variant<std::monostate, bool, int, float, std::string, Array, Binary> fValue;
};

}  // namespace OX
