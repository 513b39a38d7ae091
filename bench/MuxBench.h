// What recording costs, beside a plain copy and another muxer.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "Bench.h"
#include "Mix.h"

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

}  // namespace kestro::bench
