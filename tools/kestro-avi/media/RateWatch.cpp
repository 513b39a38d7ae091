#include "media/RateWatch.h"

#include <cmath>

#include "media/FrameRate.h"

namespace kestro::tool {

static constexpr std::size_t kIntervals = 25;

void RateWatch::Add(std::int64_t time_ns) {
  _times_ns.push_back(time_ns);
  if (_times_ns.size() > kIntervals + 1) _times_ns.pop_front();
}

base::Fraction RateWatch::Other(base::Fraction const& rate) const {
  if (_times_ns.size() <= kIntervals) return {};
  std::int64_t const all_ns = _times_ns.back() - _times_ns.front();
  auto const mean_ns = static_cast<double>(all_ns) / kIntervals;
  for (std::size_t i = 1; i <= kIntervals; ++i) {
    auto const interval_ns = static_cast<double>(_times_ns[i] - _times_ns[i - 1]);
    if (std::abs(interval_ns - mean_ns) * 4 > mean_ns) return {};
  }
  double const measured = 1e9 / mean_ns,
               known = static_cast<double>(rate.num) / static_cast<double>(rate.den);
  if (!(measured >= 1 && measured <= kHighestRate) || std::abs(measured - known) * 10 <= known)
    return {};
  // Sources have whole rates, and clocks that are not exact.
  double const whole = std::round(measured);
  if (std::abs(measured - whole) * 100 <= whole) return {std::llround(whole), 1};
  return UsualRate({std::llround(measured * 10000), 10000});
}

}  // namespace kestro::tool
