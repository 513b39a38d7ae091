// A filter that counts, holds and fails the calls of a stream.
#pragma once

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "support/MemoryIO.h"

namespace kestro::test {

using base::int64;

// Passes calls on to its own memory or to another IO, and fails those that it should. Calls may
// come from any thread; two at a time are counted as an error.
class FaultIO : public base::IOFilter {
 public:
  enum Op { kRead, kWrite, kFlush, kTruncate };
  struct Fault {
    Op op;
    int nth;               // counted from 1
    bool forever = false;  // or only this call
    unsigned keep = 0;     // bytes that are still moved; kFailed: the call returns kFailed
    int error = EIO;
  };
  struct Place {
    int64 at;
    unsigned size;
  };

  FaultIO() : FaultIO(std::make_unique<MemoryIO>()) {}
  explicit FaultIO(base::IO& io) : IOFilter("FaultIO", io) {}

  void Fail(Fault fault) {
    std::lock_guard lock(_mutex);
    _faults.push_back(fault);
  }
  // A full disk: writes end there with this error.
  void Capacity(int64 bytes, int error = ENOSPC) {
    _capacity = bytes;
    _full = error;
  }
  void Readable(int64 bytes) { _readable = bytes; }  // bad sectors follow: reads end there with EIO

  // Makes reads and writes wait, or go on; one that waits too long fails.
  void Hold(bool held) {
    std::lock_guard lock(_mutex);
    _held = held;
    _released.notify_all();
  }

  std::vector<Place> Calls(Op op) const {
    std::lock_guard lock(_mutex);
    return _calls[op];
  }
  int Count(Op op) const {
    std::lock_guard lock(_mutex);
    return static_cast<int>(_calls[op].size());
  }
  int Failures() const { return _failures; }
  int Overlaps() const { return _overlaps; }
  std::string Bytes() const { return Text(*_memory); }

  bool Seek(int64 offset, int whence) override {
    Use const use(*this);
    return _io.Seek(offset, whence);
  }
  unsigned Read(void* data, unsigned size) override {
    Use const use(*this);
    auto const good = static_cast<unsigned>(std::clamp<int64>(_readable - _io.Tell(), 0, size));
    if (Next(kRead, size) != nullptr) return kFailed;
    if (good < size) Failed(EIO);
    return good == 0 && size > 0 ? kFailed : _io.Read(data, good);
  }
  unsigned Write(void const* data, unsigned size) override {
    Use const use(*this);
    auto room = static_cast<unsigned>(std::clamp<int64>(_capacity - _io.Tell(), 0, size));
    Fault const* const fault = Next(kWrite, size);
    if (fault != nullptr)
      room = fault->keep == kFailed ? 0 : std::min({room, fault->keep, size - 1});
    else if (room < size)
      Failed(_full);
    unsigned const done = room > 0 ? _io.Write(data, room) : 0;
    return fault != nullptr && fault->keep == kFailed ? kFailed : done;
  }
  bool Flush() override { return Next(kFlush) == nullptr && _io.Flush(); }
  bool FlushData() override { return Flush(); }
  bool Truncate(int64 size) override { return Next(kTruncate) == nullptr && _io.Truncate(size); }
  int Error() override { return _error != 0 ? _error.load() : _io.Error(); }

 private:
  explicit FaultIO(std::unique_ptr<MemoryIO> memory)
      : IOFilter("FaultIO", *memory), _memory(std::move(memory)) {}

  struct Use {
    explicit Use(FaultIO& io) : io(io) { io._overlaps += io._users++ > 0; }
    ~Use() { --io._users; }
    FaultIO& io;
  };

  // Notes a call and waits while it is held; returns its fault, or null.
  Fault const* Next(Op op, unsigned size = 0) {
    std::unique_lock lock(_mutex);
    _calls[op].push_back({_io.Tell(), size});
    int const n = static_cast<int>(_calls[op].size());
    if (!_released.wait_for(lock, std::chrono::seconds(30), [this] { return !_held; })) {
      _held = false;
      Failed(ETIMEDOUT);
    }
    for (auto const& fault : _faults)
      if (fault.op == op && (n == fault.nth || (fault.forever && n > fault.nth))) {
        Failed(fault.error);
        return &fault;
      }
    return nullptr;
  }
  void Failed(int error) {
    _error = error;
    ++_failures;
  }

  std::unique_ptr<MemoryIO> _memory;
  mutable std::mutex _mutex;
  std::condition_variable _released;
  bool _held = false;
  std::deque<Fault> _faults;  // whose addresses stay
  std::vector<Place> _calls[4];
  std::atomic<int64> _capacity{INT64_MAX}, _readable{INT64_MAX};
  std::atomic<int> _error{0}, _full{0};
  std::atomic<int> _failures{0}, _users{0}, _overlaps{0};
};

}  // namespace kestro::test
