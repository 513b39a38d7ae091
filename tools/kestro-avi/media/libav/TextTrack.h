// Text beside video.
#pragma once

#include <deque>
#include <memory>

#include "media/libav/SubtitleDecoder.h"
#include "media/libav/Track.h"

namespace kestro::tool {

// A recording stores no time with a text: its time is that of the next frame of the first video
// track. So each lies directly in front of the frame that is nearest to its time, and comes with
// that frame's time. What lies before the recording's beginning is left out.
class TextTrack : public Track {
 public:
  // `decoder` is null for text that is added by hand. `lead`: the input's times count from its
  // beginning, as it has no other tracks. The frame rate is set before the first packet is popped.
  TextTrack(std::string name, std::unique_ptr<SubtitleDecoder> decoder, Timeline const& timeline,
            InputClock& clock, bool lead);

  void Add(std::int64_t time_ns, std::string text);  // on the input's clock

  void Take(AVPacket const& packet) override;
  void End() override { _ended = true; }
  bool Ready() override;
  TimedPacket Pop() override;
  bool Done() override { return (_ended && !Ready()) || Full(); }
  std::int64_t NextTime_ns() const override;
  // Text is small, and rare: it never makes others wait.
  std::int64_t Waiting_ns() const override { return 0; }
  std::size_t WaitingBytes() const override { return 0; }
  std::string Findings() const override;

 private:
  struct Cue {
    std::int64_t time_ns;
    std::string text;
  };
  bool Known() const { return _timeline.known && _clock.known; }
  bool Full() const;
  std::int64_t Frame(Cue const& cue) const;

  std::unique_ptr<SubtitleDecoder> _decoder;
  Timeline const& _timeline;
  InputClock& _clock;
  std::deque<Cue> _cues;
  std::int64_t _next_ns = 0;  // no text comes before this
  bool _ended = false;
};

}  // namespace kestro::tool
