// Names of numbered files.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace kestro::avi {

// A pattern may have one number in its last part: %d or, for leading zeros, %04d. There, %% is a
// percent sign. NamePattern also knows %N and dates.
bool Numbered(std::string const& path);  // whether it has a number
std::string NumberedName(std::string const& pattern, std::uint64_t number);

// A piece of a pattern: text, or what stands for something else.
struct NamePart {
  enum Kind { kText, kNumber, kDate, kOther } kind;  // kOther: a % without a meaning
  std::string text;       // kText: with %% replaced; otherwise as in the pattern
  char letter = 0;        // kNumber: d or N; kDate: Y, m, H, M or S
  std::size_t width = 0;  // of a number with leading zeros
};
// Splits the name of a file, without its folder.
std::vector<NamePart> ParseName(std::string const& name);

}  // namespace kestro::avi
