// What playing back costs, beside plain reads and another demuxer.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "Bench.h"
#include "Recording.h"

namespace kestro::bench {

using SharedRecording = std::shared_ptr<Recording>;

// "demux/read", with so many packets, "demux/open" and "demux/seek".
std::vector<Case> DemuxCases(std::int64_t packets);

// The file of "demux/open", and the ways of opening it: what they count is what opens the file, up
// to where it can be read and sought in, and not what closes it again.
SharedRecording OpenRecording();
std::vector<Contender> Openers(SharedRecording const& file);

// libavformat's AVI demuxer as a contender: reading, opening, seeking to times in milliseconds.
Contender LavfReader(SharedRecording const& file);
Contender LavfOpener(SharedRecording const& file);
Contender LavfSeeker(SharedRecording const& file, std::vector<int> const& times);

}  // namespace kestro::bench
