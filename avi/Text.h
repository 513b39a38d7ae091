// Formats values for people.
#pragma once

#include <cstdint>
#include <string>

namespace kestro::avi {

std::string Seconds(std::int64_t ms);                             // "12.345 s"
std::string ByteCount(std::uint64_t bytes);                       // "1.5 MB"
std::string Quantity(std::uint64_t n, std::string const& thing);  // "1 packet", "2 packets"

}  // namespace kestro::avi
