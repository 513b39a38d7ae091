// Detects key frames in the first bytes of coded data.
#pragma once

#include <cstddef>
#include <string>

namespace kestro::tool {

enum class Picture {
  kKey,      // decoding can start here
  kOpen,     // intra coded or a recovery point: writers may or may not call it a key frame
  kOther,    // depends on earlier pictures
  kUnknown,  // unsupported codec, or no slice in these bytes
};

// `codec`: "h264" or "hevc"; the data has start codes.
Picture PictureKind(std::string const& codec, unsigned char const* data, std::size_t size);

// Whether a frame is a key frame. Index flags alone are not reliable: some writers set them for
// every frame or for none.
inline bool IsKeyFrame(Picture kind, bool flagged) {
  return kind == Picture::kKey || (flagged && kind != Picture::kOther);
}

}  // namespace kestro::tool
