// The states of an element.
#pragma once

#include <atomic>

#include "base/Types.h"

namespace kestro::stream {

// Closed, open, running or paused. Applications call StatusChange, from one control thread, to take
// an element from any state to any other. The elements' headers document what else it allows and
// refuses. Open, Start, Pause, Resume, Stop and Close are the steps between adjacent states.
// Elements override them, and only StatusChange calls them.
class KESTRO_API IStatus {
 public:
  enum Status { kClosed = 0, kOpen = 1, kRunning = 2, kPaused = 3 };

  virtual ~IStatus() = default;
  virtual bool Open() { return Enter(kOpen); }
  virtual bool Start() { return Enter(kRunning); }
  virtual bool Pause() { return Enter(kPaused); }
  virtual bool Resume() { return Enter(kRunning); }
  virtual bool Stop() { return Enter(kOpen); }
  virtual bool Close() { return Enter(kClosed); }

  // On the way up, stops at the first step that fails and returns false; the state is then the last
  // one reached. On the way down, takes every step and returns false if any of them failed.
  [[nodiscard]] virtual bool StatusChange(int status);
  int CurrentStatus() const { return _status; }  // any thread

 protected:
  bool Enter(int status) {
    _status = status;
    return true;
  }

 private:
  std::atomic<int> _status{kClosed};
};

}  // namespace kestro::stream
