// Measures recording, compared with a plain copy and another muxer.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "Bench.h"
#include "Mix.h"
#include "base/IO.h"

namespace kestro::bench {

// Where the contenders of a mux case write: to a new file, or nowhere.
struct Target {
  std::string path;  // empty: the bytes are dropped
  // Removes the file, so that it does not slow down the next run.
  void Clear() const;
};

// "mux/null" and "mux/tmpfs". The mix must outlive the cases.
std::vector<Case> MuxCases(Mix const& mix, std::int64_t packets);

// libavformat's AVI muxer as a contender.
Contender LavfMuxer(Mix const& mix, std::int64_t packets, Target const& target);

// Called for each packet, as by Mix::Play.
using Feed = std::function<void(Mix::Unit const& unit, std::size_t index, std::int64_t number)>;
// Records the packets from `play` with libavformat.
void LavfRecord(Mix const& mix, base::IO& io, std::function<void(Feed const&)> const& play);

}  // namespace kestro::bench
