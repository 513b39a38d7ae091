#include "avi/Index.h"

#include <algorithm>

#include "base/LittleEndian.h"

namespace kestro::avi {

void ReadEntries(RiffReader& reader, Chunk const& index, int64 base, EntrySink const& sink,
                 bool all, bool reserve) {
  constexpr unsigned kEntry = 16, kEntries = 256;
  unsigned char block[kEntry * kEntries];
  for (int64 at = index.Payload(); index.end - at >= kEntry;) {
    auto const want = static_cast<unsigned>(std::min<int64>(sizeof block, index.end - at));
    unsigned const n = reader.Read(at, block, want) / kEntry;
    if (n == 0) return;
    for (unsigned i = 0; i < n; ++i) {
      auto field = [&](std::size_t number) {
        return base::Load32(block + std::size_t{i} * kEntry + number * 4);
      };
      bool const empty = !all && field(2) == 0 && field(3) == 0;
      if (empty && reserve && field(0) == 0 && field(1) == 0) return;
      if (empty || (!all && !IsDataCode(field(0)))) continue;
      sink({field(0), field(1), base + field(2), field(3), at + int64{i} * kEntry});
    }
    at += static_cast<int64>(n) * kEntry;
  }
}

bool SizeAgrees(AviTrack const& track, IndexEntry const& entry, Chunk const& chunk) {
  int64 const more = int64{entry.size} - chunk.size, pad = chunk.size % 2;
  if (more == 0) return true;
  if (track.codec == "text") return more == pad;
  return track.codec == "mjpeg" && (more == 8 || more == 8 + pad);
}

}  // namespace kestro::avi
