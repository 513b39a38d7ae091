// What the periodic-sync muxer hands over.
#pragma once

#include <cstddef>
#include <vector>

namespace kestro::crash {

// Puts headers and index of a sync where they belong, as a repair does. What was recorded after it
// goes; an image that cannot be one leaves the file as it is.
void ApplyImage(std::vector<unsigned char>& file, std::vector<unsigned char> const& image,
                std::size_t header);

}  // namespace kestro::crash
