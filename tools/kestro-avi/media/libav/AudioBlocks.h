// Sound on the recording's clock, cut into blocks of equal length.
#pragma once

#include <cstdint>
#include <deque>
#include <vector>

namespace kestro::tool {

using Samples = std::vector<std::int16_t>;  // interleaved

// Takes decoded sound with its times and gives it back as blocks of equal length without gaps, so
// that sound stays in step with a picture that is only counted. Sound that begins late or pauses
// for more than the tolerance is filled up with silence, what lies before time 0 or overlaps by
// more is cut off. Less than that is jitter of the input's clock and changes nothing.
class AudioBlocks {
 public:
  static constexpr std::int64_t kTolerance_ns = 40000000;

  // `limit_ns`: the length of the recording, negative for no limit. An `exact` beginning is cut or
  // filled to the sample, otherwise the tolerance covers it too.
  AudioBlocks(int rate, int channels, std::int64_t limit_ns, bool exact);

  void Add(std::int64_t time_ns, Samples samples);
  void End() { _ended = true; }  // what is left may leave as a short block

  bool Ready() const;  // a block can be taken
  bool Full() const { return _taken == _limit; }
  Samples Take();
  std::int64_t NextTime_ns() const { return Time_ns(_taken); }  // of the next block
  std::int64_t Waiting_ns() const { return Time_ns(_waiting); }
  // How often the input's clock jumped so far that it was not followed.
  unsigned Jumps() const { return _jumps; }

 private:
  struct Piece {
    std::int64_t silence;  // samples per channel ahead of the data
    Samples samples;
    std::size_t used = 0;
  };
  std::int64_t Time_ns(std::int64_t samples) const;
  std::int64_t At(std::int64_t time_ns) const;
  std::int64_t Place(std::int64_t time_ns);

  int const _rate, _channels, _block;
  bool _exact;
  std::int64_t const _limit;  // samples per channel, as all below
  std::int64_t _added = 0, _taken = 0, _waiting = 0;
  std::int64_t _shift_ns = 0;  // what was forgiven at the beginning, or at a jump of the clock
  std::deque<Piece> _pieces;
  bool _ended = false;
  unsigned _jumps = 0;
};

}  // namespace kestro::tool
