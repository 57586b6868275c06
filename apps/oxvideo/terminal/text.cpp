// Names and descriptions come from other processes. They are escaped before they reach a terminal,
// which would obey control sequences inside them.
#include "terminal/text.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdlib>

namespace OX::cli {

namespace {

/// The length of the valid UTF-8 sequence at the start of pText, or 0.
std::size_t sequenceLength(std::string_view pText) {
  const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(pText[i]); };
  const unsigned char first = byte(0);
  if (first < 0x80) return 1;
  const std::size_t length = first >= 0xf0 ? 4 : first >= 0xe0 ? 3 : 2;
  if (first < 0xc2 || first > 0xf4 || pText.size() < length) return 0;
  for (std::size_t i = 1; i < length; ++i)
    if ((byte(i) & 0xc0) != 0x80) return 0;
  // Overlong forms, surrogates, and values beyond the last code point.
  if ((first == 0xe0 && byte(1) < 0xa0) || (first == 0xed && byte(1) > 0x9f) ||
      (first == 0xf0 && byte(1) < 0x90) || (first == 0xf4 && byte(1) > 0x8f))
    return 0;
  return length;
}

bool isControl(std::string_view pSequence) {
  const auto first = static_cast<unsigned char>(pSequence[0]);
  if (pSequence.size() == 1)
    return (first < 0x20 && first != '\n' && first != '\t') || first == 0x7f;
  return first == 0xc2 && static_cast<unsigned char>(pSequence[1]) < 0xa0;
}

/// Counts code points: close enough for names, without a table of wide characters.
std::size_t displayWidth(std::string_view pText) {
  return static_cast<std::size_t>(std::count_if(pText.begin(), pText.end(), [](char c) {
    return (static_cast<unsigned char>(c) & 0xc0) != 0x80;
  }));
}

}  // namespace

std::string printable(std::string_view pText) {
  std::string result;
  while (!pText.empty()) {
    const std::size_t length = sequenceLength(pText);
    if (length > 0 && !isControl(pText.substr(0, length))) {
      result += pText.substr(0, length);
    } else {
      for (const char c : pText.substr(0, std::max<std::size_t>(length, 1)))
        result += fmt::format("\\x{:02x}", static_cast<unsigned char>(c));
    }
    pText.remove_prefix(std::max<std::size_t>(length, 1));
  }
  return result;
}

std::string shellWord(const std::string& pWord) {
  constexpr std::string_view kPlain =
      "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_-+./:=@%,";
  if (!pWord.empty() && pWord.find_first_not_of(kPlain) == std::string::npos) return pWord;
  std::string text = "'";
  for (const char c : pWord) text += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return text + "'";
}

std::string lowerCase(std::string_view pText) {
  std::string result;
  for (const char c : pText) result += c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
  return result;
}

std::string counted(std::int64_t pNumber, const std::string& pThing) {
  return std::to_string(pNumber) + " " + pThing + (pNumber == 1 ? "" : "s");
}

std::string join(const std::vector<std::string>& pWords) {
  return fmt::format("{}", fmt::join(pWords, ", "));
}

std::string indentLines(std::string_view pText, int pBlanks) {
  std::string result;
  while (!pText.empty() && (pText.back() == '\n' || pText.back() == ' ')) pText.remove_suffix(1);
  while (!pText.empty()) {
    const std::size_t end = std::min(pText.find('\n'), pText.size());
    std::string_view one = pText.substr(0, end);
    if (result.empty())
      while (!one.empty() && one.front() == ' ') one.remove_prefix(1);
    if (!result.empty()) result += '\n';
    if (!one.empty())
      result += std::string(static_cast<std::size_t>(pBlanks), ' ') + std::string(one);
    pText.remove_prefix(std::min(end + 1, pText.size()));
  }
  return result;
}

bool wantsColor(std::string_view pMode, bool pIsTerminal) {
  if (pMode == "always") return true;
  if (pMode == "never" || !pIsTerminal) return false;
  // Conventions that other programs follow too; an empty NO_COLOR counts as unset.
  const char* noColor = std::getenv("NO_COLOR");
  const char* term = std::getenv("TERM");
  return !(noColor && *noColor) && !(term && std::string_view(term) == "dumb");
}

std::string OXTextStyle::xWrap(const char* pCode, std::string_view pText) const {
  if (!fEnabled) return std::string(pText);
  return fmt::format("\x1b[{}m{}\x1b[0m", pCode, pText);
}

void OXTable::addRow(std::vector<std::string> pCells) {
  pCells.resize(fHeadings.size());
  fRows.push_back(std::move(pCells));
}

std::string OXTable::text(const OXTextStyle& pStyle) const {
  std::vector<std::size_t> widths;
  for (std::size_t column = 0; column < fHeadings.size(); ++column) {
    std::size_t width = displayWidth(fHeadings[column]);
    for (const auto& row : fRows) width = std::max(width, displayWidth(row[column]));
    widths.push_back(width);
  }
  std::string result;
  const auto add = [&](const std::vector<std::string>& pCells, bool pIsHeading) {
    for (std::size_t column = 0; column < pCells.size(); ++column) {
      const bool isLast = column + 1 == pCells.size();
      // Nothing after the last cell, which therefore is the only one that may contain colours.
      const std::size_t blanks = isLast ? 0 : widths[column] - displayWidth(pCells[column]) + 2;
      result += pIsHeading ? pStyle.bold(pCells[column]) : pCells[column];
      result += std::string(blanks, ' ');
    }
    result += '\n';
  };
  add(fHeadings, true);
  for (const auto& row : fRows) add(row, false);
  return result;
}

}  // namespace OX::cli
