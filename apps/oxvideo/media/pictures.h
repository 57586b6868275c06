/// Lists the pictures of a folder or of a pattern.
#pragma once

#include <string>
#include <vector>

namespace OX::cli {

/// Whether a name has a wildcard (* ? [) or the place of a number (%d, %04d).
bool isPicturePattern(const std::string& pSource);

/// The pictures of a folder (by their endings) or the files that a pattern means, ordered as people
/// count: 2 before 10. Throws OXFailure when there are none or the folder can't be read.
std::vector<std::string> listPictures(const std::string& pSource);

}  // namespace OX::cli
