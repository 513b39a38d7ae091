// A disk's content, and the log of what was written to it.
#pragma once

#include <array>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "rig/Film.h"

namespace kestro::rig {

// Sectors that hold something other than zeros.
class Disk {
 public:
  static constexpr int64 kBlock = 4096;

  bool Load(std::string const& path);
  bool Save(std::string const& path) const;
  void Write(int64 at, char const* data, int64 size);

 private:
  int64 _size = 0;
  std::map<int64, std::array<char, kBlock>> _blocks;  // by number
};

// The log of the emulator's driver "blklogwrites", read to its end: the count in its superblock
// lags after a kill.
struct WriteLog {
  struct Entry {
    int64 at, size;
    std::size_t data;  // where it is in `bytes`; npos: zeros
    bool flush;
  };

  bool Load(std::string const& path);

  std::string bytes;
  std::vector<Entry> entries;
};

// A state of the disk: what a flush has made durable, and a part of what was written since then.
struct State {
  enum Kind {
    kFlushed,
    kEverything,
    kWrites,
    kSectors
  };  // that part: nothing, all, half of the writes or of the sectors

  std::size_t at;  // so many entries of the log were written
  Kind kind;
  Promise promise;     // the last one
  bool fresh = false;  // just made

  std::string Text() const;
};

// Builds states in the order of the log.
class States {
 public:
  // `unit`: the bytes that a disk writes as a whole.
  States(WriteLog const& log, Disk base, int unit)
      : _log(log), _disk(std::move(base)), _unit(unit) {}

  // States after each promise, `random` ones, and with `switches` those around each change of
  // files.
  std::vector<State> List(int random, unsigned seed, bool switches) const;
  // For the states of a list, in their order.
  Disk Build(State const& state);

 private:
  std::vector<std::pair<std::size_t, Promise>> Promises() const;
  void Apply(WriteLog::Entry const& entry, Disk& disk, int unit);

  WriteLog const& _log;
  Disk _disk;  // as of the last flush
  int const _unit;
  std::size_t _flushed = 0;  // entries that are in it
  std::mt19937 _random{5};
};

}  // namespace kestro::rig
