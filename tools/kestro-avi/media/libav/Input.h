// The interface of inputs.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "avi/ClockAnchor.h"
#include "media/Session.h"
#include "media/libav/Track.h"

namespace kestro::tool {

class LiveSource;

struct EpochStart {
  std::int64_t session_ns = 0;  // where the tracks start on the session's clock
  // The input is placed on that clock; otherwise its first packet is the start.
  bool placed = false;
  bool texts = true;  // with text tracks; otherwise texts are counted and skipped
};

// Reads packets and passes them to its tracks. An input may have several sets of tracks, one after
// the other:
//
//   auto input = OpenInput(address, options);
//   input->Begin(timeline, {});
//   while (input->Read()) ...;
//
// CutAt ends the tracks at a time, and the packets after it go to those of the next Begin.
class Input {
 public:
  virtual ~Input() = default;

  // Creates the tracks. Throws Error.
  virtual void Begin(Timeline& timeline, EpochStart const& start) = 0;
  std::vector<std::unique_ptr<Track>> const& Tracks() const { return _tracks; }
  virtual bool HasVideo() const = 0;

  // Passes one packet to its track, or none when there is none for a moment. Returns false at the
  // end of the tracks, after calling End on them.
  virtual bool Read() = 0;
  virtual ReadExtent ReadSoFar() const { return {}; }
  bool Ended() const { return _ended; }  // nothing follows, also not for other tracks

  // Ends the tracks at this time or, with video, at the first key frame from there on.
  virtual void CutAt(std::int64_t session_ns) = 0;
  // Where they were cut; empty before that is reached.
  std::optional<std::int64_t> const& Cut_ns() const { return _cut_ns; }

  // When it was captured, if it says so.
  std::optional<avi::StartTime> const& Start() const { return _start; }
  // When a live input was opened. Its first packets wait until its streams are known.
  std::optional<avi::ClockAnchor::Now> const& LiveSince() const { return _liveSince; }
  // Null for inputs that do not come back after they were lost.
  virtual LiveSource* Live() { return nullptr; }
  bool Lost() const { return _lost; }
  virtual bool Accept() { return false; }  // as LiveSource

  // Why reading stopped before the end: a system error. Empty if it did not.
  std::string const& Failure() const { return _failure; }
  // Damage and other problems, one line each.
  virtual Notices Findings() const { return _findings; }
  // Streams that are left out, one line each.
  Notices const& Notes() const { return _notes; }
  Notices TakeEvents() { return std::exchange(_events, {}); }  // as Session
  Notices TakeNews() { return std::exchange(_news, {}); }

 protected:
  std::vector<std::unique_ptr<Track>> _tracks;
  std::optional<std::int64_t> _cut_ns;
  bool _ended = false, _lost = false;
  std::optional<avi::StartTime> _start;
  std::optional<avi::ClockAnchor::Now> _liveSince;
  std::string _failure;
  Notices _findings, _notes, _events, _news;
};

// Opens a file name or an address. Throws Error when it cannot be opened or recorded.
std::unique_ptr<Input> OpenInput(std::string const& address, InputOptions const& options);

}  // namespace kestro::tool
