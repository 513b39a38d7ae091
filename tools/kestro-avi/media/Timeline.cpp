#include "media/Timeline.h"

#include <algorithm>

#include "media/Scaled.h"

namespace kestro::tool {

// No track lags the leading one by this many gaps.
static constexpr std::size_t kMostGaps = 10000;

void Timeline::Settle(std::int64_t input_ns) { _settled_ns = std::max(_settled_ns, input_ns); }

std::int64_t Timeline::Cut(std::int64_t begin_ns, std::int64_t end_ns) {
  begin_ns = std::max(begin_ns, _settled_ns);
  if (begin_ns >= end_ns) return 0;
  std::int64_t const before_ns =
      _gaps.empty() ? 0 : _gaps.back().before_ns + _gaps.back().end_ns - _gaps.back().begin_ns;
  _gaps.push_back({begin_ns, end_ns, before_ns});
  if (_gaps.size() > kMostGaps) _gaps.pop_front();
  Settle(end_ns);
  return end_ns - begin_ns;
}

std::int64_t Timeline::CutBefore_ns(std::int64_t input_ns) const {
  auto const next = std::partition_point(_gaps.begin(), _gaps.end(),
                                         [=](Gap const& gap) { return gap.begin_ns < input_ns; });
  if (next == _gaps.begin()) return _gaps.empty() ? 0 : _gaps.front().before_ns;
  Gap const& gap = *std::prev(next);
  return gap.before_ns + std::min(input_ns, gap.end_ns) - gap.begin_ns;
}

std::int64_t Timeline::Audio_ns(std::int64_t input_ns) const {
  return Scaled(input_ns - CutBefore_ns(input_ns), speed.num, speed.den);
}

std::int64_t Timeline::Video_ns(std::int64_t input_ns) const {
  return Scaled(input_ns - CutBefore_ns(input_ns), videoSpeed.num, videoSpeed.den);
}

std::int64_t Timeline::Input_ns(std::int64_t recorded_ns) const {
  std::int64_t const played_ns = Scaled(recorded_ns, videoSpeed.den, videoSpeed.num);
  auto const next = std::partition_point(_gaps.begin(), _gaps.end(), [=](Gap const& gap) {
    return gap.begin_ns - gap.before_ns <= played_ns;
  });
  if (next != _gaps.end()) return played_ns + next->before_ns;
  return played_ns +
         (_gaps.empty() ? 0 : _gaps.back().before_ns + _gaps.back().end_ns - _gaps.back().begin_ns);
}

std::vector<std::pair<std::int64_t, std::int64_t>> Timeline::Kept(std::int64_t begin_ns,
                                                                  std::int64_t end_ns) const {
  std::vector<std::pair<std::int64_t, std::int64_t>> kept;
  auto gap = std::partition_point(_gaps.begin(), _gaps.end(),
                                  [=](Gap const& one) { return one.end_ns <= begin_ns; });
  for (; gap != _gaps.end() && gap->begin_ns < end_ns; ++gap) {
    if (begin_ns < gap->begin_ns) kept.emplace_back(begin_ns, gap->begin_ns);
    begin_ns = gap->end_ns;
  }
  if (begin_ns < end_ns) kept.emplace_back(begin_ns, end_ns);
  return kept;
}

}  // namespace kestro::tool
