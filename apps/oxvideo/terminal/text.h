/// Small pieces for texts that people read: colours, tables, escapes.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace OX::cli {

/// Text from elsewhere made safe to print: control characters and bytes that are no UTF-8 become
/// \x1b and the like; line ends and tabs stay.
std::string printable(std::string_view pText);

/// The words with a comma and a blank between them.
std::string join(const std::vector<std::string>& pWords);

/// pText with every line but the empty ones moved right; blanks at its ends go.
std::string indentLines(std::string_view pText, int pBlanks);

/// When --color says what: "always", "never", or "auto", which means a terminal that shows colours
/// (neither NO_COLOR nor TERM=dumb in the environment).
bool wantsColor(std::string_view pMode, bool pIsTerminal);

/// Wraps texts in terminal colours, or leaves them alone.
class OXTextStyle {
 public:
  explicit OXTextStyle(bool pEnabled = false) : fEnabled(pEnabled) {}
  std::string bold(std::string_view pText) const { return xWrap("1", pText); }
  std::string dim(std::string_view pText) const { return xWrap("2", pText); }
  std::string red(std::string_view pText) const { return xWrap("31", pText); }
  std::string green(std::string_view pText) const { return xWrap("32", pText); }
  std::string yellow(std::string_view pText) const { return xWrap("33", pText); }

 private:
  std::string xWrap(const char* pCode, std::string_view pText) const;
  bool fEnabled;
};

/// Rows under headings, columns as wide as their widest cell.
class OXTable {
 public:
  explicit OXTable(std::vector<std::string> pHeadings) : fHeadings(std::move(pHeadings)) {}
  /// Takes as many cells as there are headings; missing ones are empty, surplus ones are dropped.
  void addRow(std::vector<std::string> pCells);
  /// Lines with line ends; headings in bold.
  std::string text(const OXTextStyle& pStyle) const;

 private:
  std::vector<std::string> fHeadings;
  std::vector<std::vector<std::string>> fRows;
};

}  // namespace OX::cli
