// What a container's header says about its streams.
#pragma once

#include "media/libav/Libav.h"

namespace kestro::tool {

// Whether the header gives all parameters of all streams, so that no frames need to be decoded to
// find them, which takes longer than to record some seconds. Sets the delay of video, which
// decoding would find. True only for H.264 whose parameter sets say how frames are reordered, PCM,
// and containers with the rate of frames and the length.
bool HeadersSuffice(AVFormatContext& format);

}  // namespace kestro::tool
