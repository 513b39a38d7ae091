// An audio track, decoded to 16-bit PCM.
#pragma once

#include <deque>

#include "media/libav/AudioBlocks.h"
#include "media/libav/AudioDecoder.h"
#include "media/libav/Track.h"

namespace kestro::tool {

class AudioTrack : public Track {
 public:
  // `lead`: the input has no video, so it starts with this audio. `live`: audio waits only a
  // limited time for the times of the video. Throws Error for a stream that cannot be recorded.
  AudioTrack(AVStream const& stream, std::string name, Timeline& timeline, InputClock& clock,
             bool lead, bool live);

  bool Take(AVPacket& packet) override;
  void EndAt(std::int64_t time_ns) override;
  void End() override;
  bool Ready() override;
  TimedPacket Pop() override;
  bool Done() override;
  std::int64_t NextTime_ns() const override { return _blocks ? _blocks->NextTime_ns() : 0; }
  std::int64_t Waiting_ns() const override { return _blocks ? _blocks->Waiting_ns() : 0; }
  std::size_t WaitingBytes() const override;
  bool WaitsForLead() const override;
  Notices Findings() const override;
  Notices Notes() const override;
  Notices TakeEvents() override;

 private:
  struct Piece {
    std::int64_t time_ns, duration_ns;  // on the input's clock
    Samples samples;
  };
  void AddSamples(std::int64_t pts, std::int64_t duration_ns, Samples samples);
  void PassOn();
  void AddToBlocks(Piece& piece);
  bool HoldsTooMuch() const;
  Notices Beginning() const;

  AVRational const _timeBase;
  Timeline& _timeline;
  InputClock& _clock;
  bool const _lead, _live;
  std::int64_t _next_ns = 0;  // time of audio without a time
  std::deque<Piece> _held;    // until its time in the recording is known
  std::size_t _heldBytes = 0;
  std::int64_t _held_ns = 0;
  std::unique_ptr<AudioBlocks> _blocks;  // null until the start of the recording is known
  std::int64_t _early_ns = 0;            // dropped before that
  bool _ended = false, _stretched = false;
  int _bits = 16;  // of the input's samples
  AudioDecoder _decoder;
};

}  // namespace kestro::tool
