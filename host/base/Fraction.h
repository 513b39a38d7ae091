// Rational numbers, used for frame rates.
#pragma once

#include <string>

#include "base/Types.h"

namespace kestro::base {

// num/den as given: not reduced, and a zero denominator is kept for the user to reject.
struct KESTRO_API Fraction {
  int64 num = 0;
  int64 den = 1;

  Fraction() = default;
  Fraction(int64 n, int64 d) : num(n), den(d) {}

  static Fraction From(int64 num, int64 den) { return Fraction(num, den); }
  // Parses "25", "30000/1001" or "29.97"; returns 0/1 for anything else.
  static Fraction From(char const* text);
  // The same, but returns whether the text is valid. `value` is set only if it is.
  static bool Parse(char const* text, Fraction& value);

  // The integer quotient, or 0 if there is none.
  int64 Whole() const { return den == 0 || (den == -1 && num < -INT64_MAX) ? 0 : num / den; }
  bool Positive() const { return num > 0 && den > 0; }
  std::string Text() const;

  bool operator==(Fraction const& o) const { return num == o.num && den == o.den; }
  bool operator!=(Fraction const& o) const { return !(*this == o); }
};

}  // namespace kestro::base
