#include "media/libav/AudioTrack.h"

#include <algorithm>
#include <cstdlib>
#include <limits>
#include <utility>

#include "cli/Errors.h"
#include "cli/Text.h"

namespace kestro::tool {

// Limits the audio that waits for video.
static constexpr std::size_t kMaxHeld = 64 << 20;
static constexpr std::int64_t kMaxHeldLive_ns = 10000000000;
// Audio that is cut off or filled at the beginning is reported if it is longer than this, ...
static constexpr std::int64_t kReported_ns = 20000000;
// ... and is a finding, not a note, if more than this is cut off.
static constexpr std::int64_t kFinding_ns = 100000000;

static AVStream const& Checked(AVStream const& stream, std::string const& name) {
  AVCodecParameters const& codec = *stream.codecpar;
  if (codec.sample_rate <= 0 || codec.ch_layout.nb_channels <= 0 ||
      codec.ch_layout.nb_channels > std::numeric_limits<std::int16_t>::max() / 2)
    throw Error(kUnusable, name + ": has no audio");
  return stream;
}

// The bits of samples that lose some of them, else 16.
static int ReducedBits(AVCodecParameters const& codec) {
  AVCodecDescriptor const* const known = avcodec_descriptor_get(codec.codec_id);
  bool const lossless = known != nullptr && (known->props & AV_CODEC_PROP_LOSSLESS) != 0 &&
                        (known->props & AV_CODEC_PROP_LOSSY) == 0;
  int const bits = codec.bits_per_raw_sample > 0 ? codec.bits_per_raw_sample
                                                 : av_get_exact_bits_per_sample(codec.codec_id);
  return lossless && bits > 16 ? bits : 16;
}

AudioTrack::AudioTrack(AVStream const& stream, std::string name, Timeline& timeline,
                       InputClock& clock, bool lead, bool live)
    : _timeBase(stream.time_base),
      _timeline(timeline),
      _clock(clock),
      _lead(lead),
      _live(live),
      _bits(ReducedBits(*stream.codecpar)),
      _decoder(Checked(stream, name),
               [this](std::int64_t pts, std::int64_t duration_ns, Samples samples) {
                 AddSamples(pts, duration_ns, std::move(samples));
               }) {
  _info.name = std::move(name);
  _info.codec = TrackInfo::kPcm;
  _info.rate = stream.codecpar->sample_rate;
  _info.channels = stream.codecpar->ch_layout.nb_channels;
  _info.samples = TrackInfo::BlockLength(_info.rate);
}

bool AudioTrack::Take(AVPacket& packet) {
  if (!std::exchange(_stretched, true)) _decoder.Stretch(_timeline.speed);
  _decoder.Decode(&packet);
  return true;
}

void AudioTrack::AddSamples(std::int64_t pts, std::int64_t duration_ns, Samples samples) {
  std::int64_t const time_ns =
      pts == AV_NOPTS_VALUE ? _next_ns : av_rescale_q(pts, _timeBase, kNanoseconds);
  _next_ns = time_ns + duration_ns;
  if (_lead && !_clock.known) _clock = {time_ns, true};
  _heldBytes += samples.size() * sizeof(samples[0]);
  _held_ns += duration_ns;
  _held.push_back({time_ns, duration_ns, std::move(samples)});
  PassOn();
}

bool AudioTrack::HoldsTooMuch() const {
  return _heldBytes > kMaxHeld || (_live && _held_ns > kMaxHeldLive_ns);
}

// Passes the held audio on when its time in the recording is known; drops what is too early.
void AudioTrack::PassOn() {
  bool const known = _timeline.known && _clock.known;
  std::int64_t const begin_ns = _clock.origin_ns + _timeline.offset_ns;
  if (known && !_blocks)
    _blocks = std::make_unique<AudioBlocks>(_info.rate, _info.channels, _timeline.selection);
  while (!_held.empty()) {
    Piece& piece = _held.front();
    std::int64_t const end_ns = piece.time_ns - begin_ns + piece.duration_ns;
    bool const early = _clock.known && end_ns < 0;
    if (known && HoldsTooMuch()) _timeline.Settle(end_ns);
    bool const waits = known ? !_timeline.Settled(end_ns) : !early && !HoldsTooMuch();
    if (waits) break;
    _held_ns -= piece.duration_ns;
    _heldBytes -= piece.samples.size() * sizeof(piece.samples[0]);
    if (known)
      AddToBlocks(piece);
    else
      _early_ns += piece.duration_ns;
    _held.pop_front();
  }
}

// Adds what the recording keeps of a piece.
void AudioTrack::AddToBlocks(Piece& piece) {
  std::int64_t const start_ns = piece.time_ns - _clock.origin_ns - _timeline.offset_ns;
  auto const kept =
      _timeline.Kept(start_ns, start_ns + std::max<std::int64_t>(1, piece.duration_ns));
  if (kept.size() == 1 && kept[0].second - kept[0].first >= piece.duration_ns) {
    _blocks->Add(_timeline.Audio_ns(start_ns), std::move(piece.samples));
    return;
  }
  auto const frames = static_cast<std::int64_t>(piece.samples.size()) / _info.channels;
  auto const at = [&](std::int64_t time_ns) {
    std::int64_t const frame = av_rescale(time_ns - start_ns, frames, piece.duration_ns);
    return piece.samples.begin() +
           static_cast<std::ptrdiff_t>(std::min(frame, frames) * _info.channels);
  };
  for (auto const& [from_ns, to_ns] : kept)
    _blocks->Add(_timeline.Audio_ns(from_ns), Samples(at(from_ns), at(to_ns)));
}

bool AudioTrack::WaitsForLead() const { return !_held.empty() && _timeline.known && _clock.known; }

void AudioTrack::EndAt(std::int64_t time_ns) {
  if (_blocks) _blocks->EndAt(_timeline.Audio_ns(time_ns - _clock.origin_ns - _timeline.offset_ns));
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

static SharedBytes LittleEndian(Samples samples) {
#if __BYTE_ORDER__ != __ORDER_LITTLE_ENDIAN__
  for (std::int16_t& sample : samples) {
    std::uint16_t const value = static_cast<std::uint16_t>(sample);
    sample = static_cast<std::int16_t>(value >> 8 | value << 8);
  }
#endif
  auto const owner = std::make_shared<Samples const>(std::move(samples));
  return {reinterpret_cast<std::uint8_t const*>(owner->data()), owner->size() * 2, owner};
}

TimedPacket AudioTrack::Pop() {
  TimedPacket packet;
  packet.key = true;
  packet.time_ns = _blocks->NextTime_ns();
  packet.data = LittleEndian(_blocks->Take());
  packet.duration_ns = _blocks->NextTime_ns() - packet.time_ns;
  return packet;
}

std::size_t AudioTrack::WaitingBytes() const {
  auto const bytesPerSecond = static_cast<std::int64_t>(_info.rate) * _info.channels * 2;
  return _heldBytes + static_cast<std::size_t>(Waiting_ns() / 1000000 * bytesPerSecond / 1000);
}

// What differs at the beginning; empty for nothing worth mentioning.
Notices AudioTrack::Beginning() const {
  Selection const& selection = _timeline.selection;
  if (!_blocks || selection.start_ns != 0 || selection.recorded_ns != 0) return {};
  std::int64_t const early_ns = _early_ns + _blocks->Early_ns(), late_ns = _blocks->Late_ns();
  if (early_ns > kReported_ns)
    return {{"left out: " + Seconds_ns(early_ns) + " of audio before the first picture",
             "loss",
             {{"reason", "before_video"}, {"length_ms", Ms(early_ns)}}}};
  if (late_ns > kReported_ns)
    return {{"begins " + Seconds_ns(late_ns) + " after the first picture; preceded by silence",
             "late",
             {{"length_ms", Ms(late_ns)}}}};
  return {};
}

Notices AudioTrack::Findings() const {
  Notices findings;
  if (unsigned const damaged = _decoder.Damaged(); damaged != 0)
    findings.push_back({"left out: " + Quantity(damaged, "damaged packet"),
                        "loss",
                        {{"reason", "damaged"}, {"count", damaged}}});
  if (!_blocks) return findings;
  if (_early_ns + _blocks->Early_ns() > kFinding_ns) Append(findings, Beginning());
  Append(findings, _blocks->Gaps().Lines());
  Append(findings, _blocks->Overlaps().Lines());
  if (std::int64_t const drift_ns = _blocks->Drift_ns(); drift_ns != 0)
    findings.push_back({"its clock drifts: " + Seconds_ns(std::abs(drift_ns)) +
                            (drift_ns > 0 ? " of silence added" : " cut off"),
                        "drift",
                        {{"length_ms", Ms(drift_ns)}}});
  return findings;
}

Notices AudioTrack::Notes() const {
  Notices notes;
  if (_bits != 16)
    notes.emplace_back("its samples have " + std::to_string(_bits) + " bits, recorded are 16");
  if (_blocks && _early_ns + _blocks->Early_ns() <= kFinding_ns) Append(notes, Beginning());
  return notes;
}

Notices AudioTrack::TakeEvents() {
  if (!_blocks) return {};
  Notices events = _blocks->Gaps().Take();
  Append(events, _blocks->Overlaps().Take());
  return events;
}

}  // namespace kestro::tool
