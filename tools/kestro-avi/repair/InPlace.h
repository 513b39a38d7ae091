// Mends a recording that was cut off without copying it.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "recorder/Storage.h"
#include "repair/Salvage.h"

namespace kestro::tool {

struct InPlaceJob {
  std::string path;
  std::string name;                                            // for messages
  std::function<void(int64 position)> advance = [](int64) {};  // called with the position reached
  int64 largestJunk = 1000000;  // FFmpeg does not accept larger JUNK before the data
};

struct InPlaceReport {
  bool whole = false;  // nothing had to be done
  std::vector<avi::AviTrack> tracks;
  std::vector<Counted> kept;  // by track
  SalvageCounts counts;       // of the part that the index did not cover
  base::uint64 indexed = 0;   // packets that it did
  base::uint64 entries = 0;   // of the completed index
  bool front = false;         // it is before the data
  int64 removed = 0;          // bytes cut off at the end
  std::string side;           // the side file that was used or removed
  std::vector<std::string> warnings;
  bool interrupted = false;  // before anything was written

  Counted Kept() const;
  Counted Lost() const;
  bool Complete() const { return Lost().packets == 0 && counts.skipped.bytes == 0; }
};

// Completes index and headers of a recording, if it was made by this system, in steps of which each
// is durable before the next one begins, so that after a crash at any time everything plays that
// played before:
//
// 1. what follows the last whole packet is cut off, and parts that are not packets become JUNK
// 2. the index before the data is completed or, if it has no room, one is written after the data
// 3. sizes and counts in the headers
// 4. an index before the data that lacks entries becomes JUNK
// 5. the side file is removed
//
// Only the data after the last indexed packet is read. Throws Error: kUnusable if it cannot be
// mended so; nothing has been changed then.
InPlaceReport RepairInPlace(record::Storage& storage, InPlaceJob const& job);

// The same for a file of the system, unless it is being recorded.
InPlaceReport RepairFile(InPlaceJob job);

}  // namespace kestro::tool
