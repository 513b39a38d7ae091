// What coded frames say of themselves.
#pragma once

#include <cstdint>

#include "base/Types.h"
#include "media/AnnexB.h"

namespace kestro::tool {

// Looks at the frames of one track, in the order of the file.
class KESTRO_API FrameParser {
 public:
  struct Frame {
    std::int32_t place;  // in the order of showing, within its period
    bool key;            // begins a period: what comes before is shown before
  };

  virtual ~FrameParser() = default;
  virtual Frame Parse(std::uint8_t const* data, std::size_t size) = 0;
  // Those in a key frame; empty where it has none.
  virtual Bytes ParameterSets(std::uint8_t const* data, std::size_t size) = 0;
};

}  // namespace kestro::tool
