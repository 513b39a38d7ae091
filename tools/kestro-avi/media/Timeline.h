// The clock of a recording.
#pragma once

#include <cstdint>
#include <deque>
#include <utility>
#include <vector>

#include "base/Fraction.h"
#include "media/Session.h"

namespace kestro::tool {

// Maps the time of the inputs to that of the recording. The recording starts at a key frame of the
// leading track, the first video track: the one at or before the requested time. Where that track
// lost frames, the same time is taken out of all tracks; and all times are multiplied by the speed
// at which the leading track plays, because a file stores whole frame rates.
//
// Input times below count from the start of the recording, without cuts and at the inputs' speed.
class Timeline {
 public:
  explicit Timeline(Selection const& selection) : selection(selection) {}

  Selection const selection;
  std::int64_t offset_ns = 0;  // from the start of the input to that key frame; the best so far
  bool known = false;          // offset_ns is final
  base::Fraction speed{1, 1};  // recorded time per input time: of audio,
  base::Fraction videoSpeed{1, 1};  // and of the leading track

  // Whether the recording is limited to a length that a recorded time has reached.
  bool IsOver(std::int64_t recorded_ns) const {
    return selection.duration_ns >= 0 && recorded_ns >= selection.duration_ns;
  }

  // No later cut begins before this time.
  void Settle(std::int64_t input_ns);
  bool Settled(std::int64_t input_ns) const { return input_ns <= _settled_ns; }
  // Takes out the time from `begin_ns`, or from where times are settled, to `end_ns`. Returns how
  // much that is.
  std::int64_t Cut(std::int64_t begin_ns, std::int64_t end_ns);

  // What is taken out before a time, in input time.
  std::int64_t CutBefore_ns(std::int64_t input_ns) const;
  // The recorded time of audio and of pictures.
  std::int64_t Audio_ns(std::int64_t input_ns) const;
  std::int64_t Video_ns(std::int64_t input_ns) const;
  // The input time of a picture that is recorded at this time.
  std::int64_t Input_ns(std::int64_t recorded_ns) const;
  // What remains of a stretch of time.
  std::vector<std::pair<std::int64_t, std::int64_t>> Kept(std::int64_t begin_ns,
                                                          std::int64_t end_ns) const;

 private:
  struct Gap {
    std::int64_t begin_ns, end_ns;
    std::int64_t before_ns;  // what is taken out before this gap
  };
  std::deque<Gap> _gaps;  // in order
  std::int64_t _settled_ns = INT64_MIN;
};

}  // namespace kestro::tool
