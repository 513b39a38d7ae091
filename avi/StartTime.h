// When a recording starts, and the text in which a file stores this.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace kestro::avi {

struct StartTime {
  // Since 1970-01-01 UTC or, when the clock was not set, since the system was booted.
  std::int64_t time_ns = 0;
  bool set = true;

  std::string Text() const;  // "2026-11-22T14:56:37.123Z" or "12.345 s after boot"
};

// The content of isft: the name of the recording software, followed by the start if it is known.
//
//   kestro 5.0.0; start 2026-11-22T14:56:37.123Z; clock set
//   kestro 5.0.0; start +12.345 s; clock since boot
//
// Composed texts end with zeros, so that those with the same name have the same length.
struct Software {
  std::string name;
  std::optional<StartTime> start;

  static Software Parse(std::string_view content);
  std::string Compose() const;
};

std::string UtcText(std::int64_t time_ns);  // cut to milliseconds

// A date and a time of day, separated by T or a space. Years are 1970 to 2261; seconds, their
// fraction, and the zone (Z or +hh:mm) may be missing.
struct IsoTime {
  std::int64_t time_ns = 0;  // since 1970-01-01 UTC; without a zone: as if it were UTC
  bool zoned = false;

  static std::optional<IsoTime> Parse(std::string_view text);
};

}  // namespace kestro::avi
