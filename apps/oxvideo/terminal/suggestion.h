/// Finds what a misspelt word was probably meant to be.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace OX::cli {

/// The candidate that resembles the word most: the same but for case, or one or two letters
/// changed, added, left out or swapped, depending on its length. Empty if none does.
std::string closestTo(std::string_view pWord, const std::vector<std::string>& pCandidates);

/// "; did you mean kQVGA?", to follow an error that names the word; empty if nothing resembles it.
std::string didYouMean(std::string_view pWord, const std::vector<std::string>& pCandidates);

/// "auto, always or never".
std::string alternatives(const std::vector<std::string>& pWords);

}  // namespace OX::cli
