// Reads all inputs of a recording as one sequence of packets in time order.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "avi/StartTime.h"
#include "cli/Notice.h"
#include "media/SharedBytes.h"
#include "media/TrackChoice.h"
#include "recorder/TrackInfo.h"

namespace kestro::tool {

// What to record of the inputs.
struct InputOptions {
  base::Fraction rate;       // --fps, 0/1 for none
  std::string textEncoding;  // --text-encoding, empty for UTF-8
  bool textAsSrt = false;    // --text-form srt
  bool video = true, audio = true, text = true;
  std::vector<TrackChoice> choices;  // of the kinds above; empty: all tracks
  bool keepSamples = false;          // do not stretch audio to the speed at which the pictures play
  std::optional<std::int64_t> start_ns;  // --start-time: of the first packet, since 1970 UTC
  bool newFileAtGap = false;             // where frames are missing, start a new file
  std::int64_t stall_ns = 10000000000;   // --stall-timeout, 0: none
  std::int64_t reconnect_ns = -1;        // --reconnect, negative: for ever
  bool (*interrupted)() = [] { return false; };  // called while inputs are opened and read
};

// The size of the inputs in bytes, -1 if unknown, and how much of it was read.
struct ReadExtent {
  std::int64_t size = -1, position = 0;
};

struct TimedPacket {
  SharedBytes data;
  // From the start of the recording. Frames and samples are counted; a frame's time differs from
  // the counted one where the track's own times do, and nothing could be taken out.
  std::int64_t time_ns = 0;
  std::int64_t duration_ns = 0;
  bool key = false;
  bool startsFile = false;  // a new file starts with this key frame
  bool leading = false;     // refers to frames before the last key frame
};

// The part of the inputs to record. It starts at the key frame at or before `start_ns`.
struct Selection {
  std::int64_t start_ns = 0;
  std::int64_t duration_ns = -1;  // negative: to the end
  std::int64_t recorded_ns = 0;   // what was recorded before this part
};

class KESTRO_API Session {
 public:
  virtual ~Session() = default;

  // In the order of the inputs, with unnumbered tracks last. Empty while all live inputs are lost.
  virtual record::Tracks Tracks() const = 0;

  enum Outcome {
    kEnd,  // of all tracks, or interrupted
    kPacket,
    kTracks,  // a live input was lost or is back, or parameters changed: Tracks() has changed
    kNothing  // no packet has come for a moment
  };
  // Gets the next packet in time order and its track number. Times go on when the tracks change.
  virtual Outcome Next(std::size_t& track, TimedPacket& packet) = 0;

  // When the packet with this time was captured: as given, by the clock for live inputs, or as the
  // inputs say. Empty if unknown. Call it when the packet has just been returned.
  virtual std::optional<avi::StartTime> Captured(std::int64_t time_ns) = 0;

  virtual ReadExtent ReadSoFar() const = 0;  // of all inputs together

  // Streams that are left out, and what is recorded in another form; inputs that failed; problems
  // with the tracks. Findings and late notes are complete after the last packet.
  virtual Notices Notes() const = 0;
  virtual Notices LateNotes() const = 0;
  virtual Notices Failures() const = 0;
  virtual Notices Findings() const = 0;
  // Warnings about what has happened since the last call, such as each gap. Findings has them again
  // as people want to read them: the first ones, and how many more there are.
  virtual Notices TakeEvents() = 0;
  // The same for what people want to know at once: inputs that are lost or back, and changed
  // parameters.
  virtual Notices TakeNews() = 0;
};

}  // namespace kestro::tool
