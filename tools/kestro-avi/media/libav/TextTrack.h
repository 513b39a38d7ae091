// A text track.
#pragma once

#include <deque>
#include <memory>

#include "media/FrameRate.h"
#include "media/libav/SubtitleDecoder.h"
#include "media/libav/Track.h"

namespace kestro::tool {

// A recording stores no times of texts: a text has the time of the next frame of the first video
// track. So each text is stored directly before the frame that is nearest to its time, and gets
// that frame's time. Texts before the start of the recording are left out. As SRT, all texts are
// stored with their times in one packet before the first frame.
class TextTrack : public Track {
 public:
  // `decoder`: null if Add is used instead. `lead`: the input has no other tracks, so its times
  // count from 0. Set the frame rate before the first Pop.
  TextTrack(std::string name, std::unique_ptr<SubtitleDecoder> decoder, Timeline const& timeline,
            InputClock& clock, bool lead);

  void StoreAsSrt() { _asSrt = true; }  // call Add for all texts, and End, before the first Pop
  void Add(Cue cue);                    // with times on the input's clock

  // Removes the texts from a time on, which is on the input's clock.
  void DropFrom(std::int64_t time_ns);

  bool Take(AVPacket& packet) override;
  void End() override { _ended = true; }
  bool Ready() override;
  TimedPacket Pop() override;
  bool Done() override { return (_ended && !Ready()) || Full(); }
  std::int64_t NextTime_ns() const override;
  // Text is small and rare: other tracks never wait for it.
  std::int64_t Waiting_ns() const override { return 0; }
  std::size_t WaitingBytes() const override { return 0; }
  Notices Findings() const override;

 private:
  bool StartKnown() const { return _timeline.known && _clock.known; }
  bool Full() const { return _timeline.IsOver(NextTime_ns() + 2 * HalfFrame_ns()); }
  std::int64_t Time_ns(Cue const& cue) const;
  std::int64_t HalfFrame_ns() const { return FrameTime_ns(_info.frameRate, 1) / 2; }
  void Combine();
  std::int64_t SinceStart_ns(std::int64_t time_ns) const {
    return time_ns - _clock.origin_ns - _timeline.offset_ns;
  }

  std::unique_ptr<SubtitleDecoder> _decoder;
  Timeline const& _timeline;
  InputClock& _clock;
  std::deque<Cue> _cues;
  std::int64_t _next_ns = 0;         // no earlier text follows
  std::int64_t _combinedEnd_ns = 0;  // when the last text begins that Combine has stored
  bool _ended = false, _asSrt = false;
};

// The finding about texts that came while there was no video.
Notice SkippedTexts(std::string const& input, unsigned count);

}  // namespace kestro::tool
