#include "media/libav/TextTrack.h"

#include <algorithm>

#include "cli/Text.h"
#include "media/TimedText.h"

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

bool TextTrack::Take(AVPacket& packet) {
  Cue cue;
  if (!_ended && _decoder->Decode(packet, cue)) Add(std::move(cue));
  return true;
}

void TextTrack::DropFrom(std::int64_t time_ns) {
  while (!_cues.empty() && _cues.back().time_ns >= time_ns) _cues.pop_back();
}

// The cue's time in the recording.
std::int64_t TextTrack::Time_ns(Cue const& cue) const {
  return _timeline.Video_ns(SinceStart_ns(cue.time_ns));
}

// Replaces the texts by one packet with an SRT file of them.
void TextTrack::Combine() {
  _asSrt = false;
  auto const inFile_ms = [&](std::int64_t time_ns) {
    return (_timeline.Video_ns(time_ns) + 500000) / 1000000;
  };
  std::vector<TimedText> texts;
  for (std::size_t i = 0; i < _cues.size(); ++i) {
    std::int64_t const start_ns = SinceStart_ns(_cues[i].time_ns);
    std::int64_t end_ns = SinceStart_ns(_cues[i].end_ns);
    if (_cues[i].end_ns < 0) {
      if (start_ns < 0) continue;
      end_ns = start_ns + kLongestCue_ms * 1000000;
      if (i + 1 < _cues.size()) end_ns = std::min(end_ns, SinceStart_ns(_cues[i + 1].time_ns));
    }
    if (end_ns <= 0 || _timeline.IsOver(_timeline.Video_ns(start_ns))) continue;
    _combinedEnd_ns = std::max(_combinedEnd_ns, start_ns);
    texts.push_back({inFile_ms(std::max<std::int64_t>(0, start_ns)), inFile_ms(end_ns),
                     std::move(_cues[i].text)});
  }
  _cues.clear();
  if (!texts.empty()) _cues.push_back({_clock.origin_ns + _timeline.offset_ns, -1, WrapSrt(texts)});
}

bool TextTrack::Ready() {
  if (!StartKnown()) return false;
  if (_asSrt) Combine();
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
  std::string const& text = _cues.front().text;
  packet.data = SharedBytes(Bytes(text.begin(), text.end()));
  _cues.pop_front();
  return packet;
}

Notices TextTrack::Findings() const {
  Notices findings;
  auto const lose = [&findings](unsigned count, char const* reason, std::string const& text) {
    if (count != 0)
      findings.push_back({"left out: " + text, "loss", {{"reason", reason}, {"count", count}}});
  };
  if (_decoder) {
    lose(_decoder->Foreign(), "encoding",
         Quantity(_decoder->Foreign(), "text") +
             " not in UTF-8 (--text-encoding sets the encoding)");
    lose(_decoder->Damaged(), "damaged", Quantity(_decoder->Damaged(), "damaged text"));
  }
  if (_timeline.CutBefore_ns(_combinedEnd_ns) != 0)
    findings.emplace_back(
        "texts after missing video come too late: their times were already stored");
  return findings;
}

Notice SkippedTexts(std::string const& input, unsigned count) {
  return {input + ": left out: " + Quantity(count, "text") + " while there was no video",
          "loss",
          {{"input", input}, {"reason", "no_video"}, {"count", count}}};
}

}  // namespace kestro::tool
