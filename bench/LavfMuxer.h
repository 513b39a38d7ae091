// Recording with libavformat, for comparison.
#pragma once

#include <cstdint>
#include <functional>

#include "Bench.h"
#include "Mix.h"
#include "Target.h"
#include "base/IO.h"

namespace kestro::bench {

// libavformat's AVI muxer as a contender.
Contender LavfMuxer(Mix const& mix, std::int64_t packets, Target const& target);

// Called for each packet, as by Mix::Play.
using Feed = std::function<void(Mix::Unit const& unit, std::size_t index, std::int64_t number)>;
// Records the packets from `play` with libavformat.
void LavfRecord(Mix const& mix, base::IO& io, std::function<void(Feed const&)> const& play);

}  // namespace kestro::bench
