// The interface of files that extracted tracks are written to.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "avi/TrackReader.h"

namespace kestro::tool {

struct Written {
  std::uint64_t bytes = 0, files = 1;
};

// Call Write for the pieces of each track in order, and Finish at the end. All functions throw
// Error.
class KESTRO_API Output {
 public:
  virtual ~Output() = default;
  // `track`: index in the tracks that the output was created with.
  virtual void Write(std::size_t track, avi::Piece const& piece) = 0;
  virtual Written Finish() = 0;
  // Problems that the user should know about; empty for none.
  virtual std::string Findings() const { return ""; }
};

}  // namespace kestro::tool
