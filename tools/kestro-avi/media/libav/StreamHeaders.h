// What a container's header says about its streams.
#pragma once

#include "media/libav/Libav.h"

namespace kestro::tool {

// Whether the header has all parameters of all streams. Otherwise libavformat decodes some frames
// to find them, which can take longer than recording a minute. It has them for PCM, and for H.264
// whose parameter sets give the order of frames, in a container that gives the frame rate and the
// length. Sets the delay of video, which is otherwise found by decoding.
bool HeadersSuffice(AVFormatContext& format);

}  // namespace kestro::tool
