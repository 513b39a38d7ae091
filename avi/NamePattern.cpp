#include "avi/NamePattern.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <map>

namespace kestro::avi {

namespace {
struct Field {
  std::size_t digits;
  int least, most;
  int std::tm::*member;
  int offset;  // of the number in the name from the member
};
std::map<char, Field> const kFields = {
    {'Y', {4, 1900, 9999, &std::tm::tm_year, 1900}}, {'m', {2, 1, 12, &std::tm::tm_mon, 1}},
    {'d', {2, 1, 31, &std::tm::tm_mday, 0}},         {'H', {2, 0, 23, &std::tm::tm_hour, 0}},
    {'M', {2, 0, 59, &std::tm::tm_min, 0}},          {'S', {2, 0, 60, &std::tm::tm_sec, 0}},
};

bool AllDigits(std::string_view text) {
  return std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
}

std::uint64_t Value(std::string_view digits) {
  std::uint64_t value = 0;
  for (char const digit : digits) value = value * 10 + static_cast<std::uint64_t>(digit - '0');
  return value;
}
}  // namespace

NamePattern::NamePattern(std::string const& name) : _parts(ParseName(name)) {
  auto const count = [this](auto is) { return std::count_if(_parts.begin(), _parts.end(), is); };
  auto const isNumber = [](NamePart const& part) { return part.kind == NamePart::kNumber; };
  _dated = count([](NamePart const& part) { return part.kind == NamePart::kDate; }) != 0;
  for (NamePart& part : _parts) {
    bool const day = _dated && part.letter == 'd';
    if (day) part.kind = part.text == "%d" ? NamePart::kDate : NamePart::kOther;
  }
  _valid = count(isNumber) <= 1 &&
           count([](NamePart const& part) { return part.kind == NamePart::kOther; }) == 0;
  if (!_valid) return;
  if (count(isNumber) == 0) {
    _numbered = _dated;
    if (!_dated)
      for (NamePart const& part : _parts) _first += part.text;
    std::filesystem::path const path(name);
    _parts = ParseName(path.stem().string() + "-%05N" + path.extension().string());
    for (NamePart& part : _parts)
      if (part.letter == 'd') part.kind = NamePart::kDate;
  }
  for (NamePart const& part : _parts)
    _fixed += part.kind == NamePart::kText   ? part.text.size()
              : part.kind == NamePart::kDate ? kFields.at(part.letter).digits
                                             : 0;
}

std::string NamePattern::Format(std::uint64_t number, std::tm const& start) const {
  if (number == 1 && !_first.empty()) return _first;
  std::string name;
  auto const add = [&name](std::uint64_t value, std::size_t width) {
    std::string const digits = std::to_string(value);
    if (digits.size() < width) name.append(width - digits.size(), '0');
    name += digits;
  };
  for (NamePart const& part : _parts) {
    if (part.kind == NamePart::kText) name += part.text;
    if (part.kind == NamePart::kNumber) add(number, part.width);
    if (part.kind != NamePart::kDate) continue;
    Field const& field = kFields.at(part.letter);
    int const value = std::clamp(start.*field.member + field.offset, field.least, field.most);
    add(static_cast<std::uint64_t>(value), field.digits);
  }
  return name;
}

std::optional<std::uint64_t> NamePattern::Match(std::string_view name) const {
  if (!_first.empty() && name == _first) return 1;
  if (name.size() <= _fixed) return std::nullopt;
  std::size_t const digits = name.size() - _fixed;
  std::optional<std::uint64_t> number;
  for (NamePart const& part : _parts) {
    bool const date = part.kind == NamePart::kDate;
    auto const piece = name.substr(0, part.kind == NamePart::kText ? part.text.size()
                                      : date                       ? kFields.at(part.letter).digits
                                                                   : digits);
    name.remove_prefix(piece.size());
    if (part.kind == NamePart::kText) {
      if (piece != part.text) return std::nullopt;
      continue;
    }
    if (!AllDigits(piece)) return std::nullopt;
    if (date) {
      Field const& field = kFields.at(part.letter);
      auto const value = static_cast<int>(Value(piece));
      if (value < field.least || value > field.most) return std::nullopt;
    } else if (digits < part.width || digits > 18 || (digits > part.width && piece[0] == '0')) {
      return std::nullopt;
    } else {
      number = Value(piece);
    }
  }
  bool const possible = number && *number >= (_first.empty() ? 1U : 2U);
  return possible ? number : std::nullopt;
}

// Tries the smallest numbers, and one of each length.
bool NamePattern::Overlaps(NamePattern const& other, std::tm const& now) const {
  auto const share = [&](std::uint64_t number) {
    return Match(other.Format(number, now)) || other.Match(Format(number, now));
  };
  bool found = share(1) || share(2);
  for (std::uint64_t number = 9; number <= kLargest && !found; number = number * 10 + 9)
    found = share(number);
  return found;
}

}  // namespace kestro::avi
