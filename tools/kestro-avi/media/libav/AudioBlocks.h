// Puts audio on the recording's clock and cuts it into blocks of equal length.
#pragma once

#include <cstdint>
#include <deque>
#include <utility>
#include <vector>

#include "media/GapReport.h"
#include "media/Session.h"
#include "media/StepFinder.h"

namespace kestro::tool {

using Samples = std::vector<std::int16_t>;  // interleaved

// Takes decoded audio with its times in the recording and returns it as blocks of equal length
// without gaps, so that it stays in sync with video, whose frames are only counted. The beginning
// is cut or filled with silence to the sample. A lasting gap is filled with silence, and a lasting
// overlap is cut off; smaller differences, and those that are made up within a second, are jitter
// and are ignored.
class AudioBlocks {
 public:
  static constexpr std::int64_t kTolerance_ns = 10000000;

  AudioBlocks(int rate, int channels, Selection const& selection);

  void Add(std::int64_t time_ns, Samples samples);
  void EndAt(std::int64_t time_ns);  // drops what follows
  void End();                        // the rest becomes a shorter block

  bool Ready() const;  // Take has a block
  bool Full() const { return _taken == _limit; }
  Samples Take();
  std::int64_t NextTime_ns() const { return Time_ns(_taken); }  // of the next block
  std::int64_t Waiting_ns() const { return Time_ns(_waiting); }

  std::int64_t Late_ns() const { return _late_ns; }    // silence at the beginning
  std::int64_t Early_ns() const { return _early_ns; }  // cut off the beginning
  // Silence added, or audio cut, because the clock drifts.
  std::int64_t Drift_ns() const { return _drift_ns; }
  GapReport& Gaps() { return _gaps; }
  GapReport& Overlaps() { return _overlaps; }

 private:
  struct Piece {
    std::int64_t silence;  // samples per channel before the data
    Samples samples;
    std::size_t used = 0;
  };
  std::int64_t Time_ns(std::int64_t samples) const;
  std::int64_t SampleAt(std::int64_t time_ns) const;
  std::int64_t Count(Samples const& samples) const;
  bool Begin(std::int64_t time_ns, Samples& samples);
  void Settle();
  void Append(std::int64_t silence, Samples samples);
  void Report(std::int64_t step_ns, bool jump);

  int const _rate, _channels, _block;
  std::int64_t const _before_ns;  // recorded before the first block
  std::int64_t _limit;            // samples per channel, as the members below
  std::int64_t _added = 0, _taken = 0, _waiting = 0;
  std::int64_t _natural = 0;    // samples since the beginning without corrections
  std::int64_t _origin_ns = 0;  // the time of the first of them
  std::int64_t _off_ns = 0;     // of the last samples, from the time without corrections
  std::int64_t _level = 0;      // samples that corrections should add
  std::int64_t _excess = 0;     // samples to be cut
  StepFinder _steps;
  std::deque<std::pair<bool, Samples>> _unsettled;  // times jump there; place not known yet
  std::deque<Piece> _pieces;
  bool _begun = false, _ended = false;
  std::int64_t _late_ns = 0, _early_ns = 0, _drift_ns = 0;
  GapReport _gaps{"missing audio"}, _overlaps{"overlapping audio"};
};

}  // namespace kestro::tool
