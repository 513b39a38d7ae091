// Reads all inputs of a recording as one sequence of packets in time order.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "media/AnnexB.h"
#include "recorder/TrackInfo.h"

namespace kestro::tool {

// What to record of the inputs.
struct InputOptions {
  base::Fraction rate;  // --fps, 0/1 for none
  bool video = true, audio = true, text = true;
  bool (*interrupted)() = [] { return false; };  // called while inputs are opened and read
};

// The size of the inputs in bytes, -1 if unknown, and how much of it was read.
struct ReadExtent {
  std::int64_t size = -1, position = 0;
};

struct TimedPacket {
  Bytes data;
  std::int64_t time_ns = 0;  // from the start of the recording, by frame rate or sample rate
  std::int64_t duration_ns = 0;
  bool key = false;
};

// The clock of a recording. It starts at a key frame of the leading track, the first video track:
// the one at or before the requested time.
struct Timeline {
  std::int64_t start_ns = 0;      // requested
  std::int64_t duration_ns = -1;  // negative: to the end
  std::int64_t offset_ns = 0;     // from the start of the input to that key frame; the best so far
  bool known = false;             // offset_ns is final
};

class KESTRO_API Session {
 public:
  virtual ~Session() = default;

  // In the order of the inputs, with unnumbered tracks last.
  virtual record::Tracks Tracks() const = 0;

  // Gets the next packet in time order and its track number. Returns false at the end of all tracks
  // and when interrupted.
  virtual bool Next(std::size_t& track, TimedPacket& packet) = 0;

  virtual ReadExtent ReadSoFar() const = 0;  // of all inputs together

  // Streams that are left out; inputs that failed; problems with the tracks.
  virtual std::vector<std::string> Notes() const = 0;
  virtual std::vector<std::string> Failures() const = 0;
  virtual std::vector<std::string> Findings() const = 0;
};

}  // namespace kestro::tool
