#include "media/libav/AudioBlocks.h"

#include <algorithm>
#include <cstdlib>
#include <utility>

#include "media/libav/Libav.h"
#include "recorder/TrackInfo.h"

namespace kestro::tool {

static constexpr std::int64_t kSecond_ns = 1000000000;
// Audio that begins this close to the recording begins with it: containers round times.
static constexpr std::int64_t kRounding_ns = 5000000;
// A correction follows a clock that drifts, unless the times jump by this much there.
static constexpr std::int64_t kJump_ns = 10000000;

AudioBlocks::AudioBlocks(int rate, int channels, Selection const& selection)
    : _rate(rate),
      _channels(channels),
      _block(record::TrackInfo::BlockLength(rate)),
      _before_ns(selection.recorded_ns),
      _limit(selection.duration_ns < 0 ? INT64_MAX : SampleAt(selection.duration_ns)),
      _steps(kTolerance_ns) {}

std::int64_t AudioBlocks::Time_ns(std::int64_t samples) const {
  return av_rescale(samples, kSecond_ns, _rate);
}

std::int64_t AudioBlocks::SampleAt(std::int64_t time_ns) const {
  return av_rescale(time_ns, _rate, kSecond_ns);
}

std::int64_t AudioBlocks::Count(Samples const& samples) const {
  return static_cast<std::int64_t>(samples.size()) / _channels;
}

void AudioBlocks::EndAt(std::int64_t time_ns) {
  _limit = std::max(_taken, std::min(_limit, SampleAt(time_ns)));
}

// Cuts off what comes before the recording. Returns false if nothing is left.
bool AudioBlocks::Begin(std::int64_t time_ns, Samples& samples) {
  std::int64_t const cut = std::abs(time_ns) <= kRounding_ns ? 0 : -SampleAt(time_ns);
  if (cut > 0) {
    auto const gone = std::min(cut, Count(samples));
    samples.erase(samples.begin(), samples.begin() + static_cast<std::ptrdiff_t>(gone * _channels));
    _early_ns += Time_ns(gone);
    if (samples.empty()) return false;
  }
  _begun = true;
  _origin_ns = std::max<std::int64_t>(cut > 0 ? 0 : INT64_MIN, time_ns);
  if (cut < 0) {
    _late_ns = time_ns;
    Append(-cut, {});
  }
  return true;
}

void AudioBlocks::Add(std::int64_t time_ns, Samples samples) {
  if (samples.empty() || (!_begun && !Begin(time_ns, samples))) return;
  time_ns = std::max(time_ns, _origin_ns);
  std::int64_t const off_ns = time_ns - _origin_ns - Time_ns(_natural);
  bool const jump = std::abs(off_ns - std::exchange(_off_ns, off_ns)) >= kJump_ns;
  _steps.Add(time_ns, off_ns);
  _natural += Count(samples);
  _unsettled.push_back({jump, std::move(samples)});
  Settle();
}

void AudioBlocks::End() {
  _ended = true;
  _steps.End();
  Settle();
}

// Gives samples their place as far as it is known.
void AudioBlocks::Settle() {
  for (; _steps.Ready(); _steps.Pop()) {
    std::int64_t const level = SampleAt(_steps.Level());
    std::int64_t const step = level - std::exchange(_level, level);
    auto [jump, samples] = std::move(_unsettled.front());
    _unsettled.pop_front();
    if (step != 0) Report(Time_ns(step), jump);
    // Silence and cuts cancel out.
    std::int64_t const silence = std::max<std::int64_t>(0, step - _excess);
    _excess = std::max<std::int64_t>(0, _excess - step);
    auto const cut = std::min(_excess, Count(samples));
    _excess -= cut;
    samples.erase(samples.begin(), samples.begin() + static_cast<std::ptrdiff_t>(cut * _channels));
    Append(silence, std::move(samples));
  }
}

void AudioBlocks::Report(std::int64_t step_ns, bool jump) {
  std::int64_t const place_ns = _before_ns + Time_ns(_added);
  if (!jump)
    _drift_ns += step_ns;
  else if (step_ns > 0)
    _gaps.Add({Gap::kSilence, place_ns, step_ns});
  else
    _overlaps.Add({Gap::kTrimmed, place_ns, -step_ns});
}

void AudioBlocks::Append(std::int64_t silence, Samples samples) {
  std::int64_t const count = silence + Count(samples);
  if (count == 0) return;
  _pieces.push_back({silence, std::move(samples)});
  _added += count;
  _waiting += count;
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
