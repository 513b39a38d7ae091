#include "avi/NumberedName.h"

#include <algorithm>
#include <cstring>

namespace kestro::avi {

// The part that starts with the % at `at`.
static NamePart PartAt(std::string const& name, std::size_t at) {
  std::size_t const digits = at + 1, end = name.find_first_not_of("0123456789", digits);
  NamePart part{NamePart::kOther, "%"};
  if (end == std::string::npos) return part;
  bool const plain = end == digits, zeros = end == digits + 2 && name[digits] == '0';
  char const letter = name[end];
  if (plain && letter == '%') return {NamePart::kText, "%"};
  if ((letter == 'd' || letter == 'N') && (plain || zeros))
    part.kind = NamePart::kNumber;
  else if (plain && letter != '\0' && std::strchr("YmHMS", letter) != nullptr)
    part.kind = NamePart::kDate;
  else
    return part;
  part.text = name.substr(at, end + 1 - at);
  part.letter = letter;
  if (zeros) part.width = static_cast<std::size_t>(name[digits + 1] - '0');
  return part;
}

std::vector<NamePart> ParseName(std::string const& name) {
  std::vector<NamePart> parts;
  auto const addText = [&parts](std::string const& text) {
    if (!parts.empty() && parts.back().kind == NamePart::kText)
      parts.back().text += text;
    else if (!text.empty())
      parts.push_back({NamePart::kText, text});
  };
  for (std::size_t at = 0; at < name.size();) {
    std::size_t const percent = std::min(name.find('%', at), name.size());
    addText(name.substr(at, percent - at));
    if (percent == name.size()) break;
    NamePart part = PartAt(name, percent);
    at = percent + (part.kind == NamePart::kText ? 2 : part.text.size());
    if (part.kind == NamePart::kText)
      addText(part.text);
    else
      parts.push_back(std::move(part));
  }
  return parts;
}

static bool IsNumber(NamePart const& part) {
  return part.kind == NamePart::kNumber && part.letter == 'd';
}

static std::size_t NameStart(std::string const& path) {
  return path.rfind('/') + 1;  // npos + 1 is 0
}

bool Numbered(std::string const& path) {
  auto const parts = ParseName(path.substr(NameStart(path)));
  return std::count_if(parts.begin(), parts.end(), IsNumber) == 1;
}

std::string NumberedName(std::string const& pattern, std::uint64_t number) {
  std::string const digits = std::to_string(number);
  std::string name = pattern.substr(0, NameStart(pattern));
  for (NamePart const& part : ParseName(pattern.substr(name.size()))) {
    if (IsNumber(part) && digits.size() < part.width) name.append(part.width - digits.size(), '0');
    name += IsNumber(part) ? digits : part.text;
  }
  return name;
}

}  // namespace kestro::avi
