#include "cli/Text.h"

#include <cctype>
#include <cmath>
#include <filesystem>

#include "cli/Errors.h"

namespace kestro::tool {

std::int64_t ParseTime_ns(std::string const& option, std::string const& text) {
  constexpr double kLongest = 1e9;  // seconds
  double total = 0;
  std::size_t at = 0;
  bool good = !text.empty();
  for (int fields = 0; good; ++fields) {
    std::size_t end = text.find(':', at);
    bool const last = end == std::string::npos;
    if (last) end = text.size();
    std::string const field = text.substr(at, end - at);
    good = fields < 3 && !field.empty() && field.size() < 20 &&
           field.find_first_not_of(last ? "0123456789." : "0123456789") == std::string::npos &&
           field.find('.') == field.rfind('.') && field != ".";
    if (good) total = total * 60 + std::stod(field);
    if (last) break;
    at = end + 1;
  }
  if (!good || total > kLongest)
    throw Error(kUsage, option + ": \"" + text + "\" is not a time (seconds or [h:]m:s)");
  return std::llround(total * 1e9);
}

std::uint64_t ParseSize(std::string const& option, std::string const& text) {
  constexpr double kLargest = 1ull << 62;
  std::string const units = "KMG";
  std::size_t const end = text.find_first_not_of("0123456789.");
  std::string const number = text.substr(0, end), unit = end == text.npos ? "" : text.substr(end);
  char const letter = unit.empty() ? '\0' : static_cast<char>(std::toupper(unit[0]));
  std::size_t const power = unit.empty() ? 0 : units.find(letter) + 1;
  bool const good = unit.size() < 2 && (unit.empty() || power != 0) && !number.empty() &&
                    number.size() < 20 && number != "." && number.find('.') == number.rfind('.');
  double const bytes = good ? std::ldexp(std::stod(number), static_cast<int>(10 * power)) : -1;
  if (bytes < 0 || bytes > kLargest)
    throw Error(kUsage, option + ": \"" + text + "\" is not a size (bytes, or with K, M or G)");
  return static_cast<std::uint64_t>(bytes);
}

std::string Extension(std::string const& path) {
  std::string extension = std::filesystem::path(path).extension();
  for (char& c : extension)
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c + 'a' - 'A');
  return extension;
}

}  // namespace kestro::tool
