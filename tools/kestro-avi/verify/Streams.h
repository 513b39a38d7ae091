// The tracks of a file as a check sees them: their headers, and what is counted meanwhile.
#pragma once

#include <vector>

#include "avi/AviFile.h"

namespace kestro::tool {

using base::int64;

struct Stream {
  avi::AviTrack const* track;
  avi::Chunk list = {}, header = {}, format = {};  // strl, strh, strf; of size 0 where missing
  unsigned sampleSize = 0, blockAlign = 0;

  base::uint64 chunks = 0, bytes = 0, samples = 0;  // found in movi
  base::uint64 entries = 0, keys = 0;               // of the index
};

// A 32-bit field of a chunk; 0 when the chunk ends before it.
unsigned Field32(avi::RiffReader& reader, avi::Chunk const& chunk, int64 at);

std::vector<Stream> ReadStreams(avi::AviFile& avi);

}  // namespace kestro::tool
