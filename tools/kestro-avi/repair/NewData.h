// Finds the packets after the last one that has an index entry.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "repair/Coverage.h"
#include "repair/Salvage.h"

namespace kestro::tool {

struct NewData {
  int64 begin = 0, end = 0;    // from the first packet to after the last one and its pad byte
  std::vector<bool> keys;      // by packet, in file order: whether it is a key frame
  std::vector<Hole> holes;     // between packets: must become JUNK
  std::vector<TrackSum> sums;  // by track
  SalvageCounts counts;
  bool interrupted = false;

  // Calls `sink` for the index entries of the packets. The holes must be JUNK by now. Returns false
  // if there are other packets than those that were found.
  bool ForEachEntry(avi::RiffReader& file, Layout const& layout, avi::EntrySink const& sink) const;
};

// Reads the file from `begin` to its end. Throws Error if what follows a damaged part cannot be
// kept without moving it.
NewData FindNewData(avi::RiffReader& file, Layout const& layout, int64 begin,
                    std::function<void(int64)> const& advance);

}  // namespace kestro::tool
