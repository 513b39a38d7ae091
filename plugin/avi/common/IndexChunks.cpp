#include "common/IndexChunks.h"

#include <algorithm>
#include <array>

namespace kestro::plugin::avi {

namespace {

constexpr std::size_t kEntry = 16;

unsigned char* Put32(unsigned char* at, unsigned value) {
  for (int i = 0; i < 4; ++i) *at++ = static_cast<unsigned char>(value >> (8 * i));
  return at;
}

}  // namespace

void cidx1::WriteEntries(IO& io, ChunkParam const* first, std::size_t count) {
  std::array<unsigned char, 256 * kEntry> piece;
  while (count > 0) {
    auto const part = std::min(count, piece.size() / kEntry);
    unsigned char* at = piece.data();
    for (auto const* entry = first; entry != first + part; ++entry) {
      at = Put32(at, entry->id);
      at = Put32(at, entry->flags);
      at = Put32(at, static_cast<unsigned>(entry->offset));
      at = Put32(at, entry->size);
    }
    io.Write(piece.data(), static_cast<unsigned>(part * kEntry));
    first += part;
    count -= part;
  }
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
  WriteEntries(io, entries.data(), fitting);
  _size += int64(entries.size() * kEntry);
  entries.clear();
}

}  // namespace kestro::plugin::avi
