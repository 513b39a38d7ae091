#include "media/SeriesName.h"

#include <algorithm>
#include <filesystem>

#include "cli/Text.h"

namespace kestro::tool {

namespace fs = std::filesystem;

static constexpr char kDigits[] = "0123456789";
static constexpr std::size_t kMaxDigits = 9;

static bool IsNumber(std::string const& text) {
  return !text.empty() && text.size() <= kMaxDigits &&
         text.find_first_not_of(kDigits) == std::string::npos;
}

static bool IsJpegName(std::string const& path) {
  std::string const extension = Extension(path);
  return extension == ".jpg" || extension == ".jpeg";
}

std::optional<SeriesName> SeriesName::Parse(std::string const& path) {
  std::error_code none;
  if (!IsJpegName(path) || path.find("://") != path.npos || fs::exists(path, none)) return {};
  SeriesName name;
  bool numbered = false;
  for (std::size_t i = 0; i < path.size(); ++i) {
    std::string& part = numbered ? name._end : name._begin;
    if (path[i] != '%') {
      part += path[i];
      continue;
    }
    if (path.compare(i, 2, "%%") == 0) {
      part += path[i++];
      continue;
    }
    std::size_t const end = path.find_first_not_of(kDigits, i + 1);
    std::string const width = path.substr(i + 1, end - i - 1);
    if (numbered || end == path.npos || path[end] != 'd' || (!width.empty() && !IsNumber(width)))
      return {};
    if (!width.empty()) name._width = static_cast<std::size_t>(std::stoi(width));
    numbered = true;
    i = end;
  }
  if (!numbered || name._width > kMaxDigits || name._end.find('/') != name._end.npos) return {};
  return name;
}

std::string SeriesName::Folder() const {
  fs::path const folder = fs::path(_begin).parent_path();
  return folder.empty() ? "." : folder.string();
}

std::string SeriesName::Path(std::uint32_t number) const {
  std::string text = std::to_string(number);
  if (text.size() < _width) text.insert(0, _width - text.size(), '0');
  return _begin + text + _end;
}

std::optional<std::uint32_t> SeriesName::NumberOf(std::string const& name) const {
  std::size_t const begin = fs::path(_begin).filename().string().size();
  if (name.size() <= begin + _end.size()) return {};
  std::string const digits = name.substr(begin, name.size() - begin - _end.size());
  if (!IsNumber(digits)) return {};
  auto const number = static_cast<std::uint32_t>(std::stoul(digits));
  if (fs::path(Path(number)).filename() != name) return {};
  return number;
}

static std::string Escaped(std::string const& text) {
  std::string escaped;
  for (char c : text) escaped += c == '%' ? "%%" : std::string(1, c);
  return escaped;
}

std::string SeriesPattern(std::vector<std::string> const& paths) {
  std::vector<std::string> pictures;
  std::copy_if(paths.begin(), paths.end(), std::back_inserter(pictures), IsJpegName);
  if (pictures.size() < 2) return "";
  // What is common to all names, without digits next to the part that differs.
  std::string const& first = pictures[0];
  std::size_t begin = first.size(), end = begin;
  for (std::string const& other : pictures) {
    auto const most = static_cast<std::ptrdiff_t>(std::min(first.size(), other.size()));
    auto const differs = std::mismatch(first.begin(), first.begin() + most, other.begin()).first;
    begin = std::min(begin, static_cast<std::size_t>(differs - first.begin()));
    auto const differsBack =
        std::mismatch(first.rbegin(), first.rbegin() + most, other.rbegin()).first;
    end = std::min(end, static_cast<std::size_t>(differsBack - first.rbegin()));
  }
  auto const isDigit = [](char c) { return c >= '0' && c <= '9'; };
  while (begin > 0 && isDigit(first[begin - 1])) --begin;
  while (end > 0 && isDigit(first[first.size() - end])) --end;
  bool sameWidth = true;
  for (std::string const& path : pictures) {
    if (path.size() <= begin + end || !IsNumber(path.substr(begin, path.size() - begin - end)))
      return "";
    sameWidth = sameWidth && path.size() == first.size();
  }
  std::size_t const width = first.size() - begin - end;
  return Escaped(first.substr(0, begin)) +
         (sameWidth && width > 1 ? "%0" + std::to_string(width) + "d" : "%d") +
         Escaped(first.substr(first.size() - end));
}

}  // namespace kestro::tool
