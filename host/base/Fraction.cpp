#include "base/Fraction.h"

#include <cerrno>
#include <cstdlib>

namespace kestro::base {

namespace {
bool ParseWhole(char const*& text, int64& value) {
  if ((*text < '0' || *text > '9') && *text != '-') return false;
  char* end = nullptr;
  errno = 0;
  value = std::strtoll(text, &end, 10);
  bool const ok = errno == 0 && end != text;
  text = end;
  return ok;
}
}  // namespace

bool Fraction::Parse(char const* text, Fraction& value) {
  Fraction f;
  bool const negative = text != nullptr && *text == '-';  // num of "-0.5" is 0, without a sign
  if (text == nullptr || !ParseWhole(text, f.num)) return false;
  if (*text == '/') {
    if (!ParseWhole(++text, f.den)) return false;
  } else if (*text == '.') {
    // "29.97" is 2997/100. No frame rate needs more than nine decimals.
    for (++text; *text >= '0' && *text <= '9' && f.den < 1000000000; ++text, f.den *= 10)
      if (__builtin_mul_overflow(f.num, 10, &f.num) ||
          __builtin_add_overflow(f.num, negative ? '0' - *text : *text - '0', &f.num))
        return false;
  }
  if (*text != '\0') return false;
  value = f;
  return true;
}

Fraction Fraction::From(char const* text) {
  Fraction f;
  Parse(text, f);
  return f;
}

std::string Fraction::Text() const {
  return std::to_string(num) + (den == 1 ? "" : "/" + std::to_string(den));
}

}  // namespace kestro::base
