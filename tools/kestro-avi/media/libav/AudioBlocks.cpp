#include "media/libav/AudioBlocks.h"

#include <algorithm>

#include "media/libav/Libav.h"
#include "recorder/TrackInfo.h"

namespace kestro::tool {

static constexpr std::int64_t kSecond_ns = 1000000000;
// Larger jumps of a clock are ignored: forward by an hour, back by ten seconds.
static constexpr std::int64_t kLongestGap_ns = 3600 * kSecond_ns;
static constexpr std::int64_t kLongestOverlap_ns = 10 * kSecond_ns;

AudioBlocks::AudioBlocks(int rate, int channels, std::int64_t limit_ns, bool exact)
    : _rate(rate),
      _channels(channels),
      _block(record::TrackInfo::BlockLength(rate)),
      _exact(exact),
      _limit(limit_ns < 0 ? INT64_MAX : SampleAt(limit_ns)) {}

std::int64_t AudioBlocks::Time_ns(std::int64_t samples) const {
  return av_rescale(samples, kSecond_ns, _rate);
}

std::int64_t AudioBlocks::SampleAt(std::int64_t time_ns) const {
  return av_rescale(time_ns, _rate, kSecond_ns);
}

// The sample where audio with this time starts: normally after the last one.
std::int64_t AudioBlocks::StartSample(std::int64_t time_ns) {
  bool const first = _added == 0;
  std::int64_t const off_ns = time_ns - _shift_ns - Time_ns(_added);
  if (off_ns > kLongestGap_ns || (!first && off_ns < -kLongestOverlap_ns)) {
    _shift_ns += off_ns;
    ++_jumps;
    return _added;
  }
  bool const jitter = off_ns >= -kTolerance_ns && off_ns <= kTolerance_ns;
  if (!jitter || (first && _exact)) return SampleAt(time_ns - _shift_ns);
  if (first) _shift_ns = off_ns;
  return _added;
}

void AudioBlocks::Add(std::int64_t time_ns, Samples samples) {
  auto const count = static_cast<std::int64_t>(samples.size()) / _channels;
  if (count == 0) return;
  std::int64_t const gap = StartSample(time_ns) - _added;
  std::int64_t const cut = std::clamp<std::int64_t>(-gap, 0, count);
  if (cut == count) {
    _exact |= _added == 0;  // the beginning is being cut
    return;
  }
  std::int64_t const silence = std::max<std::int64_t>(gap, 0);
  _pieces.push_back({silence, std::move(samples), static_cast<std::size_t>(cut * _channels)});
  _added += silence + count - cut;
  _waiting += silence + count - cut;
}

bool AudioBlocks::Ready() const {
  if (Full() || _waiting == 0) return false;
  return _ended || _waiting >= std::min<std::int64_t>(_block, _limit - _taken);
}

Samples AudioBlocks::Take() {
  auto const size = std::min({static_cast<std::int64_t>(_block), _waiting, _limit - _taken});
  auto want = static_cast<std::size_t>(size * _channels);
  Samples block;
  block.reserve(want);
  while (block.size() < want) {
    Piece& piece = _pieces.front();
    auto const quiet = std::min<std::int64_t>(
        piece.silence, static_cast<std::int64_t>(want - block.size()) / _channels);
    block.insert(block.end(), static_cast<std::size_t>(quiet * _channels), 0);
    piece.silence -= quiet;
    std::size_t const n = std::min(want - block.size(), piece.samples.size() - piece.used);
    auto const from = piece.samples.begin() + static_cast<std::ptrdiff_t>(piece.used);
    block.insert(block.end(), from, from + static_cast<std::ptrdiff_t>(n));
    piece.used += n;
    if (piece.silence == 0 && piece.used == piece.samples.size()) _pieces.pop_front();
  }
  _taken += size;
  _waiting -= size;
  return block;
}

}  // namespace kestro::tool
