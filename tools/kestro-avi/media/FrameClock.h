// Finds lost frames by the times of a video track.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <queue>
#include <vector>

#include "base/Fraction.h"
#include "media/StepFinder.h"

namespace kestro::tool {

// Compares the times of a track's frames with its frame rate. Takes the times in file order and
// returns the frames in the order in which they are shown.
//
//   clock.Add(time);
//   while (clock.Ready()) frame = clock.Take();
class FrameClock {
 public:
  struct Frame {
    std::int64_t time_ns;  // as given
    std::int64_t off_ns;   // how far the time is off the counted one, without jitter
    bool gap;              // frames are missing before this one
  };

  // `speed`: times are multiplied by this before they are compared. `depth`: how many frames a
  // frame may be decoded ahead of its turn.
  FrameClock(base::Fraction rate, base::Fraction speed, std::size_t depth);

  void Add(std::int64_t time_ns);
  void End();
  bool Ready();
  Frame Take();

  bool Empty() const { return _shown.empty(); }
  std::int64_t NextTime_ns() const { return _shown.front().time_ns; }  // unless empty
  // Whether the frame rate varies: then a long interval does not mean that frames are missing.
  bool Varies() const { return _uneven * kFewest > _recent.size(); }
  // How many intervals differ from the frame rate by more than a half, and all.
  std::uint64_t Uneven() const { return _allUneven; }
  std::uint64_t Intervals() const { return _all; }

 private:
  static constexpr std::size_t kFewest = 20;  // one uneven interval in so many: the rate varies
  struct Shown {
    std::int64_t time_ns, off_ns;
    bool late;
  };
  void Show(std::int64_t time_ns);
  void CountInterval(std::int64_t interval_ns);

  base::Fraction const _rate, _speed;
  std::size_t const _depth;
  std::int64_t const _frame_ns;
  std::priority_queue<std::int64_t, std::vector<std::int64_t>, std::greater<>> _sorted;
  std::deque<Shown> _shown;
  StepFinder _finder;
  std::int64_t _last_ns = 0;
  std::int64_t _count = 0;   // shown
  std::deque<bool> _recent;  // the last intervals: whether each is uneven
  std::size_t _uneven = 0;   // of them
  std::uint64_t _all = 0, _allUneven = 0;
  bool _ended = false;
};

}  // namespace kestro::tool
