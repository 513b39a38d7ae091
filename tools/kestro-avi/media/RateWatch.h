// Notices when the frame rate of a live source changes.
#pragma once

#include <cstdint>
#include <deque>

#include "base/Fraction.h"

namespace kestro::tool {

// Measures the rate of the last frames, by their times in decoding order.
class RateWatch {
 public:
  void Add(std::int64_t time_ns);
  // The rate, if it is another one than this by more than a tenth; 0/1 if it is not, or is uneven.
  base::Fraction Other(base::Fraction const& rate) const;

 private:
  std::deque<std::int64_t> _times_ns;
};

}  // namespace kestro::tool
