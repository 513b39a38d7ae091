#include "media/libav/TextTrack.h"

#include <algorithm>

#include "cli/Text.h"

namespace kestro::tool {

TextTrack::TextTrack(std::string name, std::unique_ptr<SubtitleDecoder> decoder,
                     Timeline const& timeline, InputClock& clock, bool lead)
    : _decoder(std::move(decoder)), _timeline(timeline), _clock(clock) {
  if (lead) _clock = {0, true};
  _info.name = std::move(name);
  _info.codec = TrackInfo::kText;
}

void TextTrack::Add(Cue cue) {
  if (!cue.text.empty()) _cues.push_back(std::move(cue));
}

void TextTrack::Take(AVPacket const& packet) {
  Cue cue;
  if (_decoder->Decode(packet, cue)) Add(std::move(cue));
}

// The cue's time in the recording.
std::int64_t TextTrack::Time_ns(Cue const& cue) const {
  return _timeline.Video_ns(cue.time_ns - _clock.origin_ns - _timeline.offset_ns);
}

bool TextTrack::Ready() {
  if (!StartKnown()) return false;
  while (!_cues.empty() && Time_ns(_cues.front()) <= -HalfFrame_ns()) _cues.pop_front();
  return !_cues.empty() && !Full();
}

// The nearest frame is the first one from this time on; of two, the later one.
std::int64_t TextTrack::NextTime_ns() const {
  if (!StartKnown() || _cues.empty()) return _next_ns;
  return std::max(_next_ns, Time_ns(_cues.front()) - HalfFrame_ns() + 1);
}

TimedPacket TextTrack::Pop() {
  TimedPacket packet;
  packet.time_ns = _next_ns = NextTime_ns();
  packet.data.assign(_cues.front().text.begin(), _cues.front().text.end());
  _cues.pop_front();
  return packet;
}

std::vector<std::string> TextTrack::Findings() const {
  std::vector<std::string> findings;
  if (_decoder && _decoder->Foreign() != 0)
    findings.push_back("left out: " + Quantity(_decoder->Foreign(), "text") +
                       " not in UTF-8 (--text-encoding sets the encoding)");
  if (_decoder && _decoder->Damaged() != 0)
    findings.push_back("left out: " + Quantity(_decoder->Damaged(), "damaged text"));
  return findings;
}

}  // namespace kestro::tool
