// Where extracted tracks go.
#pragma once

#include <cstddef>
#include <string>

#include "avi/TrackReader.h"

namespace kestro::tool {

// Usage: Write the pieces of each track in order, then Finish. All throw Error.
class KESTRO_API Output {
 public:
  virtual ~Output() = default;
  // `track`: counted in the order in which the output was given its tracks.
  virtual void Write(std::size_t track, avi::Piece const& piece) = 0;
  // Returns how much was written, for people.
  virtual std::string Finish() = 0;
  // What people should know about the output; empty for nothing.
  virtual std::string Findings() const { return ""; }
};

}  // namespace kestro::tool
