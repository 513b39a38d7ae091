// A device whose reads take time, are counted and can be held.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

#include "support/FaultIO.h"

namespace kestro::test {

// Over another IO. Reads may come from any thread; two at a time are an error that is counted.
class SlowIO : public base::IOFilter {
 public:
  explicit SlowIO(base::IO& io, int readMs = 0) : IOFilter("SlowIO", io), _readMs(readMs) {}

  bool Seek(int64 offset, int whence) override {
    Use const use(*this);
    return _io.Seek(offset, whence);
  }
  unsigned Read(void* data, unsigned size) override {
    Use const use(*this);
    {
      std::unique_lock lock(_mutex);
      _reads.push_back({_io.Tell(), size});
      _changed.wait(lock, [this] { return !_held; });
    }
    if (_readMs > 0) std::this_thread::sleep_for(std::chrono::milliseconds(_readMs));
    return _io.Read(data, size);
  }

  // Makes reads wait, or lets them go on.
  void Hold(bool held) {
    std::lock_guard lock(_mutex);
    _held = held;
    _changed.notify_all();
  }
  std::vector<FaultIO::Place> Reads() const {
    std::lock_guard lock(_mutex);
    return _reads;
  }
  std::size_t Count() const { return Reads().size(); }
  int Overlaps() const { return _overlaps; }

 private:
  struct Use {
    explicit Use(SlowIO& io) : io(io) { io._overlaps += io._users++ > 0; }
    ~Use() { --io._users; }
    SlowIO& io;
  };

  int const _readMs;
  mutable std::mutex _mutex;
  std::condition_variable _changed;
  std::vector<FaultIO::Place> _reads;
  bool _held = false;
  std::atomic<int> _users{0}, _overlaps{0};
};

}  // namespace kestro::test
