#include "cli/Escaped.h"

#include <cstdio>

namespace kestro::tool {

// The length of a colour sequence at the start of the text; 0 if there is none.
static std::size_t ColourLength(std::string_view text) {
  if (text.substr(0, 2) != "\033[") return 0;
  std::size_t const end = text.find_first_not_of("0123456789;", 2);
  return end != text.npos && text[end] == 'm' ? end + 1 : 0;
}

// The length of a control character at the start of the text; 0 for other characters. In UTF-8,
// U+0080 to U+009F have two bytes.
static std::size_t ControlLength(std::string_view text) {
  auto const byte = [text](std::size_t i) {
    return i < text.size() ? static_cast<unsigned char>(text[i]) : 0;
  };
  if (byte(0) == 0xC2 && byte(1) >= 0x80 && byte(1) < 0xA0) return 2;
  return byte(0) < 0x20 || byte(0) == 0x7F ? 1 : 0;
}

std::string Escaped(std::string_view text, bool page) {
  std::string out;
  while (!text.empty()) {
    std::size_t kept = page ? ColourLength(text) : 0;
    bool const layout = page && (text[0] == '\n' || text[0] == '\t');
    std::size_t const control = kept != 0 || layout ? 0 : ControlLength(text);
    if (kept == 0 && control == 0) kept = 1;
    out += text.substr(0, kept);
    for (char const c : text.substr(0, control)) {
      char escape[8];
      std::snprintf(escape, sizeof escape, "\\x%02x", static_cast<unsigned char>(c));
      out += c == '\n' ? "\\n" : c == '\t' ? "\\t" : escape;
    }
    text.remove_prefix(kept + control);
  }
  return out;
}

}  // namespace kestro::tool
