// The NAL units of H.264 and HEVC in Annex B form.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "base/Types.h"

namespace kestro::stream {

// The parameter sets that precede the first slice of an access unit, one after the other with their
// start codes. Empty where not every kind is there.
KESTRO_API std::vector<std::uint8_t> ParameterSets(bool hevc, std::uint8_t const* data,
                                                   std::size_t size);

}  // namespace kestro::stream
