// All inputs of a recording as one sequence of packets in time order.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "input/Input.h"

namespace kestro::tool {

class Session {
 public:
  // Tracks come in the order of the inputs, unnumbered ones behind the others. `timeline` says what
  // part is wanted. Throws Error for inputs that cannot be recorded, or not together.
  Session(std::vector<std::string> const& addresses, InputOptions const& options,
          Timeline const& timeline);

  std::vector<Track*> const& Tracks() const { return _tracks; }

  // The next packet in time order and its track number. False at the end of all tracks, and when
  // interrupted.
  bool Next(std::size_t& track, TimedPacket& packet);

  Extent Reach() const;  // of all inputs together

  // What of the inputs is left out; inputs that broke off; what people should know about the
  // tracks.
  std::vector<std::string> Notes() const;
  std::vector<std::string> Failures() const;
  std::vector<std::string> Findings() const;

 private:
  void CheckRates();
  bool Begin();
  bool RunsAhead(std::size_t track) const;

  Timeline _timeline;
  std::vector<std::unique_ptr<Input>> _inputs;
  std::vector<Track*> _tracks;
  std::vector<std::size_t> _inputOf;  // per track
  Track const* _video = nullptr;      // the first video track
  unsigned _misplaced = 0;            // texts that lie beside another frame than theirs
};

}  // namespace kestro::tool
