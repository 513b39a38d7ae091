// Parses coded frames.
#pragma once

#include <cstdint>

#include "base/Types.h"
#include "media/AnnexB.h"

namespace kestro::tool {

// Parses the frames of one track in file order.
class KESTRO_API FrameParser {
 public:
  struct Frame {
    std::int32_t place;  // when it is shown, within its period
    bool key;            // starts a period: all earlier frames are shown before it
  };

  virtual ~FrameParser() = default;
  virtual Frame Parse(std::uint8_t const* data, std::size_t size) = 0;
  // The parameter sets in a key frame; empty if it has none.
  virtual Bytes ParameterSets(std::uint8_t const* data, std::size_t size) = 0;
};

}  // namespace kestro::tool
