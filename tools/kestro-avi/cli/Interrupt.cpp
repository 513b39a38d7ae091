#include "cli/Interrupt.h"

#include <pthread.h>
#include <sys/signalfd.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <thread>

namespace kestro::tool {

static std::atomic<bool> interrupted{false}, stopRequested{false};
static_assert(std::atomic<bool>::is_always_lock_free, "for the signal handler");
static pthread_t waiting;

void CatchSignals() {
  waiting = pthread_self();
  struct sigaction action {};
  action.sa_handler = [](int) { interrupted = true; };
  action.sa_flags = static_cast<int>(SA_RESETHAND);
  sigaction(SIGINT, &action, nullptr);
  sigaction(SIGTERM, &action, nullptr);
  struct sigaction hangup {};
  sigaction(SIGHUP, nullptr, &hangup);
  action.sa_flags = 0;  // shells and the system may send it twice
  if (hangup.sa_handler != SIG_IGN) sigaction(SIGHUP, &action, nullptr);  // nohup ignores it
  std::signal(SIGPIPE, SIG_IGN);
  struct sigaction wake {};  // a signal that others ignore
  wake.sa_handler = [](int) {};
  sigaction(SIGURG, &wake, nullptr);
}

bool Interrupted() { return interrupted || stopRequested; }

void RequestStop() {
  stopRequested = true;
  pthread_kill(waiting, SIGURG);
}

bool StopRequested() { return stopRequested && !interrupted; }

Descriptor EventSignals() {
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGUSR1);
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);
  return Descriptor(signalfd(-1, &signals, SFD_NONBLOCK | SFD_CLOEXEC));
}

void SleepUntil(std::chrono::steady_clock::time_point then) {
  // In slices, because a signal may come just before the sleep begins.
  auto const slice = std::chrono::milliseconds(50);
  for (auto now = std::chrono::steady_clock::now(); now < then && !Interrupted();
       now = std::chrono::steady_clock::now())
    std::this_thread::sleep_for(std::min<std::chrono::nanoseconds>(slice, then - now));
}

}  // namespace kestro::tool
