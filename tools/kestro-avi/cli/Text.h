// Reads values that people write.
#pragma once

#include <cstdint>
#include <string>

#include "avi/Text.h"

namespace kestro::tool {

using avi::ByteCount;
using avi::Quantity;
using avi::Seconds;
inline std::string Seconds_ns(std::int64_t time_ns) { return Seconds(time_ns / 1000000); }

// Converts "90", "1.5", "1:30" or "1:02:03.5" to nanoseconds. Throws an Error that names the
// option.
std::int64_t ParseTime_ns(std::string const& option, std::string const& text);

// Converts "500000", "700M" or "1.5G" to bytes; K, M and G are powers of 1024. Throws an Error that
// names the option.
std::uint64_t ParseSize(std::string const& option, std::string const& text);

// The extension of a file name in lower case, with its dot; empty for none.
std::string Extension(std::string const& path);

}  // namespace kestro::tool
