#include "media/FrameRate.h"

#include <cmath>
#include <cstdio>
#include <numeric>

#include "cli/Errors.h"
#include "media/Scaled.h"
#include "recorder/TrackInfo.h"

namespace kestro::tool {

using base::Fraction;

Fraction ChooseRate(RateSources const& sources, std::string const& track) {
  bool const given = sources.option.Positive();
  Fraction const rate = given                          ? sources.option
                        : sources.container.Positive() ? sources.container
                                                       : sources.stream;
  if (!rate.Positive())
    throw Error(kUsage, track + ": the frame rate of the input is unknown; set it with --fps");
  if (rate.Whole() < 1 || rate.Whole() > kHighestRate)
    throw Error(given ? kUsage : kUnusable,
                track + ": a frame rate of " + rate.Text() + " cannot be recorded (1 to " +
                    std::to_string(kHighestRate) + "; --fps overrides it)");
  return rate;
}

static double Value(Fraction const& rate) {
  return static_cast<double>(rate.num) / static_cast<double>(rate.den);
}

// 30000/1001 for 2997/100, and the same for other multiples of 1000/1001; else the rate itself.
static Fraction ExactNtsc(Fraction const& rate) {
  double const ratio = Value(rate) * 1.001, whole = std::round(ratio);
  bool const near = whole >= 1 && std::abs(ratio - whole) < whole * 0.00001;
  return near ? Fraction(static_cast<base::int64>(whole) * 1000, 1001) : rate;
}

Fraction UsualRate(Fraction const& rate) {
  if (!rate.Positive()) return {};
  double const value = Value(rate), whole = std::round(value);
  bool const near = whole >= 1 && std::abs(value - whole) < whole * 0.0005;
  return near ? Fraction(static_cast<base::int64>(whole), 1) : ExactNtsc(rate);
}

Fraction StoredRate(Fraction const& rate) { return record::TrackInfo::StoredRate(rate); }

Fraction PlayedSpeed(Fraction const& rate) {
  if (!rate.Positive()) return {1, 1};
  base::int64 const num = rate.num, den = rate.den * StoredRate(rate).num;
  base::int64 const divisor = std::gcd(num, den);
  return {num / divisor, den / divisor};
}

// Recorded time per input time, minus 1.
static double Deviation(Fraction const& speed) { return Value(speed) - 1; }

bool Stretchable(Fraction const& speed) { return std::abs(Deviation(speed)) <= 0.005; }

std::string RateText(Fraction const& rate) {
  if (rate.den <= 1001) return rate.Text();
  char text[32];
  std::snprintf(text, sizeof text, "%.6g", Value(rate));
  return text;
}

std::string StoredRateText(Fraction const& rate) {
  if (!rate.Positive() || rate.num % rate.den == 0) return "";
  return RateText(rate) + " fps is stored as " + StoredRate(rate).Text() + " fps";
}

std::string DriftText(Fraction const& speed, char const* than) {
  double const off = Deviation(speed);
  char text[128];
  std::snprintf(text, sizeof text, "pictures play %.3g %% %s than %s, which is %.3g s per hour",
                std::fabs(1 / (1 + off) - 1) * 100, off < 0 ? "faster" : "slower", than,
                std::fabs(off) * 3600);
  return text;
}

bool SameRate(Fraction const& a, Fraction const& b) {
  auto const product = [](base::int64 x, base::int64 y) {  // the values have 32 bits
    return static_cast<base::uint64>(x) * static_cast<base::uint64>(y);
  };
  return product(a.num, b.den) == product(b.num, a.den);
}

std::string RatesDiffer(std::string const& track, Fraction const& rate, Fraction const& other) {
  return track + ": " + RateText(rate) + " fps, but another track has " + RateText(other) +
         " fps; a file has one frame rate (--fps sets it)";
}

Fraction ParseRate(std::string const& text) {
  Fraction rate;
  bool const good = Fraction::Parse(text.c_str(), rate) && rate.Positive();
  if (!good || rate.num > INT32_MAX || rate.den > INT32_MAX)
    throw Error(kUsage, "--fps: \"" + text + "\" is not a frame rate (25, 30000/1001, 29.97)");
  return ExactNtsc(rate);
}

std::int64_t FrameTime_ns(Fraction rate, std::int64_t frame) {
  return Scaled(frame, 1000000000 * rate.den, rate.num);
}

}  // namespace kestro::tool
