// The index of a file.
#pragma once

#include <vector>

#include "common/IList.h"

namespace kestro::plugin::avi {

// One data chunk of "movi". Spill files hold these records as they are in memory.
struct ChunkParam {
  unsigned id = 0;          // the chunk's four-character code
  unsigned flags = 0;       // 0x10 for a key frame; on reading bit 0
  base::uint64 offset = 0;  // absolute file position of the chunk's header
  unsigned size = 0;        // payload bytes
  unsigned duration = 0;    // microseconds
};
static_assert(sizeof(ChunkParam) == 24);

// An index behind "movi", written as a whole.
class cidx1 : public IList {
 public:
  explicit cidx1(int reserve) : IList("idx1") {
    entries.reserve(static_cast<std::size_t>(reserve));
  }

  void fill(IO& io) override;
  // The entries are left to the demuxer: they need no room here, of which a file could ask for
  // much.
  void parse(IO& io) override {
    dataPos = io.Tell();
    entries.shrink_to_fit();
  }

  std::vector<ChunkParam>* ChunkList() const { return &entries; }

  mutable std::vector<ChunkParam> entries;
  int64 dataPos = 0;  // of a parsed index: where its first entry stands

 protected:
  // Returns how many were written.
  static std::size_t WriteEntries(IO& io, ChunkParam const* first, std::size_t count);
};

// An index in front of "movi", written piece by piece into reserved space: every `fill` appends the
// entries gathered since the last one and forgets them; those that could not be written stay, and
// come with the next. The size field is the caller's to update.
class cidx1_vfi : public cidx1 {
 public:
  explicit cidx1_vfi(int reserve) : cidx1(reserve) {}

  void fill(IO& io) override;

  // The payload bytes that may be written; what does not fit is counted in the size, so that it
  // shows, but not written. Without a call there is no limit.
  void Limit(int64 bytes) { _limit = bytes; }

 private:
  bool _first = true;  // the header is still to be written; then dataPos is its position
  int64 _limit = INT64_MAX;
};

}  // namespace kestro::plugin::avi
