/// Builds the JSON that verbs print. Hides the JSON library, whose header takes longer to compile
/// than a verb.
#pragma once

#include <concepts>
#include <cstdint>
#include <initializer_list>
#include <string>
#include <vector>

namespace OX::cli {

/// A JSON value, stored as its text. Members keep the order in which they are added; add each name
/// only once.
class OXJson {
 public:
  struct Member;

  OXJson(std::initializer_list<Member> pMembers);  ///< an object
  OXJson(std::nullptr_t) : fText("null") {}
  OXJson(bool pValue) : fText(pValue ? "true" : "false") {}
  OXJson(std::integral auto pValue) : fText(std::to_string(pValue)) {}
  OXJson(double pValue);  ///< the shortest text that reads back as the same double
  OXJson(const std::string& pText);
  OXJson(const char* pText) : OXJson(std::string(pText)) {}
  static OXJson object() { return OXJson('{'); }
  static OXJson array() { return OXJson('['); }

  /// Adds to an object.
  void add(const std::string& pName, const OXJson& pValue);
  /// Adds to an array.
  void append(const OXJson& pValue);

  /// One line. Bytes that are no UTF-8 become U+FFFD.
  std::string text() const;

 private:
  explicit OXJson(char pOpening) : fText(1, pOpening) {}
  void xSeparate();
  /// Objects and arrays lack their closing bracket, which text() adds.
  std::string fText;
};

struct OXJson::Member {
  const char* name;
  OXJson value;
};

}  // namespace OX::cli
