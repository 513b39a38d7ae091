// All inputs of a recording as one sequence of packets in time order.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "media/AnnexB.h"
#include "recorder/TrackInfo.h"

namespace kestro::tool {

// What of the inputs is wanted.
struct InputOptions {
  base::Fraction rate;  // --fps, 0/1 for none
  bool video = true, audio = true, text = true;
  bool (*interrupted)() = [] { return false; };  // asked while inputs are opened and read
};

// How much of the inputs was read, of how many bytes; of size -1 where that is unknown.
struct Extent {
  std::int64_t size = -1, position = 0;
};

struct TimedPacket {
  Bytes data;
  std::int64_t time_ns = 0;  // since the beginning of the recording, by frame rate or sample rate
  std::int64_t duration_ns = 0;
  bool key = false;
};

// The clock of a recording. It begins with the key frame at or before the wanted time of its
// leading track, the first video track; `offset` is that key frame's distance from the beginning of
// the leading track's input.
struct Timeline {
  std::int64_t start_ns = 0;      // wanted
  std::int64_t duration_ns = -1;  // negative: to the end
  std::int64_t offset_ns = 0;     // until known: the best so far
  bool known = false;
};

class KESTRO_API Session {
 public:
  virtual ~Session() = default;

  // In the order of the inputs, unnumbered ones behind the others.
  virtual record::Tracks Tracks() const = 0;

  // The next packet in time order and its track number. False at the end of all tracks, and when
  // interrupted.
  virtual bool Next(std::size_t& track, TimedPacket& packet) = 0;

  virtual Extent Reach() const = 0;  // of all inputs together

  // What of the inputs is left out; inputs that broke off; what people should know about the
  // tracks.
  virtual std::vector<std::string> Notes() const = 0;
  virtual std::vector<std::string> Failures() const = 0;
  virtual std::vector<std::string> Findings() const = 0;
};

}  // namespace kestro::tool
