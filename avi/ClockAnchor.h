// Finds out when packets were captured.
#pragma once

#include <cstdint>

#include "avi/StartTime.h"

namespace kestro::avi {

// Relates the packets' own times to the wall clock. One anchor serves a whole recording, so that
// the starts of its files differ exactly as their packets' times do. It is replaced
//  - when the clock's source changes, such as when the network has set the clock after booting;
//  - when a packet comes over 2 s before its time: the clock was set back;
//  - when all packets have come over 2 s late for 10 s: the clock was set forward, or the packets'
//    clock is slower. Packets that are late for less than that have waited for the storage.
//
// While the clock reads earlier than 2020, it counts as not set, and the time since the system was
// booted is used instead. A clock that starts with a later date after each power loss cannot be
// recognised in this way: whoever knows better chooses the source. Not thread-safe.
class ClockAnchor {
 public:
  enum Source { kAuto, kSet, kSinceBoot };
  explicit ClockAnchor(Source source = kAuto) : _source(source) {}

  struct Now {
    std::int64_t wall_ns;  // since 1970-01-01 UTC
    std::int64_t boot_ns;  // since the system was booted, suspension included
    static Now Read();
  };
  // Takes a packet that has come just now, and returns when it was captured.
  StartTime Take(std::int64_t time_ns, Now const& now);

 private:
  void Anchor(std::int64_t offset_ns, bool set);

  Source _source;
  bool _anchored = false, _set = false;
  std::int64_t _offset_ns = 0;  // of the clock from the packets' times
  bool _late = false;
  std::int64_t _lateSince_ns = 0, _least_ns = 0;  // while late: the clock since boot; least offset
};

}  // namespace kestro::avi
