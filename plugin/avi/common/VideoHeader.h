// The headers that all video streams have.
#pragma once

#include "common/ListChunks.h"

namespace kestro::plugin::avi {

// A stream header and a video format under a new stream list, which is the caller's. `rate` is in
// whole frames a second, width and height in pixels of the stored frame. Null for a rate that the
// header cannot hold.
IList* NewVideoStrl(char const* handler, int64 rate, int width, int height);

}  // namespace kestro::plugin::avi
