#include "media/GapReport.h"

#include "cli/Text.h"

namespace kestro::tool {

void GapReport::Add(std::int64_t time_ns, std::int64_t length_ns, std::string const& remedy) {
  if (_gaps.size() < kMost) {
    _gaps.push_back({time_ns, length_ns, remedy});
    return;
  }
  ++_more;
  _more_ns += length_ns;
}

std::vector<std::string> GapReport::Lines(std::string const& what) const {
  std::vector<std::string> lines;
  for (Gap const& gap : _gaps)
    lines.push_back(Seconds_ns(gap.length_ns) + " of " + what + " at " + Seconds_ns(gap.time_ns) +
                    "; " + gap.remedy);
  if (_more != 0)
    lines.push_back(Seconds_ns(_more_ns) + " more of " + what + " in " + Quantity(_more, "place"));
  return lines;
}

}  // namespace kestro::tool
