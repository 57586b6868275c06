// Written out, because the library's parser accepts dates without a zone, which would mean another
// moment on each machine.
#include "recordings/datetime.h"

#include <fmt/format.h>

#include <chrono>
#include <regex>

#include "terminal/exitstatus.h"
#include "terminal/text.h"

namespace OX::cli {

std::int64_t parseDateTime(const std::string& pText) {
  using namespace std::chrono;
  static const std::regex kNotation(
      R"((\d{4})-(\d\d)-(\d\d)[T ](\d\d):(\d\d):(\d\d)(?:\.(\d{1,6}))?(Z|[+-]\d\d:\d\d))");
  const auto refuse = [&](const std::string& pWhy) -> OXUsageError {
    return OXUsageError(
        fmt::format("\"{}\" {}, as in 2024-05-01T12:00:00Z or 2024-05-01T14:00:00"
                    "+02:00",
                    printable(pText), pWhy));
  };
  std::smatch parts;
  if (!std::regex_match(pText, parts, kNotation))
    throw refuse("is not a date and time with a zone");
  const auto number = [&](std::size_t pPart) { return std::stoi(parts[pPart].str()); };
  const year_month_day date{year(number(1)), month(static_cast<unsigned>(number(2))),
                            day(static_cast<unsigned>(number(3)))};
  if (!date.ok() || number(4) > 23 || number(5) > 59 || number(6) > 59)
    throw refuse("is not a date and time that exists");
  microseconds moment = sys_days(date).time_since_epoch() + hours(number(4)) + minutes(number(5)) +
                        seconds(number(6));
  if (parts[7].matched) {
    std::string fraction = parts[7].str();
    fraction.resize(6, '0');
    moment += microseconds(std::stoi(fraction));
  }
  if (const std::string zone = parts[8].str(); zone != "Z") {
    const auto offset = hours(std::stoi(zone.substr(1, 2))) + minutes(std::stoi(zone.substr(4, 2)));
    moment += zone[0] == '+' ? -offset : offset;
  }
  return moment.count();
}

}  // namespace OX::cli
