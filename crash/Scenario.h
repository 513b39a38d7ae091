// Recordings whose storage is watched.
#pragma once

#include "crash/CrashLog.h"

namespace kestro::crash {

enum class Mode { kInPlace, kImage, kCallback };
constexpr Mode kModes[] = {Mode::kInPlace, Mode::kImage, Mode::kCallback};
char const* Name(Mode mode);

// A packet as it is delivered when it is played.
struct Sample {
  int number;  // counted over all tracks, in the order of recording
  int64 ms;
  std::string bytes;
};

struct Recorded {
  Mode mode;
  Ops ops;
  std::vector<std::vector<Sample>> tracks;
  int64 front = 0;    // bytes in front of the data
  int64 entries = 0;  // where the index entries begin; in callback mode, in an image
  int syncs = 0;      // before the last one, which closes the file
};

// Of images: 12 bytes behind it the index entries begin, at a multiple of 16; or a whole sector,
// which is then the only one that closing the file overwrites.
constexpr unsigned HeaderSize(Mode mode) { return mode == Mode::kImage ? 1012 : 4096; }

// A video and two sound tracks; a sync brings about 40 new index entries. Everything that a mode
// does is in it: opening, syncs, closing. Empty `ops` when something went wrong.
Recorded Record(Mode mode);

}  // namespace kestro::crash
