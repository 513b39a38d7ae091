// Images that the periodic-sync muxer passes to its callback.
#pragma once

#include <cstddef>
#include <vector>

namespace kestro::crash {

// Writes the headers and the index of a sync to the file, as a repair does, and removes what was
// recorded after it. Does nothing where the image is none.
void ApplyImage(std::vector<unsigned char>& file, std::vector<unsigned char> const& image,
                std::size_t header);

}  // namespace kestro::crash
