// Names of numbered files.
#pragma once

#include <cstdint>
#include <string>

namespace kestro::avi {

// A pattern has %d or, for leading zeros, %04d in its last part.
bool Numbered(std::string const& path);  // whether a path is a pattern
std::string NumberedName(std::string const& pattern, std::uint64_t number);

}  // namespace kestro::avi
