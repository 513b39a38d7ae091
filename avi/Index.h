// The index of an AVI file, entry by entry.
#pragma once

#include <functional>

#include "avi/AviTrack.h"

namespace kestro::avi {

struct IndexEntry {
  static constexpr unsigned kKey = 0x10;
  unsigned id = 0, flags = 0;
  int64 offset = 0;   // of the chunk's header
  unsigned size = 0;  // see AviFile::DataSize
  int64 place = 0;    // of the entry itself
};
using EntrySink = std::function<void(IndexEntry const&)>;

// The entries of an index chunk in their order, `base` added to their offsets: all, or those that
// the demuxer takes, which leaves out those that name no track data or have neither offset nor
// size, and those of a reserve from the first one of zeros on.
void ReadEntries(RiffReader& reader, Chunk const& index, int64 base, EntrySink const& sink,
                 bool all = false, bool reserve = false);

// Whether an entry tells the size of its chunk. The index of this system's text and motion JPEG
// counts the pad, and for JPEG the chunk's header.
bool SizeAgrees(AviTrack const& track, IndexEntry const& entry, Chunk const& chunk);

}  // namespace kestro::avi
