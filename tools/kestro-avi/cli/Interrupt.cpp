#include "cli/Interrupt.h"

#include <algorithm>
#include <csignal>
#include <thread>

namespace kestro::tool {

static volatile std::sig_atomic_t interrupted = 0;

void CatchSignals() {
  struct sigaction action {};
  action.sa_handler = [](int) { interrupted = 1; };
  action.sa_flags = static_cast<int>(SA_RESETHAND);
  sigaction(SIGINT, &action, nullptr);
  sigaction(SIGTERM, &action, nullptr);
  struct sigaction hangup {};
  sigaction(SIGHUP, nullptr, &hangup);
  action.sa_flags = 0;  // shells and the system may send it twice
  if (hangup.sa_handler != SIG_IGN) sigaction(SIGHUP, &action, nullptr);  // nohup ignores it
  std::signal(SIGPIPE, SIG_IGN);
}

bool Interrupted() { return interrupted != 0; }

void SleepUntil(std::chrono::steady_clock::time_point then) {
  // In slices, because a signal may come just before the sleep begins.
  auto const slice = std::chrono::milliseconds(50);
  for (auto now = std::chrono::steady_clock::now(); now < then && !Interrupted();
       now = std::chrono::steady_clock::now())
    std::this_thread::sleep_for(std::min<std::chrono::nanoseconds>(slice, then - now));
}

}  // namespace kestro::tool
