// Multiplies whole numbers by a ratio.
#pragma once

#include <cstdint>

namespace kestro::tool {

enum class Rounding { kNearest, kTowardsZero };

// value * num / den; INT64_MIN for an invalid ratio and on overflow.
constexpr std::int64_t Scaled(std::int64_t value, std::int64_t num, std::int64_t den,
                              Rounding rounding = Rounding::kNearest) {
  if (num < 0 || den <= 0) return INT64_MIN;
  auto const amount = value < 0 ? -static_cast<std::uint64_t>(value) : std::uint64_t(value);
  auto const by = static_cast<std::uint64_t>(num), divisor = static_cast<std::uint64_t>(den);
  std::uint64_t const half = rounding == Rounding::kNearest ? divisor / 2 : 0;
  std::uint64_t scaled = 0, rest = 0;
  if (std::uint64_t product = 0; !__builtin_mul_overflow(amount, by, &product) &&
                                 !__builtin_add_overflow(product, half, &product)) {
    scaled = product / divisor;
  } else {  // 32-bit machines have no larger integers: multiply bit by bit
    for (int bit = 62; bit >= 0; --bit) {
      if (scaled > INT64_MAX / 2) return INT64_MIN;
      bool const set = (by >> bit & 1) != 0;
      scaled *= 2, rest *= 2;
      if (rest >= divisor) rest -= divisor, ++scaled;
      if (set) scaled += amount / divisor, rest += amount % divisor;
      if (rest >= divisor) rest -= divisor, ++scaled;
    }
    if (rest + half >= divisor) ++scaled;
  }
  if (scaled > INT64_MAX) return INT64_MIN;
  return value < 0 ? -static_cast<std::int64_t>(scaled) : static_cast<std::int64_t>(scaled);
}

}  // namespace kestro::tool
