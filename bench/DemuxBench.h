// What playing back costs, beside plain reads and another demuxer.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "Bench.h"
#include "Recording.h"
#include "base/IO.h"

namespace kestro::bench {

using SharedRecording = std::shared_ptr<Recording>;
using NewIO = std::function<std::unique_ptr<base::IO>(std::string const& path)>;

// "demux/read", with so many packets, "demux/open" and "demux/seek".
std::vector<Case> DemuxCases(std::int64_t packets);

// "slow/open_preloaded" and "slow/play": a device that takes 20 ms for every read, by the clock on
// the wall; few repetitions.
std::vector<Case> SlowCases();

// The file of "demux/open", and the ways of opening it: what they count is what opens the file, up
// to where it can be read and sought in, and not what closes it again.
SharedRecording OpenRecording();
std::vector<Contender> Openers(SharedRecording const& file);

// libavformat's AVI demuxer as a contender: reading, opening, seeking to times in milliseconds.
Contender LavfReader(SharedRecording const& file);
Contender LavfOpener(SharedRecording const& file);
Contender LavfSeeker(SharedRecording const& file, std::vector<int> const& times);
// Opening through an IO, by the clock on the wall.
Contender LavfOpener(SharedRecording const& file, NewIO const& open);

}  // namespace kestro::bench
