// The writes to the storage while a recording runs.
#pragma once

#include <map>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "avi/SlotFile.h"
#include "support/MemoryIO.h"

namespace kestro::crash {

using base::int64;

// Files are numbered: the recording is 0, those next to it are 1, 2, and so on, as they were made.
struct Op {
  enum Kind {
    kWrite,
    kCut,      // the file ends at `at`
    kFlush,    // what was written to the file survives from here on, and its length
    kData,     // ... without the length
    kName,     // file (unless 0) gets a name, and file number `at` (unless 0) loses its name
    kFolder,   // which files have names survives from here on
    kPromise,  // `at` packets are safe from here on
  };
  Kind kind;
  int file = 0;
  int64 at = 0;
  std::string bytes = {};

  bool IsBarrier() const { return kind == kFlush || kind == kData || kind == kFolder; }
};
using Ops = std::vector<Op>;

using Others = std::map<int, test::MemoryIO>;  // the files next to the recording, by number

// Keeps the order of the calls, from any thread.
class CrashLog {
 public:
  void Add(Op op) {
    std::lock_guard lock(_mutex);
    _barriers += op.IsBarrier();
    _ops.push_back(std::move(op));
  }
  std::size_t Size() const {
    std::lock_guard lock(_mutex);
    return _ops.size();
  }
  int Barriers() const {
    std::lock_guard lock(_mutex);
    return _barriers;
  }
  Ops Take() { return std::move(_ops); }

 private:
  mutable std::mutex _mutex;
  Ops _ops;
  int _barriers = 0;
};

class LogIO : public test::MemoryIO {
 public:
  explicit LogIO(CrashLog& log, int file = 0) : _log(log), _number(file) {}
  unsigned Write(void const* data, unsigned size) override {
    _log.Add({Op::kWrite, _number, Tell(), std::string(static_cast<char const*>(data), size)});
    return MemoryIO::Write(data, size);
  }
  bool Flush() override {
    _log.Add({Op::kFlush, _number});
    if (_number != 0) _log.Add({Op::kFolder});  // of a new file the name, too
    return true;
  }
  bool FlushData() override {
    _log.Add({Op::kData, _number});
    return true;
  }
  bool Truncate(int64) override { return false; }  // a recording without faults never cuts

 private:
  CrashLog& _log;
  int const _number;
};

// Where the files next to the recording are.
class LogFolder : public avi::SlotFile::Folder {
 public:
  explicit LogFolder(CrashLog& log) : _log(log) {}
  std::unique_ptr<base::IO> Create(std::string const& path) override {
    _log.Add({Op::kName, _numbers[path] = ++_last});
    return std::make_unique<LogIO>(_log, _last);
  }
  bool Remove(std::string const& path) override {
    if (int const number = std::exchange(_numbers[path], 0)) _log.Add({Op::kName, 0, number});
    return true;
  }

 private:
  CrashLog& _log;
  std::map<std::string, int> _numbers;
  int _last = 0;
};

}  // namespace kestro::crash
