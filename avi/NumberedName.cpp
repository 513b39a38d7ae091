#include "avi/NumberedName.h"

namespace kestro::avi {

namespace {

// The parts of the file name that have a special meaning.
struct Part {
  enum Kind { kNumber, kPercent, kOther } kind;  // kOther: a single %
  std::size_t begin, end;
  std::size_t width = 0;  // of a number
};

// Finds the next part at or after `from`. Returns false if there is none.
bool FindPart(std::string const& path, std::size_t from, Part& part) {
  std::size_t const folder = path.rfind('/') + 1;  // npos + 1 is 0
  std::size_t const begin = path.find('%', from < folder ? folder : from);
  if (begin == std::string::npos) return false;
  part = {Part::kOther, begin, begin + 1};
  std::size_t const digits = begin + 1, end = path.find_first_not_of("0123456789", digits);
  if (end == std::string::npos) return true;
  bool const zeros = end == digits + 2 && path[digits] == '0';
  if (path[end] == 'd' && (end == digits || zeros))
    part = {Part::kNumber, begin, end + 1,
            zeros ? static_cast<std::size_t>(path[digits + 1] - '0') : 0};
  else if (path[digits] == '%')
    part = {Part::kPercent, begin, digits + 1};
  return true;
}

// The number of parts of a kind.
int Count(std::string const& path, Part::Kind kind) {
  int count = 0;
  Part part{};
  while (FindPart(path, part.end, part)) count += part.kind == kind;
  return count;
}

}  // namespace

bool Numbered(std::string const& path) { return Count(path, Part::kNumber) == 1; }

bool IsPattern(std::string const& path) {
  return Count(path, Part::kNumber) <= 1 && Count(path, Part::kOther) == 0;
}

std::string NumberedName(std::string const& pattern, std::uint64_t number) {
  std::string name, digits = std::to_string(number);
  std::size_t copied = 0;
  Part part{};
  while (FindPart(pattern, part.end, part)) {
    name += pattern.substr(copied, part.begin - copied);
    if (part.kind == Part::kNumber && digits.size() < part.width)
      digits.insert(0, part.width - digits.size(), '0');
    name += part.kind == Part::kNumber ? digits : "%";
    copied = part.end;
  }
  return name + pattern.substr(copied);
}

}  // namespace kestro::avi
