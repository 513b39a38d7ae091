#include "avi/NumberedName.h"

#include <optional>

namespace kestro::avi {

namespace {
struct Place {
  std::size_t begin, end, width;  // of the number in a pattern
};
}  // namespace

static std::optional<Place> Find(std::string const& path) {
  std::string const digits = "0123456789";
  std::size_t const begin = path.rfind('%'), folder = path.rfind('/');
  if (begin == std::string::npos || (folder != std::string::npos && folder > begin)) return {};
  std::size_t const end = path.find_first_not_of(digits, begin + 1);
  std::string const width = path.substr(begin + 1, end - begin - 1);
  if (end == std::string::npos || path[end] != 'd') return {};
  if (!width.empty() && (width.size() != 2 || width[0] != '0')) return {};
  return Place{begin, end + 1, width.empty() ? 0 : static_cast<std::size_t>(width[1] - '0')};
}

bool Numbered(std::string const& path) { return Find(path).has_value(); }

std::string NumberedName(std::string const& pattern, std::uint64_t number) {
  Place const place = *Find(pattern);
  std::string text = std::to_string(number);
  if (text.size() < place.width) text.insert(0, place.width - text.size(), '0');
  return pattern.substr(0, place.begin) + text + pattern.substr(place.end);
}

}  // namespace kestro::avi
