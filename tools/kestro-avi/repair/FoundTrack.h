// One track of a recording that is made again.
#pragma once

#include <utility>

#include "input/FrameRate.h"
#include "input/Track.h"

namespace kestro::tool {

// Holds one packet at a time, which has the time that it would have been recorded with: each frame
// and each sample follows the one before.
class FoundTrack : public Track {
 public:
  explicit FoundTrack(TrackInfo const& info) { _info = info; }

  void Put(Bytes data, bool key);

  void Take(AVPacket const& packet) override {
    Put(Bytes(packet.data, packet.data + packet.size), (packet.flags & AV_PKT_FLAG_KEY) != 0);
  }
  void End() override { _ended = true; }
  bool Ready() override { return _ready; }
  TimedPacket Pop() override {
    _ready = false;
    return std::move(_packet);
  }
  bool Done() override { return _ended && !_ready; }
  std::int64_t NextTime_ns() const override { return _ready ? _packet.time_ns : Time_ns(); }
  std::int64_t Waiting_ns() const override { return _ready ? _packet.duration_ns : 0; }
  std::size_t WaitingBytes() const override { return _ready ? _packet.data.size() : 0; }
  std::string Findings() const override { return ""; }

 private:
  std::int64_t Time_ns() const;

  std::int64_t _position = 0;  // of what comes next: frames, or sample frames of sound
  TimedPacket _packet;
  bool _ready = false, _ended = false;
};

}  // namespace kestro::tool
