/// Parses a moment in the notation of ISO 8601.
#pragma once

#include <cstdint>
#include <string>

namespace OX::cli {

/// "2024-05-01T12:00:00Z", also with a fraction of a second (up to microseconds) and with "+02:00"
/// for Z: microseconds since 1970. A zone is required, because a recording has none.
/// Throws OXUsageError for everything else, and for dates that don't exist.
std::int64_t parseDateTime(const std::string& pText);

}  // namespace OX::cli
