// Finds frames of open groups of pictures.
#pragma once

#include <cstdint>
#include <optional>

#include "stream/NalUnits.h"

namespace kestro::tool {

// In an open group, frames after the key frame are shown before it and refer to the group before.
// They cannot be decoded in a recording or file that starts with this key frame.
class OpenGroups {
 public:
  // Without a codec, all frames are key frames.
  explicit OpenGroups(std::optional<stream::NalCodec> codec) : _codec(codec) {}

  // Takes a track's frames in file order. Returns whether the frame is such a leading one.
  bool Leads(std::uint8_t const* frame, std::size_t size, bool key, std::int64_t time_ns);

 private:
  std::optional<stream::NalCodec> const _codec;
  std::int64_t _key_ns = INT64_MIN;
  bool _open = false;  // the last key frame may have leading frames
};

}  // namespace kestro::tool
