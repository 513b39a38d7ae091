#include "avi/StartTime.h"

#include <algorithm>
#include <cstdio>

#include "avi/Text.h"

namespace kestro::avi {

static constexpr std::int64_t kMillisecond = 1000000, kSecond = 1000 * kMillisecond;
static constexpr std::int64_t kDay_s = 86400;

static constexpr std::string_view kStart = "; start ", kSet = "; clock set",
                                  kSinceBoot = "; clock since boot";
static constexpr std::size_t kUtcLength = 24;

// Days from 1970-01-01 to a date of the Gregorian calendar. Counts years from March on, so that a
// leap day is the last day of its year.
static std::int64_t DaysTo(int year, int month, int day) {
  int const years = month > 2 ? year : year - 1, months = month > 2 ? month - 3 : month + 9;
  return std::int64_t{365} * years + years / 4 - years / 100 + years / 400 +
         (153 * months + 2) / 5 + day - 1 - 719468;
}

static int DaysIn(int year, int month) {
  return static_cast<int>(month == 12 ? 31 : DaysTo(year, month + 1, 1) - DaysTo(year, month, 1));
}

std::string UtcText(std::int64_t time_ns) {
  std::int64_t const ms = (time_ns >= 0 ? time_ns : time_ns - kMillisecond + 1) / kMillisecond;
  std::int64_t days = ms / 1000 / kDay_s;
  if (days * kDay_s * 1000 > ms) --days;
  int year = static_cast<int>(1970 + days * 400 / 146097), month = 1;
  while (DaysTo(year, 1, 1) > days) --year;
  while (DaysTo(year + 1, 1, 1) <= days) ++year;
  while (month < 12 && DaysTo(year, month + 1, 1) <= days) ++month;
  auto const rest = static_cast<int>(ms - days * kDay_s * 1000);
  char text[80];
  std::snprintf(text, sizeof text, "%04d-%02d-%02dT%02d:%02d:%02d.%03dZ", year, month,
                static_cast<int>(days - DaysTo(year, month, 1)) + 1, rest / 3600000,
                rest / 60000 % 60, rest / 1000 % 60, rest % 1000);
  return text;
}

namespace {

// Reads a text from left to right. After a failure all reads fail.
class Scanner {
 public:
  explicit Scanner(std::string_view text) : _text(text) {}

  bool Good() const { return _good; }
  bool AtEnd() const { return _text.empty(); }
  bool Skip(std::string_view any) {  // one of these characters, if it comes next
    if (!_good || _text.empty() || any.find(_text[0]) == any.npos) return false;
    _text.remove_prefix(1);
    return true;
  }
  void Need(std::string_view any) { _good = Skip(any); }
  int Number(std::size_t digits, int least, int most) {
    int value = 0;
    for (std::size_t i = 0; i < digits; ++i) value = value * 10 + Digit();
    _good = _good && value >= least && value <= most;
    return value;
  }
  std::int64_t Fraction_ns() {  // digits beyond nanoseconds are dropped
    std::int64_t value = Digit() * kSecond / 10;
    for (std::int64_t unit = kSecond / 100; IsDigit(); unit /= 10) value += Digit() * unit;
    return value;
  }

 private:
  bool IsDigit() const { return _good && !_text.empty() && _text[0] >= '0' && _text[0] <= '9'; }
  int Digit() {
    _good = IsDigit();
    if (!_good) return 0;
    int const digit = _text[0] - '0';
    _text.remove_prefix(1);
    return digit;
  }

  std::string_view _text;
  bool _good = true;
};

}  // namespace

std::optional<IsoTime> IsoTime::Parse(std::string_view text) {
  Scanner scan(text);
  int const year = scan.Number(4, 1970, 2261);
  scan.Need("-");
  int const month = scan.Number(2, 1, 12);
  scan.Need("-");
  int const day = scan.Number(2, 1, scan.Good() ? DaysIn(year, month) : 31);
  scan.Need("Tt ");
  int const hour = scan.Number(2, 0, 23);
  scan.Need(":");
  std::int64_t second = hour * 3600 + scan.Number(2, 0, 59) * 60;
  std::int64_t fraction_ns = 0;
  if (scan.Skip(":")) {
    second += scan.Number(2, 0, 59);
    if (scan.Skip(".")) fraction_ns = scan.Fraction_ns();
  }
  IsoTime time;
  bool const east = scan.Skip("+"), west = !east && scan.Skip("-");
  time.zoned = east || west || scan.Skip("Zz");
  if (east || west) {
    int const hours = scan.Number(2, 0, 14);
    scan.Need(":");
    second += (east ? -60 : 60) * (hours * 60 + scan.Number(2, 0, 59));
  }
  if (!scan.Good() || !scan.AtEnd()) return std::nullopt;
  time.time_ns = (DaysTo(year, month, day) * kDay_s + second) * kSecond + fraction_ns;
  return time;
}

std::string StartTime::Text() const {
  return set ? UtcText(time_ns)
             : Seconds(std::max<std::int64_t>(0, time_ns) / kMillisecond) + " after boot";
}

static std::string Suffix(StartTime const& start) {
  std::string text(kStart);
  if (start.set) return text.append(UtcText(start.time_ns)).append(kSet);
  text += "+" + Seconds(std::max<std::int64_t>(0, start.time_ns) / kMillisecond);
  return text.append(kSinceBoot);
}

std::string Software::Compose() const {
  if (!start) return name;
  std::string text = name + Suffix(*start);
  text.resize(name.size() + kStart.size() + kUtcLength + kSet.size());
  return text;
}

// The start in a text such as "2026-11-22T14:56:37.123Z; clock set".
static std::optional<StartTime> ParseStart(std::string_view text) {
  if (auto const time = IsoTime::Parse(text.substr(0, text.find(';'))))
    return StartTime{time->time_ns, true};
  std::size_t const point = text.find('.');
  if (point == text.npos || point < 2 || point > 10) return std::nullopt;
  std::int64_t ms = 0;
  for (char const c : text.substr(1, point + 3))
    if (c >= '0' && c <= '9') ms = ms * 10 + (c - '0');
  return StartTime{ms * kMillisecond, false};
}

Software Software::Parse(std::string_view content) {
  std::string_view const text = content.substr(0, content.find('\0'));
  std::size_t const at = text.rfind(kStart);
  if (at == text.npos) return {std::string(text), std::nullopt};
  auto const start = ParseStart(text.substr(at + kStart.size()));
  // Nothing but what Compose writes counts.
  if (!start || Suffix(*start) != text.substr(at)) return {std::string(text), std::nullopt};
  return {std::string(text.substr(0, at)), start};
}

}  // namespace kestro::avi
