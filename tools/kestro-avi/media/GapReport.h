// Describes gaps and overlaps in a track.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace kestro::tool {

class GapReport {
 public:
  // `remedy`: what was done about it, such as "filled with silence".
  void Add(std::int64_t time_ns, std::int64_t length_ns, std::string const& remedy);

  // One line for each gap, the first ones in full. `what`: such as "missing audio".
  std::vector<std::string> Lines(std::string const& what) const;

 private:
  static constexpr std::size_t kMost = 10;
  struct Gap {
    std::int64_t time_ns, length_ns;
    std::string remedy;
  };
  std::vector<Gap> _gaps;  // the first ones
  std::uint64_t _more = 0;
  std::int64_t _more_ns = 0;
};

}  // namespace kestro::tool
