// Makes the clock of an input continuous.
#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <string>
#include <utility>

#include "cli/Notice.h"
#include "media/libav/Libav.h"

namespace kestro::tool {

// A clock that jumps back, or far ahead, was set anew: the source was restarted, or files were
// appended to each other. What follows is moved so that it continues there. All streams of the
// input move by the same time, although their packets pass the jump one after the other. A stream
// that begins a day or more away from the others has a clock of its own, and begins where it is in
// the file.
class ClockJumps {
 public:
  // Corrects a packet's times.
  void Correct(AVPacket& packet, AVRational timeBase);

  // By how much times are moved now.
  std::int64_t Shift_ns() const { return _shifts_ns.back(); }
  unsigned Count() const { return _count; }
  // "its clock jumps back by 10.000 s at 8.000 s"; if there are jumps.
  std::string Describe() const;
  // The jumps since the last call.
  Notices Take() { return std::exchange(_fresh, {}); }

 private:
  struct Stream {
    std::int64_t expected_ns = 0;  // its next time, with its shift
    std::int64_t offset_ns = 0;    // of its own clock
  };
  std::int64_t Begin(Stream& stream, std::int64_t time_ns);
  void Note(std::int64_t time_ns, std::int64_t length_ns);
  std::int64_t ShiftFor(Stream const& stream, std::int64_t time_ns);

  std::deque<std::int64_t> _shifts_ns{0};  // by the last jumps
  std::int64_t _jump_ns = 0;               // when the last one was
  std::int64_t _last_ns = 0;               // the last packet's time, corrected
  std::map<int, Stream> _streams;
  unsigned _count = 0;
  std::int64_t _begin_ns = 0;                  // of the first stream
  std::int64_t _first_ns = 0, _length_ns = 0;  // the first jump
  Notices _fresh;
};

}  // namespace kestro::tool
