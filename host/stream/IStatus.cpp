#include "stream/IStatus.h"

namespace kestro::stream {

bool IStatus::StatusChange(int status) {
  if (status < kClosed || status > kPaused) return false;
  bool ok = true;
  while (_status != status) {
    int next;
    bool done;
    if (status > _status) {
      next = _status + 1;
      done = next == kOpen ? Open() : next == kRunning ? Start() : Pause();
      if (!done) return false;
    } else {
      next = _status == kPaused && status == kRunning ? kRunning
             : _status >= kRunning                    ? kOpen
                                                      : kClosed;
      done = next == kRunning ? Resume() : next == kOpen ? Stop() : Close();
      ok = ok && done;
    }
    Enter(next);
  }
  return ok;
}

}  // namespace kestro::stream
