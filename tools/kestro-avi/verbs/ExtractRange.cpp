#include "verbs/ExtractRange.h"

#include <algorithm>

#include "cli/Errors.h"
#include "cli/Text.h"
#include "media/Scaled.h"
#include "media/TimedText.h"
#include "verify/FrameConverter.h"

namespace kestro::tool {

static constexpr std::int64_t kMicroseconds = 1000000;

// Positions per second: frames or samples.
static std::pair<std::int64_t, std::int64_t> RateOf(avi::AviTrack const& track) {
  if (track.type == "audio") return {track.sampleRate, 1};
  return {track.rate, std::max(1u, track.scale)};
}

ExtractRange::ExtractRange(avi::AviFile& avi, std::int64_t from_ms, std::int64_t to_ms)
    : _avi(avi), _frames(avi.Tracks().size()), _to_ms(to_ms) {
  if (from_ms >= avi.Duration_ms())
    throw Error(kUsage, "--from is after the end, " + Seconds(avi.Duration_ms()));
  if (to_ms >= 0 && to_ms <= from_ms) throw Error(kUsage, "--to must be after --from");
  ReadFrames();
  _begin_us = Begin_us(from_ms);
  for (std::size_t i = 0; i < avi.Tracks().size(); ++i)
    _parts.push_back(PartOf(avi.ClockOf(i), _begin_us, to_ms));
  _frames.clear();
}

void ExtractRange::ReadFrames() {
  _avi.ForEachPacket([this](avi::IndexEntry const& entry) {
    auto const track = static_cast<std::size_t>(avi::TrackOfCode(entry.id));
    if (track < _frames.size() && _avi.Tracks()[track].type == "video")
      _frames[track].push_back(entry);
  });
}

bool ExtractRange::IsKey(std::size_t track, std::uint64_t frame) {
  avi::IndexEntry const& entry = _frames[track][frame];
  auto const kind = FrameConverter(_avi.Tracks()[track]).KindOf(_avi.Reader(), entry);
  return kind && IsKeyFrame(*kind, (entry.flags & avi::IndexEntry::kKey) != 0);
}

// When the key frame begins that is at or before a time.
std::int64_t ExtractRange::Begin_us(std::int64_t from_ms) {
  auto const& tracks = _avi.Tracks();
  std::size_t lead = 0;
  while (lead < tracks.size() && _frames[lead].empty()) ++lead;
  if (lead == tracks.size()) return from_ms * 1000;
  auto const [num, den] = RateOf(tracks[lead]);
  if (num == 0) throw Error(kUnusable, "--from, --to: the video has no frame rate");
  auto frame = static_cast<std::uint64_t>(Scaled(from_ms, num, den * 1000, Rounding::kTowardsZero));
  frame = std::min<std::uint64_t>(frame, _frames[lead].size() - 1);
  while (frame > 0 && !IsKey(lead, frame)) --frame;
  return Scaled(static_cast<std::int64_t>(frame), den * kMicroseconds, num);
}

ExtractRange::Part ExtractRange::PartOf(std::size_t track, std::int64_t begin_us,
                                        std::int64_t to_ms) {
  auto const [num, den] = RateOf(_avi.Tracks()[track]);
  if (num == 0) return {};
  Part part;
  part.begin = part.origin = static_cast<std::uint64_t>(Scaled(begin_us, num, den * kMicroseconds));
  if (to_ms >= 0) part.end = static_cast<std::uint64_t>(Scaled(to_ms, num, den * 1000));
  std::string const& codec = _avi.Tracks()[track].codec;
  std::uint64_t const frames = _frames[track].size();
  if (codec == "h264" || codec == "hevc")
    while (part.begin < frames && !IsKey(track, part.begin)) ++part.begin;
  return part;
}

bool ExtractRange::Has(std::size_t track, std::uint64_t position, std::uint64_t count) const {
  Part const& part = _parts[track];
  // A packet at the beginning may have all texts.
  if (_avi.Tracks()[track].type == "text" && position == 0) return true;
  return position < part.end && position + std::max<std::uint64_t>(1, count) > part.begin;
}

void ExtractRange::Cut(std::size_t track, avi::Piece& piece) {
  Part const& part = _parts[track];
  avi::AviTrack const& info = _avi.Tracks()[track];
  if (info.type == "text" && CutTimedTexts(piece)) return;
  if (info.type == "audio") {
    std::size_t const frame = info.FrameBytes();
    std::uint64_t const samples = piece.size / frame;
    auto const within = [&](std::uint64_t at) {
      return std::clamp(at, piece.position, piece.position + samples) - piece.position;
    };
    std::uint64_t const begin = within(part.begin), end = within(part.end);
    piece.data += begin * frame;
    piece.size = (std::max(begin, end) - begin) * frame;
    piece.position += begin;
  } else if (piece.position < part.begin || piece.position >= part.end) {
    piece.size = 0;
  }
  piece.position -= std::min(piece.position, part.origin);
}

// Shifts texts that carry their times. Returns false for other texts.
bool ExtractRange::CutTimedTexts(avi::Piece& piece) {
  std::vector<TimedText> kept;
  auto const texts = UnwrapSrt(piece.data, piece.size);
  for (TimedText text : texts) {
    text.start_ms = std::max<std::int64_t>(0, text.start_ms - _begin_us / 1000);
    text.end_ms -= _begin_us / 1000;
    if (_to_ms >= 0) text.end_ms = std::min(text.end_ms, _to_ms - _begin_us / 1000);
    if (text.end_ms > text.start_ms) kept.push_back(std::move(text));
  }
  if (texts.empty()) return false;
  _texts = kept.empty() ? "" : WrapSrt(kept);
  piece = {reinterpret_cast<std::uint8_t const*>(_texts.data()), _texts.size(), 0, true};
  return true;
}

avi::AviTrack ExtractRange::Describe(std::size_t track) const {
  avi::AviTrack info = _avi.Tracks()[track];
  Part const& part = _parts[track];
  if (info.type == "audio") {
    std::uint64_t const frame = info.FrameBytes();
    std::uint64_t const end = std::min<std::uint64_t>(part.end, info.bytes / frame);
    info.bytes = (end - std::min(end, part.begin)) * frame;
  } else {
    info.chunks = std::min<std::uint64_t>(part.end, info.chunks);
    info.chunks -= std::min<std::uint64_t>(info.chunks, part.origin);
  }
  return info;
}

}  // namespace kestro::tool
