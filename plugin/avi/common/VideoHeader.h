// The headers of video streams.
#pragma once

#include "common/ListChunks.h"

namespace kestro::plugin::avi {

// Makes a stream list with a stream header and a video format; the caller owns it. `rate` is in
// whole frames per second, width and height are pixels of the stored frame. Null for a rate that
// the header cannot hold.
IList* NewVideoStrl(char const* handler, int64 rate, int width, int height);

}  // namespace kestro::plugin::avi
