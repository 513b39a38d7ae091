// Makes an ordinary file from a recording that was cut off or damaged.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "base/Fraction.h"
#include "repair/Salvage.h"

namespace kestro::tool {

using base::int64;

struct RepairJob {
  std::string input, output;
  std::string image;         // the side file; empty: that of the input if it matches
  bool force = false;        // overwrite the output
  base::Fraction rate = {};  // frame rate of the video; 0/1: that of the input
  std::function<void(int64 position)> advance = [](int64) {};  // called with the position reached
};

struct RepairReport {
  enum class Source { kNothing, kIndex, kImage } source = Source::kNothing;
  std::string image;         // the side file, if it was used
  bool headOfImage = false;  // the header is that of the side file
  bool headOfCopy = false;   // the header is the copy in the recording's JUNK
  std::vector<avi::AviTrack> tracks;
  std::vector<int> numbers;  // track numbers in the output; -1: cannot be recorded
  SalvageCounts counts;
  Counted kept, lost;
  std::vector<std::string> notes, warnings;
  base::uint64 size = 0;  // of the output
  bool interrupted = false;

  bool Complete() const { return lost.packets == 0 && counts.skipped.bytes == 0; }
};

// Does not change the input. The output gets its name when it is complete. The plug-in must be
// loaded. Throws Error.
RepairReport Repair(RepairJob const& job);

}  // namespace kestro::tool
