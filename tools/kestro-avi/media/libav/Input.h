// Where tracks come from.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "media/Session.h"
#include "media/libav/Track.h"

namespace kestro::tool {

// A source of packets for its tracks, which are complete from its construction on.
class Input {
 public:
  virtual ~Input() = default;

  std::vector<std::unique_ptr<Track>> const& Tracks() const { return _tracks; }
  bool HasVideo() const { return _hasVideo; }

  // Hands one packet to its track. False at the end, which the tracks were told.
  virtual bool Read() = 0;
  virtual Extent Reach() const { return {}; }

  // Why reading stopped before the end, empty when it did not: an error of the system, or damage.
  std::string const& Failure() const { return _failure; }
  std::string const& Damage() const { return _damage; }
  // What of the input is left out, one line each.
  std::vector<std::string> const& Notes() const { return _notes; }

 protected:
  std::vector<std::unique_ptr<Track>> _tracks;
  bool _hasVideo = false;
  std::string _failure, _damage;
  std::vector<std::string> _notes;
};

// Opens a file name or an address, whatever it holds. `timeline` outlives the input. `lead`: the
// input's first video track begins the recording. Throws Error when it cannot be opened or holds
// something that cannot be recorded.
std::unique_ptr<Input> OpenInput(std::string const& address, InputOptions const& options,
                                 Timeline& timeline, bool lead);

}  // namespace kestro::tool
