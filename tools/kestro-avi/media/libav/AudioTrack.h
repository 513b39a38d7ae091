// An audio track, decoded to 16-bit PCM.
#pragma once

#include <deque>

#include "media/libav/AudioBlocks.h"
#include "media/libav/AudioDecoder.h"
#include "media/libav/Track.h"

namespace kestro::tool {

class AudioTrack : public Track {
 public:
  // `lead`: the input has no video, so it starts with this audio. Throws Error for a stream that
  // cannot be recorded.
  AudioTrack(AVStream const& stream, std::string name, Timeline& timeline, InputClock& clock,
             bool lead);

  void Take(AVPacket const& packet) override { _decoder.Decode(&packet); }
  void End() override;
  bool Ready() override;
  TimedPacket Pop() override;
  bool Done() override;
  std::int64_t NextTime_ns() const override { return _blocks ? _blocks->NextTime_ns() : 0; }
  std::int64_t Waiting_ns() const override { return _blocks ? _blocks->Waiting_ns() : 0; }
  std::size_t WaitingBytes() const override;
  std::string Findings() const override;

 private:
  struct Piece {
    std::int64_t time_ns;
    Samples samples;
  };
  void AddSamples(std::int64_t pts, Samples samples);
  void PassOn();
  std::int64_t Duration_ns(Samples const& samples) const;

  AVRational const _timeBase;
  Timeline& _timeline;
  InputClock& _clock;
  bool const _lead;
  std::int64_t _next_ns = 0;  // time of audio without a time
  std::deque<Piece> _held;    // until the start of the recording is known
  std::size_t _heldBytes = 0;
  std::unique_ptr<AudioBlocks> _blocks;  // after that
  bool _ended = false;
  AudioDecoder _decoder;
};

}  // namespace kestro::tool
