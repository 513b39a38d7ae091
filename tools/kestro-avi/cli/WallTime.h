// Dates and times of day that people write.
#pragma once

#include <cstdint>
#include <string>

namespace kestro::tool {

// Whether it looks like a date, rather than like a time for ParseTime_ns.
bool IsWallTime(std::string const& text);

// Converts "2026-11-22T14:57:00Z", "2026-11-22 15:57:00.5+01:00" or, in local time,
// "2026-11-22 15:57" to nanoseconds since 1970 UTC. Throws an Error that names the option.
std::int64_t ParseWallTime_ns(std::string const& option, std::string const& text);

}  // namespace kestro::tool
