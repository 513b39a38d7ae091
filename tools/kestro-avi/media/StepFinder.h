// Distinguishes lasting steps of a clock from jitter.
#pragma once

#include <cstdint>
#include <deque>

namespace kestro::tool {

// Takes packets with their times and how far each time is off the counted one, and determines the
// level of these differences. A difference within the tolerance of the level changes nothing. A
// larger one is jitter if the difference comes back within a second, and else a new level: the
// one that all differences of that second reach. In the last second, a difference of up to twice
// the tolerance is jitter, too.
//
//   finder.Add(time, off);
//   while (finder.Ready()) { finder.Level(); finder.Pop(); }    // of the oldest packet
class StepFinder {
 public:
  explicit StepFinder(std::int64_t tolerance_ns) : _tolerance_ns(tolerance_ns) {}

  void Add(std::int64_t time_ns, std::int64_t off_ns) { _items.push_back({time_ns, off_ns}); }
  void End() { _ended = true; }

  // Whether the level at the oldest packet is known.
  bool Ready();
  std::int64_t Level() const { return _next_ns; }
  bool Steps() const { return _next_ns != _level_ns; }
  void Pop();

 private:
  struct Item {
    std::int64_t time_ns, off_ns;
    std::int64_t Counted_ns() const { return time_ns - off_ns; }
  };
  bool FindLevel();

  std::int64_t const _tolerance_ns;
  std::deque<Item> _items;
  std::int64_t _level_ns = 0, _next_ns = 0;
  bool _known = false;           // _next_ns is the level at the oldest packet
  std::size_t _checked = 0;      // items that have not come back to the level,
  std::int64_t _reached_ns = 0;  // and the least of their differences
  bool _ended = false;
};

}  // namespace kestro::tool
