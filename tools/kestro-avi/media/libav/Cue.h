// A text with its times.
#pragma once

#include <cstdint>
#include <string>

namespace kestro::tool {

struct Cue {
  std::int64_t time_ns = 0;
  std::int64_t end_ns = -1;  // negative: unknown
  std::string text;
};

}  // namespace kestro::tool
