#include "media/libav/AudioTrack.h"

#include <limits>

#include "cli/Errors.h"

namespace kestro::tool {

// Limits the audio that waits for the first picture.
static constexpr std::size_t kMaxHeld = 64 << 20;

static AVStream const& Checked(AVStream const& stream, std::string const& name) {
  AVCodecParameters const& codec = *stream.codecpar;
  if (codec.sample_rate <= 0 || codec.ch_layout.nb_channels <= 0 ||
      codec.ch_layout.nb_channels > std::numeric_limits<std::int16_t>::max() / 2)
    throw Error(kUnusable, name + ": has no audio");
  return stream;
}

AudioTrack::AudioTrack(AVStream const& stream, std::string name, Timeline& timeline,
                       InputClock& clock, bool lead)
    : _timeBase(stream.time_base),
      _timeline(timeline),
      _clock(clock),
      _lead(lead),
      _decoder(Checked(stream, name),
               [this](std::int64_t pts, Samples samples) { AddSamples(pts, std::move(samples)); }) {
  _info.name = std::move(name);
  _info.codec = TrackInfo::kPcm;
  _info.rate = stream.codecpar->sample_rate;
  _info.channels = stream.codecpar->ch_layout.nb_channels;
  _info.samples = TrackInfo::BlockLength(_info.rate);
}

std::int64_t AudioTrack::Duration_ns(Samples const& samples) const {
  return av_rescale(static_cast<std::int64_t>(samples.size()) / _info.channels, 1000000000,
                    _info.rate);
}

void AudioTrack::AddSamples(std::int64_t pts, Samples samples) {
  std::int64_t const time_ns =
      pts == AV_NOPTS_VALUE ? _next_ns : av_rescale_q(pts, _timeBase, kNanoseconds);
  _next_ns = time_ns + Duration_ns(samples);
  if (_lead && !_clock.known) _clock = {time_ns, true};
  _heldBytes += samples.size() * sizeof(samples[0]);
  _held.push_back({time_ns, std::move(samples)});
  PassOn();
}

// Passes the held audio on when the start of the recording is known; drops what is too early.
void AudioTrack::PassOn() {
  bool const known = _timeline.known && _clock.known;
  std::int64_t const begin_ns = _clock.origin_ns + _timeline.offset_ns;
  if (known && !_blocks)
    _blocks = std::make_unique<AudioBlocks>(_info.rate, _info.channels, _timeline.duration_ns,
                                            _timeline.offset_ns != 0);
  while (!_held.empty()) {
    Piece& piece = _held.front();
    bool const early = _clock.known && piece.time_ns + Duration_ns(piece.samples) < begin_ns;
    if (!known && !early && _heldBytes <= kMaxHeld) break;
    _heldBytes -= piece.samples.size() * sizeof(piece.samples[0]);
    if (known) _blocks->Add(piece.time_ns - begin_ns, std::move(piece.samples));
    _held.pop_front();
  }
}

void AudioTrack::End() {
  if (_ended) return;
  _decoder.Decode(nullptr);
  _ended = true;
}

bool AudioTrack::Ready() {
  PassOn();
  if (_blocks && _ended) _blocks->End();
  return _blocks && _blocks->Ready();
}

bool AudioTrack::Done() { return (_ended && !Ready()) || (_blocks && _blocks->Full()); }

TimedPacket AudioTrack::Pop() {
  TimedPacket packet;
  packet.key = true;
  packet.time_ns = _blocks->NextTime_ns();
  Samples const samples = _blocks->Take();
  packet.data.resize(samples.size() * 2);
  for (std::size_t i = 0; i < samples.size(); ++i) {  // little-endian on any host
    packet.data[2 * i] = static_cast<std::uint8_t>(samples[i]);
    packet.data[2 * i + 1] = static_cast<std::uint8_t>(samples[i] >> 8);
  }
  packet.duration_ns = Duration_ns(samples);
  return packet;
}

std::size_t AudioTrack::WaitingBytes() const {
  auto const bytesPerSecond = static_cast<std::int64_t>(_info.rate) * _info.channels * 2;
  return _heldBytes + static_cast<std::size_t>(Waiting_ns() / 1000000 * bytesPerSecond / 1000);
}

std::string AudioTrack::Findings() const {
  std::string text;
  if (_decoder.Damaged() != 0)
    text = std::to_string(_decoder.Damaged()) + " damaged packets are left out";
  if (_blocks && _blocks->Jumps() != 0)
    text += (text.empty() ? "" : "; ") + std::string("its clock jumps; audio may get out of sync");
  return text;
}

}  // namespace kestro::tool
