// Checks JPEG files.
#pragma once

#include <cstddef>
#include <cstdint>

namespace kestro::tool {

struct JpegCheck {
  char const* fault = nullptr;  // null for a complete picture
  int width = 0, height = 0;
};

// Walks from marker to marker up to the end of the picture. It does not decode the coded data, so
// it does not find damage there: decoding takes milliseconds per picture, the walk microseconds.
JpegCheck CheckJpeg(std::uint8_t const* data, std::size_t size);

}  // namespace kestro::tool
