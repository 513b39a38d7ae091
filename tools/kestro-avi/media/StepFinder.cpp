#include "media/StepFinder.h"

#include <algorithm>
#include <cstdlib>

namespace kestro::tool {

static constexpr std::int64_t kLasting_ns = 1000000000;
static constexpr std::size_t kMostItems = 4096;  // for clocks that stand still

bool StepFinder::Ready() {
  if (!_known && !_items.empty()) _known = ReadLevel(_next_ns);
  return _known;
}

bool StepFinder::ReadLevel(std::int64_t& level_ns) const {
  auto const above = [this](Item const& item) { return item.off_ns > _level_ns; };
  level_ns = _level_ns;
  Item const& first = _items.front();
  bool const up = above(first);
  std::int64_t reached_ns = first.off_ns;
  for (Item const& item : _items) {
    bool const back = std::abs(item.off_ns - _level_ns) <= _tolerance_ns || above(item) != up;
    if (back) return true;
    reached_ns = up ? std::min(reached_ns, item.off_ns) : std::max(reached_ns, item.off_ns);
  }
  bool const lasting = std::abs(_items.back().time_ns - first.time_ns) >= kLasting_ns;
  if (!lasting && !_ended && _items.size() < kMostItems) return false;
  level_ns = reached_ns;
  return true;
}

void StepFinder::Pop() {
  _items.pop_front();
  _level_ns = _next_ns;
  _known = false;
}

}  // namespace kestro::tool
