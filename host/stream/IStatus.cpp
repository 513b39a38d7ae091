#include "stream/IStatus.h"

namespace kestro::stream {

namespace {

struct Step {
  IStatus::Status next;
  bool (IStatus::*take)();
};

// The next step from a state (row) towards another (column).
constexpr Step kClose{IStatus::kClosed, &IStatus::Close}, kOpen{IStatus::kOpen, &IStatus::Open},
    kStart{IStatus::kRunning, &IStatus::Start}, kPause{IStatus::kPaused, &IStatus::Pause},
    kResume{IStatus::kRunning, &IStatus::Resume}, kStop{IStatus::kOpen, &IStatus::Stop}, kNone{};
constexpr Step kSteps[4][4] = {
    // closed, open, running, paused
    {kNone, kOpen, kOpen, kOpen},
    {kClose, kNone, kStart, kStart},
    {kStop, kStop, kNone, kPause},
    {kStop, kStop, kResume, kNone},
};

}  // namespace

bool IStatus::StatusChange(int status) {
  if (status < kClosed || status > kPaused) return false;
  bool ok = true;
  while (_status != status) {
    bool const up = status > _status;
    Step const& step = kSteps[_status][status];
    bool const done = (this->*step.take)();
    if (up && !done) return false;
    ok = ok && done;
    Enter(step.next);
  }
  return ok;
}

}  // namespace kestro::stream
