#include "media/FrameClock.h"

#include <algorithm>

#include "media/FrameRate.h"
#include "media/Scaled.h"

namespace kestro::tool {

static constexpr std::size_t kRecent = 500;
// Whether the rate varies is decided with this many intervals, or this much time after a gap.
static constexpr std::size_t kEnough = 100;
static constexpr std::int64_t kLongest_ns = 4000000000;
static constexpr std::int64_t kTolerance_ns = 10000000;

FrameClock::FrameClock(base::Fraction rate, base::Fraction speed, std::size_t depth)
    : _rate(rate),
      _speed(speed),
      _depth(depth),
      _frame_ns(FrameTime_ns(rate, 1)),
      _finder(std::min(kTolerance_ns, _frame_ns * 9 / 20)) {}  // a missing frame is a step

void FrameClock::Add(std::int64_t time_ns) {
  _sorted.push(time_ns);
  if (_sorted.size() <= _depth) return;
  Show(_sorted.top());
  _sorted.pop();
}

void FrameClock::End() {
  for (; !_sorted.empty(); _sorted.pop()) Show(_sorted.top());
  _ended = true;
  _finder.End();
}

void FrameClock::CountInterval(std::int64_t interval_ns) {
  bool const uneven = std::abs(interval_ns - _frame_ns) * 2 > _frame_ns;
  _recent.push_back(uneven);
  _uneven += uneven;
  ++_all;
  _allUneven += uneven;
  if (_recent.size() <= kRecent) return;
  _uneven -= _recent.front();
  _recent.pop_front();
}

void FrameClock::Show(std::int64_t time_ns) {
  std::int64_t const scaled_ns = Scaled(time_ns, _speed.num, _speed.den);
  if (_count == 0) _last_ns = scaled_ns;
  std::int64_t const interval_ns = scaled_ns - _last_ns;
  if (_count > 0) CountInterval(interval_ns);
  std::int64_t const off_ns = scaled_ns - FrameTime_ns(_rate, _count);
  _finder.Add(scaled_ns, off_ns);
  _shown.push_back({time_ns, off_ns, _count > 0 && interval_ns * 2 > _frame_ns * 3});
  _last_ns = scaled_ns;
  ++_count;
}

bool FrameClock::Ready() {
  if (!_finder.Ready()) return false;
  return !_shown.front().late || !_finder.Steps() || _ended || _recent.size() >= kEnough ||
         _shown.back().time_ns - _shown.front().time_ns >= kLongest_ns;
}

FrameClock::Frame FrameClock::Take() {
  Shown const shown = _shown.front();
  bool const gap = shown.late && _finder.Steps() && !Varies();
  Frame const frame{shown.time_ns, _finder.Level(), gap};
  _finder.Pop();
  _shown.pop_front();
  return frame;
}

}  // namespace kestro::tool
