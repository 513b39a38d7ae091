#include "cli/WallTime.h"

#include <time.h>

#include "avi/StartTime.h"
#include "cli/Errors.h"

namespace kestro::tool {

static constexpr std::int64_t kSecond = 1000000000;

bool IsWallTime(std::string const& text) { return text.find('-', 1) != text.npos; }

// How far local time is ahead of UTC. In the hour that occurs twice in autumn, either may count.
static std::int64_t LocalOffset_ns(std::int64_t local_ns) {
  std::int64_t offset_ns = 0;
  for (int step = 0; step < 2; ++step) {  // the offset at a time depends on the offset
    auto const at = static_cast<time_t>((local_ns - offset_ns) / kSecond);
    tm fields = {};
    if (localtime_r(&at, &fields) != nullptr) offset_ns = fields.tm_gmtoff * kSecond;
  }
  return offset_ns;
}

std::int64_t ParseWallTime_ns(std::string const& option, std::string const& text) {
  auto const time = avi::IsoTime::Parse(text);
  if (!time)
    throw Error(kUsage, option + ": \"" + text +
                            "\" is not a date and time such as 2026-11-22T14:57:00Z (or +01:00; "
                            "without a zone: local time)");
  return time->zoned ? time->time_ns : time->time_ns - LocalOffset_ns(time->time_ns);
}

}  // namespace kestro::tool
