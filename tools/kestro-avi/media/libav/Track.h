// The interface of tracks, which convert packets of a container to packets of a recording.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "media/Session.h"
#include "media/Timeline.h"

struct AVPacket;

namespace kestro::tool {

using record::TrackInfo;

// Where the times of an input start.
struct InputClock {
  std::int64_t origin_ns =
      0;  // the time of the input's first picture or, without video, first audio
  bool known = false;
};

// Call Take for each packet of the container and End after the last one, and Pop while Ready.
class Track {
 public:
  virtual ~Track() = default;

  TrackInfo const& Info() const { return _info; }
  void FrameRate(base::Fraction rate) { _info.frameRate = rate; }  // before the first packet
  // Video: the recording starts with a key frame of this track.
  virtual void MakeLead() {}
  // Video: the frame rate to record, and the container's if that is another one.
  virtual base::Fraction InputRate() const { return {}; }
  virtual base::Fraction OtherRate() const { return {}; }

  // May keep the packet's data, and then changes it. Returns false for a key frame with other
  // parameters, which is unchanged and needs a new track; only End may follow.
  virtual bool Take(AVPacket& packet) = 0;
  // Audio: what follows from this time on the input's clock is for another track.
  virtual void EndAt(std::int64_t /*time_ns*/) {}
  // Video: the latest time of the packets so far, on the input's clock.
  virtual std::int64_t Latest_ns() const { return 0; }
  virtual void End() = 0;
  virtual bool Ready() = 0;  // whether Pop has a packet
  virtual TimedPacket Pop() = 0;
  virtual bool Done() = 0;  // there will be no more packets
  // It has data that it cannot return before the leading track's times are settled further.
  virtual bool WaitsForLead() const { return false; }

  virtual std::int64_t NextTime_ns() const = 0;  // time of the next packet, also before it is ready
  virtual std::int64_t Waiting_ns() const = 0;   // duration of the ready packets,
  virtual std::size_t WaitingBytes() const = 0;  // and their memory

  // What the user should know about after recording: problems, and smaller things.
  virtual Notices Findings() const = 0;
  virtual Notices Notes() const { return {}; }
  virtual Notices TakeEvents() { return {}; }  // as Session

 protected:
  TrackInfo _info;
};

}  // namespace kestro::tool
