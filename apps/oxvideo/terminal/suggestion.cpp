// A wrong suggestion is worse than none: few changes are allowed, fewer for short words.
#include "terminal/suggestion.h"

#include <algorithm>

#include "terminal/text.h"

namespace OX::cli {

namespace {

/// The number of letters to change, add, leave out or swap with a neighbour.
std::size_t distance(const std::string& pFirst, const std::string& pSecond) {
  const std::size_t width = pSecond.size() + 1;
  std::vector<std::size_t> table((pFirst.size() + 1) * width);
  const auto at = [&](std::size_t pRow, std::size_t pColumn) -> std::size_t& {
    return table[pRow * width + pColumn];
  };
  for (std::size_t i = 0; i <= pFirst.size(); ++i) {
    for (std::size_t j = 0; j < width; ++j) {
      if (i == 0 || j == 0) {
        at(i, j) = i + j;
        continue;
      }
      const std::size_t changed = pFirst[i - 1] == pSecond[j - 1] ? 0 : 1;
      at(i, j) = std::min({at(i - 1, j) + 1, at(i, j - 1) + 1, at(i - 1, j - 1) + changed});
      if (i > 1 && j > 1 && pFirst[i - 1] == pSecond[j - 2] && pFirst[i - 2] == pSecond[j - 1])
        at(i, j) = std::min(at(i, j), at(i - 2, j - 2) + 1);
    }
  }
  return at(pFirst.size(), pSecond.size());
}

}  // namespace

std::string closestTo(std::string_view pWord, const std::vector<std::string>& pCandidates) {
  // Longer than any name; the table below would grow with the square of what a caller passes.
  if (pWord.size() > 100) return {};
  const std::string word = lowerCase(pWord);
  std::string best;
  std::size_t least = word.size() < 3 ? 1 : word.size() < 8 ? 2 : 3;
  for (const std::string& candidate : pCandidates) {
    const std::size_t changes = distance(word, lowerCase(candidate));
    if (changes >= least) continue;
    least = changes;
    best = candidate;
  }
  return best;
}

std::string didYouMean(std::string_view pWord, const std::vector<std::string>& pCandidates) {
  const std::string closest = closestTo(pWord, pCandidates);
  return closest.empty() ? "" : "; did you mean " + closest + "?";
}

std::string alternatives(const std::vector<std::string>& pWords) {
  std::string result;
  for (std::size_t i = 0; i < pWords.size(); ++i) {
    if (i > 0) result += i + 1 == pWords.size() ? " or " : ", ";
    result += pWords[i];
  }
  return result;
}

}  // namespace OX::cli
