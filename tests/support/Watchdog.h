// Ends the process, with the name of what hangs, where a test would never end.
#pragma once

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <future>
#include <string>
#include <thread>

namespace kestro::test {

class Watchdog {
 public:
  explicit Watchdog(std::string const& what, int seconds = 300)
      : _thread([this, what, seconds] {
          if (_done.get_future().wait_for(std::chrono::seconds(seconds)) ==
              std::future_status::ready)
            return;
          std::fprintf(stderr, "hangs: %s\n", what.c_str());
          std::abort();
        }) {}
  ~Watchdog() {
    _done.set_value();
    _thread.join();
  }

 private:
  std::promise<void> _done;
  std::thread _thread;
};

}  // namespace kestro::test
