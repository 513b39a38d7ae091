// The frame rates that inputs tell.
#pragma once

#include "base/Fraction.h"
#include "media/libav/Libav.h"

namespace kestro::tool {

// The rate that the container tells.
base::Fraction ContainerRate(AVFormatContext& format, AVStream& stream);

// The rate in the parameter sets of a key frame; 0/1 where there is none.
base::Fraction StreamRate(AVCodecParameters const& codec, AVPacket const& key);

}  // namespace kestro::tool
