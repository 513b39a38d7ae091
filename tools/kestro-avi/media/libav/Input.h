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

// Reads packets and passes them to its tracks. The constructor creates all tracks.
class Input {
 public:
  virtual ~Input() = default;

  std::vector<std::unique_ptr<Track>> const& Tracks() const { return _tracks; }
  bool HasVideo() const { return _hasVideo; }

  // Passes one packet to its track. Returns false at the end, after calling End on the tracks.
  virtual bool Read() = 0;
  virtual ReadExtent ReadSoFar() const { return {}; }

  // When it was captured, if it says so.
  std::optional<avi::StartTime> const& Start() const { return _start; }
  // When a live input was opened. Its first packets wait until its streams are known.
  std::optional<avi::ClockAnchor::Now> const& LiveSince() const { return _liveSince; }

  // Why reading stopped before the end: a system error. Empty if it did not.
  std::string const& Failure() const { return _failure; }
  // Damage and other problems, one line each.
  virtual Notices Findings() const { return _findings; }
  // Streams that are left out, one line each.
  Notices const& Notes() const { return _notes; }
  Notices TakeEvents() { return std::exchange(_events, {}); }  // as Session

 protected:
  std::vector<std::unique_ptr<Track>> _tracks;
  bool _hasVideo = false;
  std::optional<avi::StartTime> _start;
  std::optional<avi::ClockAnchor::Now> _liveSince;
  std::string _failure;
  Notices _findings, _notes, _events;
};

// Opens a file name or an address. `timeline` must outlive the input. Throws Error when it cannot
// be opened or recorded.
std::unique_ptr<Input> OpenInput(std::string const& address, InputOptions const& options,
                                 Timeline& timeline);

}  // namespace kestro::tool
