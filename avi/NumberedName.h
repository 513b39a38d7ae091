// Names of numbered files.
#pragma once

#include <cstdint>
#include <string>

namespace kestro::avi {

// A pattern may have one number in its last part: %d or, for leading zeros, %04d. There, %% is a
// percent sign.
bool Numbered(std::string const& path);   // whether it has a number
bool IsPattern(std::string const& path);  // whether every % in its last part has such a meaning
std::string NumberedName(std::string const& pattern, std::uint64_t number);

}  // namespace kestro::avi
