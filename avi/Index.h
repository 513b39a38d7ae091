// Reads the entries of an index.
#pragma once

#include <functional>

#include "avi/AviTrack.h"

namespace kestro::avi {

struct IndexEntry {
  static constexpr unsigned kKey = 0x10;
  unsigned id = 0, flags = 0;
  int64 offset = 0;   // of the chunk header
  unsigned size = 0;  // see AviFile::DataSize
  int64 place = 0;    // offset of the entry itself
};
using EntrySink = std::function<void(IndexEntry const&)>;

// Calls `sink` for the entries of an index chunk in order, with `base` added to their offsets.
// Unless `all` is set, skips entries that the demuxer skips: those that are not track data, and
// those with neither offset nor size. With `reserve` it stops at the first entry of zeros.
void ReadEntries(RiffReader& reader, Chunk const& index, int64 base, EntrySink const& sink,
                 bool all = false, bool reserve = false);

// Whether the size in an entry matches its chunk. In files of this system, the entries of text and
// motion JPEG also count the pad byte, and for JPEG the chunk header.
bool SizeAgrees(AviTrack const& track, IndexEntry const& entry, Chunk const& chunk);

}  // namespace kestro::avi
