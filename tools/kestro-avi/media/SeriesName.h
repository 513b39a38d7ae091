// Names of the files of a picture series.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace kestro::tool {

// A path of JPEG files with %d or %04d in its last part; %% is a percent sign. libavformat reads
// such patterns in the same way.
class SeriesName {
 public:
  // Empty for other paths, for addresses, and for an existing file of this name.
  static std::optional<SeriesName> Parse(std::string const& path);

  std::string Folder() const;
  std::string Path(std::uint32_t number) const;
  // The number of a file name without its folder; empty for the name of another file.
  std::optional<std::uint32_t> NumberOf(std::string const& name) const;

 private:
  std::string _begin, _end;  // before and after the number
  std::size_t _width = 0;
};

// The pattern for JPEG files that differ only in their numbers, as a shell lists them; empty for
// others.
std::string SeriesPattern(std::vector<std::string> const& paths);

}  // namespace kestro::tool
