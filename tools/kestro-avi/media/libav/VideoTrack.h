// A video track: H.264, HEVC or motion JPEG with a constant frame rate.
#pragma once

#include <deque>
#include <optional>

#include "media/FrameRate.h"
#include "media/libav/Libav.h"
#include "media/libav/Track.h"

namespace kestro::tool {

class VideoTrack : public Track {
 public:
  // `lead`: the recording starts with a key frame of this track. `checkRate`: compare the packets'
  // times with the frame rate. Throws Error for a stream that cannot be recorded.
  VideoTrack(AVStream const& stream, std::string name, Timeline& timeline, InputClock& clock,
             bool lead, bool checkRate);

  void Take(AVPacket const& packet) override;
  void End() override;
  bool Ready() override { return _started && !_units.empty() && !Full(); }
  TimedPacket Pop() override;
  bool Done() override { return Full() || (_ended && !Ready()); }
  std::int64_t NextTime_ns() const override { return Time_ns(_frames); }
  std::int64_t Waiting_ns() const override;
  std::size_t WaitingBytes() const override { return _bytes; }
  std::string Findings() const override;

 private:
  struct Unit {
    Bytes data;
    bool key;
  };
  std::int64_t Time_ns(std::int64_t frame) const { return FrameTime_ns(_info.frameRate, frame); }
  std::int64_t PacketTime_ns(AVPacket const& packet);
  bool Full() const;
  bool KeepBeforeStart(std::int64_t time_ns, bool key);
  void Start();
  void DropUnits();

  AVRational const _timeBase;
  Timeline& _timeline;
  InputClock& _clock;
  bool const _lead, _checkRate;
  std::optional<AnnexB> _converter;  // none: packets are stored unchanged
  std::deque<Unit> _units;  // before the start: the group of pictures that may be the first
  std::size_t _bytes = 0;
  std::int64_t _frames = 0;  // popped
  std::int64_t _taken = 0;   // packets of the container
  std::int64_t _last_ns = 0, _latest_ns = 0, _begin_ns = 0;
  bool _started = false, _ended = false;
  unsigned _skipped = 0, _damaged = 0;
  bool _drifts = false;
};

}  // namespace kestro::tool
