// Cuts audio at a time.
#pragma once

#include "base/Reference.h"
#include "recorder/TrackInfo.h"
#include "stream/Packet.h"

namespace kestro::record {

// Cuts a packet that spans a time in two: returns the part before the time and leaves the rest in
// `packet`. Returns null when there is nothing to cut.
base::Ref<stream::Packet> CutAudio(TrackInfo const& info, stream::Packet& packet,
                                   std::int64_t time_ns);

}  // namespace kestro::record
