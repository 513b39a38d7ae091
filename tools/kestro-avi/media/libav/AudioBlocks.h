// Puts audio on the recording's clock and cuts it into blocks of equal length.
#pragma once

#include <cstdint>
#include <deque>
#include <vector>

namespace kestro::tool {

using Samples = std::vector<std::int16_t>;  // interleaved

// Takes decoded audio with its times and returns it as blocks of equal length without gaps, so that
// it stays in sync with video, whose frames are only counted. A gap that is longer than the
// tolerance is filled with silence; audio before time 0, or that overlaps by more, is cut off.
// Smaller differences are jitter of the input's clock and are ignored.
class AudioBlocks {
 public:
  static constexpr std::int64_t kTolerance_ns = 40000000;

  // `limit_ns`: length of the recording, negative for no limit. `exact`: cut or fill the beginning
  // to the sample instead of applying the tolerance.
  AudioBlocks(int rate, int channels, std::int64_t limit_ns, bool exact);

  void Add(std::int64_t time_ns, Samples samples);
  void End() { _ended = true; }  // the rest becomes a shorter block

  bool Ready() const;  // Take has a block
  bool Full() const { return _taken == _limit; }
  Samples Take();
  std::int64_t NextTime_ns() const { return Time_ns(_taken); }  // of the next block
  std::int64_t Waiting_ns() const { return Time_ns(_waiting); }
  // How often the input's clock jumped so far that the jump was ignored.
  unsigned Jumps() const { return _jumps; }

 private:
  struct Piece {
    std::int64_t silence;  // samples per channel before the data
    Samples samples;
    std::size_t used = 0;
  };
  std::int64_t Time_ns(std::int64_t samples) const;
  std::int64_t SampleAt(std::int64_t time_ns) const;
  std::int64_t StartSample(std::int64_t time_ns);

  int const _rate, _channels, _block;
  bool _exact;
  std::int64_t const _limit;  // samples per channel, as the members below
  std::int64_t _added = 0, _taken = 0, _waiting = 0;
  std::int64_t _shift_ns = 0;  // subtracted from times: ignored at the beginning, or at jumps
  std::deque<Piece> _pieces;
  bool _ended = false;
  unsigned _jumps = 0;
};

}  // namespace kestro::tool
