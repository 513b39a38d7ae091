// A mutex that knows its owner.
#pragma once

#include <atomic>
#include <mutex>
#include <thread>

namespace kestro::plugin::avi {

// Lets an operation that needs the mutex refuse calls from code that runs while the same thread
// holds it, where locking again would hang.
class OwnedMutex {
 public:
  void lock() {
    _mutex.lock();
    _owner = std::this_thread::get_id();
  }
  void unlock() {
    _owner = std::thread::id();
    _mutex.unlock();
  }
  bool Mine() const { return _owner == std::this_thread::get_id(); }

 private:
  std::mutex _mutex;
  std::atomic<std::thread::id> _owner{};
};

}  // namespace kestro::plugin::avi
