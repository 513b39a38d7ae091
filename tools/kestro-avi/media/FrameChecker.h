// The interface of decoders that look for damage.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "base/Types.h"

namespace kestro::tool {

// Takes the frames of one video track in file order, in Annex B form.
class KESTRO_API FrameChecker {
 public:
  virtual ~FrameChecker() = default;
  // Decodes a frame. Returns the numbers of the frames that turned out to be damaged, counted from
  // 0: this one, or earlier ones that are shown only now.
  virtual std::vector<std::uint64_t> Check(std::uint8_t const* data, std::size_t size) = 0;
  // The same for the frames that are still to be shown. Call this last.
  virtual std::vector<std::uint64_t> Finish() = 0;
};

}  // namespace kestro::tool
