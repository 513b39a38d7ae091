#include "media/libav/TextTrack.h"

#include <algorithm>

#include "media/FrameRate.h"

namespace kestro::tool {

TextTrack::TextTrack(std::string name, std::unique_ptr<SubtitleDecoder> decoder,
                     Timeline const& timeline, InputClock& clock, bool lead)
    : _decoder(std::move(decoder)), _timeline(timeline), _clock(clock) {
  if (lead) _clock = {0, true};
  _info.name = std::move(name);
  _info.codec = TrackInfo::kText;
}

void TextTrack::Add(std::int64_t time_ns, std::string text) {
  if (!text.empty()) _cues.push_back({time_ns, std::move(text)});
}

void TextTrack::Take(AVPacket const& packet) {
  std::int64_t time_ns = 0;
  std::string text;
  if (_decoder->Decode(packet, time_ns, text)) Add(time_ns, std::move(text));
}

// The number of the frame that is nearest to the cue.
std::int64_t TextTrack::Frame(Cue const& cue) const {
  std::int64_t const time_ns = cue.time_ns - _clock.origin_ns - _timeline.offset_ns;
  return av_rescale(time_ns, _info.frameRate.num, 1000000000 * _info.frameRate.den);
}

bool TextTrack::Ready() {
  if (!StartKnown()) return false;
  while (!_cues.empty() && Frame(_cues.front()) < 0) _cues.pop_front();
  return !_cues.empty() && !Full();
}

bool TextTrack::Full() const {
  return _timeline.duration_ns >= 0 && NextTime_ns() >= _timeline.duration_ns;
}

std::int64_t TextTrack::NextTime_ns() const {
  if (!StartKnown() || _cues.empty()) return _next_ns;
  return std::max(_next_ns, FrameTime_ns(_info.frameRate, Frame(_cues.front())));
}

TimedPacket TextTrack::Pop() {
  TimedPacket packet;
  packet.time_ns = _next_ns = NextTime_ns();
  packet.data.assign(_cues.front().text.begin(), _cues.front().text.end());
  _cues.pop_front();
  return packet;
}

std::string TextTrack::Findings() const {
  if (!_decoder || _decoder->Damaged() == 0) return {};
  return std::to_string(_decoder->Damaged()) + " damaged texts are left out";
}

}  // namespace kestro::tool
