// The index of a file.
#pragma once

#include <vector>

#include "common/IList.h"

namespace kestro::plugin::avi {

// The index entry of a data chunk of "movi". Spill files hold entries as they are in memory.
struct ChunkParam {
  unsigned id = 0;          // the chunk's four-character code
  unsigned flags = 0;       // key frame: 0x10 when writing, 1 when reading
  base::uint64 offset = 0;  // absolute file position of the chunk's header
  unsigned size = 0;        // payload bytes
  unsigned duration = 0;    // microseconds
};
static_assert(sizeof(ChunkParam) == 24);

// An index after "movi", written as a whole.
class cidx1 : public IList {
 public:
  explicit cidx1(int reserve) : IList("idx1") {
    entries.reserve(static_cast<std::size_t>(reserve));
  }

  void fill(IO& io) override;
  // The demuxer reads the entries. No memory is kept for them here: a hostile file could ask for a
  // lot.
  void parse(IO& io) override {
    dataPos = io.Tell();
    entries.shrink_to_fit();
  }

  std::vector<ChunkParam>* ChunkList() const { return &entries; }

  mutable std::vector<ChunkParam> entries;
  int64 dataPos = 0;  // of a parsed index: the position of its first entry

 protected:
  // Returns how many entries were written.
  static std::size_t WriteEntries(IO& io, ChunkParam const* first, std::size_t count);
};

// An index before "movi", written piece by piece into reserved space. Every `fill` appends the
// entries added since the last one and removes them from the list; entries that could not be
// written stay for the next `fill`. The caller updates the size field.
class cidx1_vfi : public cidx1 {
 public:
  explicit cidx1_vfi(int reserve) : cidx1(reserve) {}

  void fill(IO& io) override;

  // Limits the payload bytes that are written. Entries that do not fit are counted in the size, so
  // that the caller notices, but not written. By default there is no limit.
  void Limit(int64 bytes) { _limit = bytes; }

 private:
  bool _first = true;  // the header is still to be written; then dataPos is its position
  int64 _limit = INT64_MAX;
};

}  // namespace kestro::plugin::avi
