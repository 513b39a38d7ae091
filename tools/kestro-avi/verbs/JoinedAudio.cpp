#include "verbs/JoinedAudio.h"

#include <algorithm>

#include "cli/Text.h"
#include "media/Scaled.h"

namespace kestro::tool {

static constexpr std::int64_t kSecond_ns = 1000000000;
static constexpr std::int64_t kTolerance_ns = 10000000;
static constexpr std::size_t kMostSilence = 4 << 20;  // bytes at once

std::int64_t JoinedAudio::Samples(std::int64_t time_ns) const {
  return Scaled(time_ns, _rate, kSecond_ns);
}

std::int64_t JoinedAudio::Time_ns(std::int64_t samples) const {
  return Scaled(samples, kSecond_ns, _rate);
}

void JoinedAudio::Begin(avi::AviTrack const& track, std::uint64_t samples, std::int64_t end_ns) {
  _rate = std::max(1u, track.sampleRate);
  _frameBytes = track.FrameBytes();
  // A second, unless the rate is damaged. Samples of 8 bits are unsigned.
  std::size_t const samplesAtOnce =
      std::clamp<std::size_t>(kMostSilence / _frameBytes, 1, static_cast<std::size_t>(_rate));
  _silence.assign(samplesAtOnce * _frameBytes, track.bits == 8 ? 0x80 : 0);
  _filled = _cut = 0;
  _begin = _written;
  _ended = _begin + static_cast<std::int64_t>(samples);
  _end = end_ns < 0 ? -1 : Samples(end_ns);
  if (_end >= 0 && _ended > _end + Samples(kTolerance_ns)) {
    _cut = _ended - _end;
    _ended = _end;
  }
}

bool JoinedAudio::Write(std::uint8_t const* data, std::int64_t samples) {
  record::Payload payload;
  payload.data = data;
  payload.size = static_cast<std::size_t>(samples) * _frameBytes;
  payload.time_ns = Time_ns(_written);
  _written += samples;
  return _recorder->Push(_track, payload) == record::Code::kOk;
}

bool JoinedAudio::FillTo(std::int64_t position) {
  auto const most = static_cast<std::int64_t>(_silence.size() / _frameBytes);
  bool written = true;
  while (written && _written < position) {
    std::int64_t const count = std::min(most, position - _written);
    _filled += count;
    written = Write(_silence.data(), count);
  }
  return written;
}

bool JoinedAudio::Add(avi::Piece const& piece) {
  if (!FillTo(std::min(_ended, _begin + static_cast<std::int64_t>(piece.position)))) return false;
  std::int64_t const count =
      std::min(static_cast<std::int64_t>(piece.size / _frameBytes), _ended - _written);
  return count <= 0 || Write(piece.data, count);
}

bool JoinedAudio::Reach(std::int64_t time_ns) {
  if (_end < 0 || _written < _ended) return true;
  std::int64_t const position = std::min(_end, Samples(time_ns));
  return position <= _written + Samples(kTolerance_ns) || FillTo(position);
}

bool JoinedAudio::End() {
  _ended = _written;
  return Reach(Time_ns(_end) + kSecond_ns);
}

std::string JoinedAudio::Changes() const {
  auto const length = [this](std::int64_t samples) { return Seconds(Time_ns(samples) / 1000000); };
  if (_cut > 0) return length(_cut) + " of audio after the last picture left out";
  if (_filled > 0) return length(_filled) + " of missing audio filled with silence";
  return {};
}

}  // namespace kestro::tool
