#include "avi/ClockAnchor.h"

#include <time.h>

#include <algorithm>

namespace kestro::avi {

static constexpr std::int64_t kSecond = 1000000000;
static constexpr std::int64_t kMostOff_ns = 2 * kSecond, kMostLate_ns = 10 * kSecond;
static constexpr std::int64_t kPlausible_ns = 1577836800 * kSecond;  // 2020-01-01

static std::int64_t Read_ns(clockid_t clock) {
  timespec now = {};
  clock_gettime(clock, &now);
  return now.tv_sec * kSecond + now.tv_nsec;
}

ClockAnchor::Now ClockAnchor::Now::Read() {
  return {Read_ns(CLOCK_REALTIME), Read_ns(CLOCK_BOOTTIME)};
}

void ClockAnchor::Anchor(std::int64_t offset_ns, bool set) {
  _offset_ns = offset_ns;
  _set = set;
  _anchored = true;
  _late = false;
}

StartTime ClockAnchor::Take(std::int64_t time_ns, Now const& now) {
  bool const set = _source == kAuto ? now.wall_ns >= kPlausible_ns : _source == kSet;
  std::int64_t const offset_ns = (set ? now.wall_ns : now.boot_ns) - time_ns;
  std::int64_t const late_ns = offset_ns - _offset_ns;
  if (!_anchored || set != _set || late_ns < -kMostOff_ns) {
    Anchor(offset_ns, set);
  } else if (late_ns <= kMostOff_ns) {
    _late = false;
  } else {
    if (!_late) _lateSince_ns = now.boot_ns, _least_ns = offset_ns;
    _late = true;
    _least_ns = std::min(_least_ns, offset_ns);
    if (now.boot_ns - _lateSince_ns >= kMostLate_ns) Anchor(_least_ns, set);
  }
  return {_offset_ns + time_ns, _set};
}

}  // namespace kestro::avi
