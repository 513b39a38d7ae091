// A filter that counts, records and fails the calls of a stream.
#pragma once

#include <algorithm>
#include <cerrno>
#include <memory>
#include <string>
#include <vector>

#include "support/MemoryIO.h"

namespace kestro::test {

using base::int64;

inline std::string Text(MemoryIO const& io) { return {io.bytes.begin(), io.bytes.end()}; }

// Passes on to memory of its own or to another IO, records the calls, and fails those it is told.
class FaultIO : public base::IOFilter {
 public:
  enum Op { kRead, kWrite, kFlush, kTruncate };
  struct Call {
    Op op;
    int64 at;
    unsigned size, done;  // bytes asked for and moved; 0 and 0 or 1 for the rest
    bool failed;
  };
  struct Fault {
    Op op;
    int nth;               // counted from 1
    bool forever = false;  // this call only, or all from it on
    unsigned keep = 0;     // bytes that still move; kFailed: none, and the call answers all ones
    int error = EIO;
  };

  FaultIO() : FaultIO(std::make_unique<MemoryIO>()) {}
  explicit FaultIO(base::IO& io) : IOFilter("FaultIO", io) {}

  void Fail(Fault fault) { _faults.push_back(fault); }
  void Capacity(int64 bytes) { _capacity = bytes; }  // a full disk: writes end there with ENOSPC
  void Heal() {
    _faults.clear();
    _capacity = INT64_MAX;
  }

  std::vector<Call> const& Calls() const { return _calls; }
  int Count(Op op) const { return _counts[op]; }
  int Failures() const {
    return static_cast<int>(
        std::count_if(_calls.begin(), _calls.end(), [](auto& call) { return call.failed; }));
  }
  std::string Bytes() const { return Text(*_memory); }  // of its own memory

  unsigned Read(void* data, unsigned size) override {
    Fault const* fault = Next(kRead);
    return Done(kRead, size, fault != nullptr, fault ? kFailed : _io.Read(data, size));
  }
  unsigned Write(void const* data, unsigned size) override {
    Fault const* fault = Next(kWrite);
    auto room = static_cast<unsigned>(std::clamp<int64>(_capacity - _io.Tell(), 0, size));
    if (room < size) _error = ENOSPC;
    if (fault != nullptr) room = fault->keep == kFailed ? 0 : std::min(room, fault->keep);
    if (fault != nullptr && room == size) --room;
    unsigned const done = room > 0 ? _io.Write(data, room) : 0;
    Done(kWrite, size, done < size, done);
    return fault != nullptr && fault->keep == kFailed ? kFailed : done;
  }
  bool Flush() override {
    return Simple(kFlush, [&] { return _io.Flush(); });
  }
  bool Truncate(int64 size) override {
    return Simple(kTruncate, [&] { return _io.Truncate(size); });
  }
  int Error() override { return _error != 0 ? _error : _io.Error(); }

 private:
  explicit FaultIO(std::unique_ptr<MemoryIO> memory)
      : IOFilter("FaultIO", *memory), _memory(std::move(memory)) {}

  Fault const* Next(Op op) {
    _at = _io.Tell();
    int const n = _counts[op] + 1;
    for (auto const& fault : _faults)
      if (fault.op == op && (n == fault.nth || (fault.forever && n > fault.nth))) {
        _error = fault.error;
        return &fault;
      }
    return nullptr;
  }
  unsigned Done(Op op, unsigned size, bool failed, unsigned done) {
    _calls.push_back({op, _at, size, done, failed});
    ++_counts[op];
    return done;
  }
  template <class Act>
  bool Simple(Op op, Act act) {
    bool const ok = Next(op) == nullptr && act();
    return Done(op, 0, !ok, ok) != 0;
  }

  std::unique_ptr<MemoryIO> _memory;
  std::vector<Fault> _faults;
  std::vector<Call> _calls;
  int _counts[4] = {};
  int64 _capacity = INT64_MAX, _at = 0;
  int _error = 0;
};

}  // namespace kestro::test
