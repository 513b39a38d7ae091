#include "common/IndexChunks.h"

#include <algorithm>
#include <array>

#include "base/LittleEndian.h"

namespace kestro::plugin::avi {

namespace {
constexpr std::size_t kEntry = 16;
}  // namespace

std::size_t cidx1::WriteEntries(IO& io, ChunkParam const* first, std::size_t count) {
  std::array<unsigned char, 256 * kEntry> piece;
  std::size_t written = 0;
  while (written < count) {
    auto const part = std::min(count - written, piece.size() / kEntry);
    unsigned char* at = piece.data();
    for (auto const* entry = first + written; entry != first + written + part; ++entry) {
      at = base::Store32(at, entry->id);
      at = base::Store32(at, entry->flags);
      at = base::Store32(at, static_cast<unsigned>(entry->offset));
      at = base::Store32(at, entry->size);
    }
    auto const done = io.Write(piece.data(), static_cast<unsigned>(part * kEntry)) / kEntry;
    written += std::min(done, part);
    if (done != part) break;
  }
  return written;
}

void cidx1::fill(IO& io) {
  IList::fill(io);
  WriteEntries(io, entries.data(), entries.size());
}

void cidx1_vfi::fill(IO& io) {
  if (_first) {
    dataPos = io.Tell();
    WriteHeader(io);
    _first = false;
  }
  int64 const room = std::max<int64>(_limit - _size, 0) / int64(kEntry);
  auto const fitting = std::min(entries.size(), static_cast<std::size_t>(room));
  io.Seek(dataPos + 8 + std::min(_size, _limit), IO::kBegin);
  std::size_t const written = WriteEntries(io, entries.data(), fitting);
  std::size_t const gone = written < fitting ? written : entries.size();
  _size += int64(gone * kEntry);
  entries.erase(entries.begin(), entries.begin() + static_cast<std::ptrdiff_t>(gone));
}

}  // namespace kestro::plugin::avi
