// Checks the times of a container's packets.
#pragma once

#include "media/libav/Libav.h"

namespace kestro::tool {

// Removes times that cannot be right, so that sums of times do not overflow: those of damaged
// containers may be of any size.
void DropWildTimes(AVPacket& packet, AVRational timeBase);

}  // namespace kestro::tool
