// Values as people write and read them.
#pragma once

#include <cstdint>
#include <string>

namespace kestro::tool {

// "90", "1.5", "1:30", "1:02:03.5" to nanoseconds. Throws Error naming the option.
std::int64_t ParseTime_ns(std::string const& option, std::string const& text);

// "500000", "700M", "1.5G", with K, M and G as powers of 1024, to bytes. Throws Error naming the
// option.
std::uint64_t ParseSize(std::string const& option, std::string const& text);

std::string Seconds(std::int64_t ms);                             // "12.345 s"
std::string ByteCount(std::uint64_t bytes);                       // "1.5 MB"
std::string Quantity(std::uint64_t n, std::string const& thing);  // "1 packet", "2 packets"

}  // namespace kestro::tool
