#include "media/StepFinder.h"

#include <algorithm>
#include <cstdlib>

namespace kestro::tool {

static constexpr std::int64_t kLasting_ns = 1000000000;
static constexpr std::int64_t kMostCounted_ns = 10000000000;  // for clocks that stand still

bool StepFinder::Ready() {
  if (!_known && !_items.empty()) _known = FindLevel();
  return _known;
}

// Continues where the last call ended, as each packet may wait for many others.
bool StepFinder::FindLevel() {
  auto const above = [this](Item const& item) { return item.off_ns > _level_ns; };
  Item const &first = _items.front(), &last = _items.back();
  bool const up = above(first);
  if (_checked == 0) _reached_ns = first.off_ns;
  for (; _checked < _items.size(); ++_checked) {
    Item const& item = _items[_checked];
    bool const back = std::abs(item.off_ns - _level_ns) <= _tolerance_ns || above(item) != up;
    if (back) {
      _next_ns = _level_ns;
      return true;
    }
    _reached_ns = up ? std::min(_reached_ns, item.off_ns) : std::max(_reached_ns, item.off_ns);
  }
  bool const lasting = std::abs(last.time_ns - first.time_ns) >= kLasting_ns ||
                       last.Counted_ns() - first.Counted_ns() >= kMostCounted_ns;
  if (!lasting && !_ended) return false;
  bool const large = std::abs(_reached_ns - _level_ns) > 2 * _tolerance_ns;
  _next_ns = lasting || large ? _reached_ns : _level_ns;
  return true;
}

void StepFinder::Pop() {
  _items.pop_front();
  _level_ns = _next_ns;
  _checked = 0;
  _known = false;
}

}  // namespace kestro::tool
