// Makes an ordinary file of a recording that was cut off or damaged.
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
  std::string image;         // the side file; empty: that of INPUT, where it fits
  bool force = false;        // overwrites the output
  base::Fraction rate = {};  // of the video, instead of what the input says; 0/1: as it says
  std::function<void(int64 position)> advance = [](int64) {};  // is told how far the input is read
};

struct RepairReport {
  enum class Source { kNothing, kIndex, kImage } source = Source::kNothing;
  std::string image;  // where it was used
  bool headOfImage = false;
  bool headOfCopy = false;  // in the recording's JUNK
  std::vector<avi::AviTrack> tracks;
  std::vector<int> numbers;  // of the tracks in the output; -1: it cannot be recorded
  SalvageCounts counts;
  Counted kept, lost;
  std::vector<std::string> notes, warnings;
  base::uint64 size = 0;  // of the output
  bool interrupted = false;

  bool Complete() const { return lost.packets == 0 && counts.skipped.bytes == 0; }
};

// The input is only read; the output takes its name when it is finished. The plug-in must be
// loaded. Throws Error.
RepairReport Repair(RepairJob const& job);

}  // namespace kestro::tool
