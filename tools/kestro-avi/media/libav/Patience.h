// Limits how long libavformat waits.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>

namespace kestro::tool {

class Patience {
 public:
  // `limit_ns`: how long a call may wait; 0: for ever.
  explicit Patience(bool (*interrupted)(), std::int64_t limit_ns = 0)
      : _interrupted(interrupted), _limit_ns(limit_ns) {
    Begin();
  }

  // Before a call that may wait. `more_ns`: in addition to the limit.
  void Begin(std::int64_t more_ns = 0) {
    _until_ns = _limit_ns == 0 ? INT64_MAX : Now_ns() + _limit_ns + more_ns;
  }
  // The same for reading from an input that was just opened, to learn its streams.
  void BeginProbing(std::int64_t more_ns) {
    Begin(more_ns);
    _probed_ns = Now_ns();
  }
  std::int64_t Probed_ns() const { return _probed_ns; }  // when that was, the last time
  void BeginUnlimited() { _until_ns = INT64_MAX; }
  void End() { _ended = true; }  // every wait, from any thread
  bool TimedOut() const { return Now_ns() >= _until_ns; }
  bool Ended() const { return _ended || _interrupted(); }
  bool Over() const { return Ended() || TimedOut(); }

  static std::int64_t Now_ns() {
    return std::chrono::nanoseconds(std::chrono::steady_clock::now().time_since_epoch()).count();
  }

 private:
  bool (*const _interrupted)();
  std::int64_t const _limit_ns;
  std::atomic<std::int64_t> _until_ns{0}, _probed_ns{0};
  std::atomic<bool> _ended{false};
};

}  // namespace kestro::tool
