// The states of an element.
#pragma once

#include <atomic>

#include "base/Types.h"

namespace kestro::stream {

// Closed, open, running or paused. StatusChange takes an element from any state to any other, and
// is what applications call, from one control thread; what else it allows and refuses, the
// elements' headers say. Open, Start, Pause, Resume, Stop and Close are the steps between
// neighbours that it takes: elements override them, and only StatusChange calls them.
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

  // False at the first step that fails; the state is then the last one reached. On the way down
  // every step is taken, and a failure is returned at the end.
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
