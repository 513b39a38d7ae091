// Recordings whose writes are logged.
#pragma once

#include <memory>

#include "crash/CrashLog.h"

namespace kestro::crash {

enum class Mode { kInPlace, kImage, kCallback };
struct Scenario {
  Mode mode;
  unsigned room;      // entries that an index before the data has room for
  bool full = false;  // too few
};
constexpr Scenario kScenarios[] = {{Mode::kInPlace, 512},
                                   {Mode::kImage, 512},
                                   {Mode::kCallback, 0},
                                   {Mode::kInPlace, 432, true},
                                   {Mode::kImage, 112, true}};
constexpr unsigned kLargestJunk = 1616;  // an old index becomes several JUNK chunks
std::string Name(Scenario const& scenario);

// A packet as it is delivered when it is played.
struct Sample {
  int number;  // counted over all tracks, in the order of recording
  int64 ms;
  bool key;
  std::string bytes;
  int64 at = 0;  // where it is stored
};

struct Recorded {
  Scenario scenario;
  Ops ops;
  std::vector<std::vector<Sample>> tracks;
  int64 front = 0;                // bytes before the data
  int64 entries = 0;              // where the index entries begin; in callback mode, in an image
  int syncs = 0;                  // before the last one, which closes the file
  int packets = 0;                // all of which a repair brings back once it is closed,
  std::size_t closed = SIZE_MAX;  // ... from this operation on, where an ordinary close follows
};

// Sets sizes and tags of a mode on a muxer; the result must outlive it.
using Setup = std::shared_ptr<void>;
constexpr unsigned Interval_ms(Mode mode) {
  return mode == Mode::kImage ? 1 : 380;  // images come with every 512 KiB
}
Setup Configure(base::Object& muxer, Scenario const& scenario);

// Records a video and two audio tracks, with about 40 packets between syncs, and closes the file,
// with an index after the data. Empty `ops` when something failed.
Recorded Record(Scenario const& scenario);

}  // namespace kestro::crash
