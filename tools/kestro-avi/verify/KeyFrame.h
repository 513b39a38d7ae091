// Whether coded data is a key frame, from its first bytes.
#pragma once

#include <cstddef>
#include <string>

namespace kestro::tool {

enum class Picture {
  kKey,      // decoding can begin here
  kOpen,     // only intra coded, or a recovery point: a writer may count it as either
  kOther,    // needs earlier ones
  kUnknown,  // not a stream that can be told, or no slice among these bytes
};

// Of "h264" and "hevc", with start codes.
Picture PictureKind(std::string const& codec, unsigned char const* data, std::size_t size);

}  // namespace kestro::tool
