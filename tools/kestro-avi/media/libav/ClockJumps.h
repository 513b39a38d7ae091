// Makes the clock of an input continuous.
#pragma once

#include <cstdint>
#include <deque>
#include <map>

#include "media/libav/Libav.h"

namespace kestro::tool {

// A clock that jumps back, or far ahead, was set anew: the source was restarted, or files were
// appended to each other. What follows is moved so that it continues there. All streams of the
// input move by the same time, although their packets pass the jump one after the other.
class ClockJumps {
 public:
  // Corrects a packet's times.
  void Correct(AVPacket& packet, AVRational timeBase);

  unsigned Count() const { return _count; }

 private:
  std::int64_t ShiftFor(int stream, std::int64_t time_ns);

  std::deque<std::int64_t> _shifts_ns{0};    // by the last jumps
  std::int64_t _jump_ns = 0;                 // when the last one was
  std::map<int, std::int64_t> _expected_ns;  // a stream's next time, with its shift
  unsigned _count = 0;
};

}  // namespace kestro::tool
