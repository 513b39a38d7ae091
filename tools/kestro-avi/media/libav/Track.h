// One track of a recording: packets as recording takes them, out of those of a container.
#pragma once

#include <cstdint>
#include <string>

#include "media/Session.h"

struct AVPacket;

namespace kestro::tool {

using record::TrackInfo;

// The clock of an input.
struct InputClock {
  std::int64_t origin_ns = 0;  // the time of the input's first picture, else of its first sound
  bool known = false;
};

// Usage: Take each packet of the container, End after the last one; Pop while Ready.
class Track {
 public:
  virtual ~Track() = default;

  TrackInfo const& Info() const { return _info; }
  void FrameRate(base::Fraction rate) { _info.frameRate = rate; }  // before the first packet
  virtual void Take(AVPacket const& packet) = 0;
  virtual void End() = 0;
  virtual bool Ready() = 0;  // whether Pop has a packet
  virtual TimedPacket Pop() = 0;
  virtual bool Done() = 0;  // no packet comes any more

  virtual std::int64_t NextTime_ns() const = 0;  // of the next packet, also before it is ready
  virtual std::int64_t Waiting_ns() const = 0;   // ready packets, as time ...
  virtual std::size_t WaitingBytes() const = 0;  // ... and as memory

  // What people should know about the track after recording; empty for nothing.
  virtual std::string Findings() const = 0;

 protected:
  TrackInfo _info;
};

}  // namespace kestro::tool
