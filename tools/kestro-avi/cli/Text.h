// Values as people write them.
#pragma once

#include <cstdint>
#include <string>

#include "avi/Text.h"

namespace kestro::tool {

using avi::ByteCount;
using avi::Quantity;
using avi::Seconds;

// "90", "1.5", "1:30", "1:02:03.5" to nanoseconds. Throws Error naming the option.
std::int64_t ParseTime_ns(std::string const& option, std::string const& text);

// "500000", "700M", "1.5G", with K, M and G as powers of 1024, to bytes. Throws Error naming the
// option.
std::uint64_t ParseSize(std::string const& option, std::string const& text);

}  // namespace kestro::tool
