/// Files that this program leaves.
#pragma once

#include <string>
#include <string_view>

#include "terminal/output.h"

namespace OX::cli {

/// Writes a whole file, or to pOut when the path is "-". A regular file that can't be written in
/// full is taken away again. Throws OXFailure that names it, also when the reader of pOut has gone.
void writeFile(const std::string& pPath, std::string_view pBytes, OXOutput& pOut);

}  // namespace OX::cli
