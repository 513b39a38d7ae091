// What recording costs, beside a plain copy and another muxer.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "Bench.h"
#include "Mix.h"
#include "base/IO.h"

namespace kestro::bench {

// Where the contenders of a mux case write: nowhere, or into a new file.
struct Target {
  std::string path;  // empty: the bytes are dropped
  // Removes what a run left, so that no run pays for the file of another.
  void Clear() const;
};

// "mux/null" and "mux/tmpfs". The mix outlives the cases.
std::vector<Case> MuxCases(Mix const& mix, std::int64_t packets);

// libavformat's AVI muxer as a contender.
Contender LavfMuxer(Mix const& mix, std::int64_t packets, Target const& target);

// Takes a packet of a mix, as Mix::Play hands it out.
using Feed = std::function<void(Mix::Unit const& unit, std::size_t index, std::int64_t number)>;
// Records with libavformat what `play` feeds.
void LavfRecord(Mix const& mix, base::IO& io, std::function<void(Feed const&)> const& play);

}  // namespace kestro::bench
