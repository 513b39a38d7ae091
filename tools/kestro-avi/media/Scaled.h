// Multiplies whole numbers by a ratio.
#pragma once

#include <cstdint>

namespace kestro::tool {

enum class Rounding { kNearest, kTowardsZero };

// value * num / den; INT64_MIN for an invalid ratio and on overflow.
constexpr std::int64_t Scaled(std::int64_t value, std::int64_t num, std::int64_t den,
                              Rounding rounding = Rounding::kNearest) {
  if (num < 0 || den <= 0) return INT64_MIN;
  __int128 const product = static_cast<__int128>(value) * num;
  std::int64_t const half = rounding == Rounding::kNearest ? den / 2 : 0;
  __int128 const scaled = product < 0 ? -((half - product) / den) : (product + half) / den;
  bool const fits = scaled <= INT64_MAX && scaled >= -INT64_MAX;
  return fits ? static_cast<std::int64_t>(scaled) : INT64_MIN;
}

}  // namespace kestro::tool
