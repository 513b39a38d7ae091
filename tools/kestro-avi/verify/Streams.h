// The tracks of a file under check: their headers, and the counts of their data.
#pragma once

#include <vector>

#include "avi/AviFile.h"

namespace kestro::tool {

using base::int64;

struct Stream {
  avi::AviTrack const* track;
  avi::Chunk list = {}, header = {}, format = {};  // strl, strh, strf; size 0 if missing
  unsigned sampleSize = 0, blockAlign = 0;

  base::uint64 chunks = 0, bytes = 0, samples = 0;  // counted in movi
  base::uint64 entries = 0, keys = 0;               // counted in the index
};

// A 32-bit field of a chunk; 0 when the chunk ends before it.
unsigned Field32(avi::RiffReader& reader, avi::Chunk const& chunk, int64 at);

std::vector<Stream> ReadStreams(avi::AviFile& avi);

}  // namespace kestro::tool
