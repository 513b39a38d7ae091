// Reads the frame rates of inputs.
#pragma once

#include "base/Fraction.h"
#include "media/libav/Libav.h"

namespace kestro::tool {

// The rate from the container.
base::Fraction ContainerRate(AVFormatContext& format, AVStream& stream);

// The rate from the parameter sets of a key frame; 0/1 if there is none.
base::Fraction StreamRate(AVCodecParameters const& codec, AVPacket const& key);

}  // namespace kestro::tool
