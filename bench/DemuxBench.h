// Measures playing, compared with plain reads and another demuxer.
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

// "demux/read", with this many packets, "demux/open" and "demux/seek".
std::vector<Case> DemuxCases(std::int64_t packets);

// "slow/open_preloaded" and "slow/play": a device that takes 20 ms for each read; wall-clock time,
// few repetitions.
std::vector<Case> SlowCases();

// The file of "demux/open", and the contenders that open it. They measure opening until the file
// can be read and seeked in, without closing it.
SharedRecording OpenRecording();
std::vector<Contender> Openers(SharedRecording const& file);

// libavformat's AVI demuxer as a contender: reading, opening, seeking to times in milliseconds.
Contender LavfReader(SharedRecording const& file);
Contender LavfOpener(SharedRecording const& file);
Contender LavfSeeker(SharedRecording const& file, std::vector<int> const& times);
// Opening through an IO, in wall-clock time.
Contender LavfOpener(SharedRecording const& file, NewIO const& open);

}  // namespace kestro::bench
