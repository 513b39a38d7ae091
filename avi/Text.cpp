#include "avi/Text.h"

#include <cstdio>
#include <iterator>

namespace kestro::avi {

std::string Seconds(std::int64_t ms) {
  char text[48];
  std::snprintf(text, sizeof text, "%lld.%03lld s", static_cast<long long>(ms / 1000),
                static_cast<long long>(ms % 1000));
  return text;
}

std::string ByteCount(std::uint64_t bytes) {
  char const* const units[] = {"bytes", "kB", "MB", "GB", "TB"};
  double value = static_cast<double>(bytes);
  std::size_t unit = 0;
  for (; value >= 1000 && unit + 1 < std::size(units); ++unit) value /= 1000;
  char text[48];
  std::snprintf(text, sizeof text, unit == 0 ? "%.0f %s" : "%.1f %s", value, units[unit]);
  return text;
}

std::string Quantity(std::uint64_t n, std::string const& thing) {
  return std::to_string(n) + " " + thing + (n == 1 ? "" : "s");
}

}  // namespace kestro::avi
