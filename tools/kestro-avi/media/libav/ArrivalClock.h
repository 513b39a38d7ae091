// Relates the times of packets to the clock on which they arrive.
#pragma once

#include <algorithm>
#include <cstdint>
#include <optional>

namespace kestro::tool {

// Packets arrive late, never early: the least difference of the last minute counts. Servers send
// the first packets in a burst, and the two clocks drift apart.
class ArrivalClock {
 public:
  void Add(std::int64_t time_ns, std::int64_t arrival_ns) {
    if (arrival_ns - _begin_ns > kWindow_ns) {
      _before_ns = _least_ns;
      _least_ns = INT64_MAX;
      _begin_ns = arrival_ns;
    }
    _least_ns = std::min(_least_ns, arrival_ns - time_ns);
  }
  // By how much to move packet times; empty before the first packet.
  std::optional<std::int64_t> Shift_ns() const {
    std::int64_t const least_ns = std::min(_least_ns, _before_ns);
    if (least_ns == INT64_MAX) return std::nullopt;
    return least_ns;
  }

 private:
  static constexpr std::int64_t kWindow_ns = 30000000000;
  std::int64_t _begin_ns = 0, _least_ns = INT64_MAX, _before_ns = INT64_MAX;
};

}  // namespace kestro::tool
