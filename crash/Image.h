// Images that the periodic-sync muxer passes to its callback.
#pragma once

#include <algorithm>
#include <vector>

#include "base/LittleEndian.h"

namespace kestro::crash {

// Writes the headers and the index of a sync to the file, as a repair does, and removes what was
// recorded after it. Does nothing where the image is none.
inline void ApplyImage(std::vector<unsigned char>& file, std::vector<unsigned char> const& image,
                       std::size_t header) {
  if (image.size() < header || header < 12) return;
  auto const* const bytes = image.data();
  std::size_t const end = std::size_t(base::Load32(bytes + 4)) + 8;  // with the index
  std::size_t const index = image.size() - header;
  constexpr std::size_t kLargest = 16 << 20;  // of the recordings here
  if (end < header + index || end > kLargest) return;
  file.resize(end);
  std::copy_n(bytes, header, file.begin());
  std::copy_n(bytes + header, index, file.end() - static_cast<std::ptrdiff_t>(index));
}

}  // namespace kestro::crash
