// What reaches the storage while a recording runs.
#pragma once

#include <mutex>
#include <string>
#include <vector>

#include "support/MemoryIO.h"

namespace kestro::crash {

using base::int64;

// Files are numbered: the recording is 0, the images kept beside it are 1, 2, and so on. All images
// are made under another name and then take the name under which a repair looks for one.
struct Op {
  enum Kind {
    kWrite,
    kFlush,    // what was written to the file survives from here on, and its length
    kName,     // the image takes the name; file 0: the name is removed
    kFolder,   // who has the name survives from here on
    kPromise,  // `at` packets are safe from here on
  };
  Kind kind;
  int file = 0;
  int64 at = 0;
  std::string bytes = {};

  bool IsBarrier() const { return kind == kFlush || kind == kFolder; }
};
using Ops = std::vector<Op>;

// Keeps the order in which the calls came, from whichever thread.
class CrashLog {
 public:
  void Add(Op op) {
    std::lock_guard lock(_mutex);
    _barriers += op.IsBarrier();
    _ops.push_back(std::move(op));
  }
  int Barriers() const {
    std::lock_guard lock(_mutex);
    return _barriers;
  }
  Ops Take() { return std::move(_ops); }

  // What an application does with the image of a sync before it lets the recording go on.
  void KeepImage(std::string const& image) {
    ++_images;
    auto const half = image.size() / 2;
    Add({Op::kWrite, _images, 0, image.substr(0, half)});
    Add({Op::kWrite, _images, static_cast<int64>(half), image.substr(half)});
    Add({Op::kFlush, _images});
    Add({Op::kName, _images});
    Add({Op::kFolder});
  }
  void RemoveImage() {
    Add({Op::kName, 0});
    Add({Op::kFolder});
  }

 private:
  mutable std::mutex _mutex;
  Ops _ops;
  int _barriers = 0, _images = 0;
};

// The recording's file.
class LogIO : public test::MemoryIO {
 public:
  explicit LogIO(CrashLog& log) : _log(log) {}
  unsigned Write(void const* data, unsigned size) override {
    _log.Add({Op::kWrite, 0, Tell(), std::string(static_cast<char const*>(data), size)});
    return MemoryIO::Write(data, size);
  }
  bool Flush() override {
    _log.Add({Op::kFlush});
    return true;
  }
  bool Truncate(int64) override { return false; }  // a recording without faults never cuts

 private:
  CrashLog& _log;
};

}  // namespace kestro::crash
