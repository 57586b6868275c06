/// Writes output files.
#pragma once

#include <string>
#include <string_view>

#include "terminal/output.h"

namespace OX::cli {

/// Writes a whole file, or to pOut if the path is "-". A regular file that can't be written
/// completely is removed. Throws OXFailure that names it, also when the reader of pOut is gone.
void writeFile(const std::string& pPath, std::string_view pBytes, OXOutput& pOut);

}  // namespace OX::cli
