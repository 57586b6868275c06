/// Formats text for terminals: escapes, colours, tables.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace OX::cli {

/// Makes foreign text safe to print: control characters and invalid UTF-8 become \x1b and the like;
/// line ends and tabs stay.
std::string printable(std::string_view pText);

/// A word as one writes it in a shell: quoted unless it is plain.
std::string shellWord(const std::string& pWord);

/// Of ASCII letters, in any locale.
std::string lowerCase(std::string_view pText);

/// "1 image", "2 images".
std::string counted(std::int64_t pNumber, const std::string& pThing);

/// The words, separated by ", ".
std::string join(const std::vector<std::string>& pWords);

/// Indents every line that is not empty, after trimming blanks at both ends of the text.
std::string indentLines(std::string_view pText, int pBlanks);

/// Evaluates --color: "always", "never", or "auto", which requires a terminal that shows colours
/// (neither NO_COLOR nor TERM=dumb in the environment).
bool wantsColor(std::string_view pMode, bool pIsTerminal);

/// Adds terminal colours to text if enabled.
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

/// A table with headings; columns are as wide as their widest cell.
class OXTable {
 public:
  explicit OXTable(std::vector<std::string> pHeadings) : fHeadings(std::move(pHeadings)) {}
  /// Missing cells are empty; cells beyond the headings are dropped.
  void addRow(std::vector<std::string> pCells);
  /// The lines of the table, headings in bold.
  std::string text(const OXTextStyle& pStyle) const;

 private:
  std::vector<std::string> fHeadings;
  std::vector<std::vector<std::string>> fRows;
};

}  // namespace OX::cli
