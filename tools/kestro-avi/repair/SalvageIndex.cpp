// Uses the index entries, as far as the data confirms them.
#include <algorithm>

#include "repair/Salvage.h"

namespace kestro::tool {

static constexpr std::size_t kMostMissing = 1 << 16;

bool Salvage::PointsToChunk(avi::RiffReader& file, std::vector<avi::AviTrack> const& tracks,
                            avi::IndexEntry const& entry, avi::Chunk& chunk) {
  return IsTrackData(tracks, entry.id) && file.Header(entry.offset, file.Size(), chunk) &&
         chunk.id == entry.id && !chunk.Cut() && chunk.size <= kMaxPacket &&
         avi::SizeAgrees(tracks[static_cast<std::size_t>(avi::TrackOfCode(entry.id))], entry,
                         chunk);
}

void Salvage::AddEntry(avi::IndexEntry const& entry) {
  if (_waiting && !_stopped) ProcessWaiting(&entry);
  _waiting = entry;
}

// Processes the waiting entry when the next one is known, or null at the end.
void Salvage::ProcessWaiting(avi::IndexEntry const* next) {
  avi::IndexEntry const entry = *_waiting;
  avi::Chunk chunk;
  bool const valid = PointsToChunk(_file, _tracks, entry, chunk);
  if (entry.offset < _position) {
    _counts.misled += !valid;
  } else if (valid || LostOnlyHeader(entry, chunk)) {
    Scan(entry.offset);
    if (!_stopped) KeepPacket(chunk, &entry, EndsInGarbage(chunk, next));
    _missingEnd = _position = _file.Next(chunk);
  } else if (IsTrackData(entry.id) && entry.size <= kMaxPacket &&
             entry.offset - std::max(_position, _missingEnd) <= kMaxPacket &&
             _missing.size() < kMostMissing) {  // else the entry itself is damaged
    _missingEnd = ChunkEnd(entry);
    _missing.emplace(entry.offset, entry);
  } else {
    ++_counts.misled;
  }
}

// The end of an entry's chunk, without its pad byte.
int64 Salvage::ChunkEnd(avi::IndexEntry const& entry) const {
  bool const headed =
      _tracks[static_cast<std::size_t>(avi::TrackOfCode(entry.id))].codec == "mjpeg";
  return entry.offset + (headed ? 0 : 8) + entry.size;
}

// Whether an entry points to the end of the previous chunk.
bool Salvage::IsAdjacent(avi::IndexEntry const& entry) const {
  int64 const gap = entry.offset - std::max(_position, _missingEnd);
  return gap == 0 || gap == 1;  // a damaged pad byte looks like none
}

// Whether only the header of a chunk is lost: with the size in the entry, another chunk follows it.
bool Salvage::LostOnlyHeader(avi::IndexEntry const& entry, avi::Chunk& chunk) {
  int64 const size = _file.Size();
  avi::Chunk there;
  if (!IsTrackData(entry.id) || !IsAdjacent(entry) ||
      (ReadChunk(entry.offset, size, there) == ChunkKind::kData &&
       IsChunk(_file.Next(there), size)))
    return false;
  std::string const& codec = _tracks[static_cast<std::size_t>(avi::TrackOfCode(entry.id))].codec;
  chunk = {entry.id, 0, entry.offset, entry.size, entry.offset + 8 + entry.size, 0};
  int64 const next = _file.Next(chunk);
  return codec != "mjpeg" && codec != "text" && chunk.size <= kMaxPacket && next <= size &&
         IsChunk(next, size);
}

// Whether the sector in which a packet ends is garbage: the packet is followed neither by a chunk
// header nor by zeros, and more than that header is damaged.
bool Salvage::EndsInGarbage(avi::Chunk const& chunk, avi::IndexEntry const* next) {
  int64 const size = _file.Size(), room = kSector - chunk.end % kSector;
  avi::Chunk there;
  unsigned char bytes[kSector];
  if (room == kSector || room < 8 || _file.Read(chunk.end, bytes, unsigned(room)) != room ||
      (_file.Header(_file.Next(chunk), size, there) &&
       avi::CodeText(there.id).find('.') == std::string::npos))
    return false;
  bool const more = next != nullptr && next->offset - chunk.end <= 1;
  if (more && (!IsTrackData(next->id) || IsChunk(ChunkEnd(*next), size) ||
               IsChunk(ChunkEnd(*next) + 1, size)))
    return false;
  return std::count(bytes, bytes + room, 0) < room / 4;
}

// Counts missing entries that point between two offsets as lost packets, and earlier ones as wrong.
void Salvage::LoseMissing(int64 begin, int64 end) {
  auto const last = _missing.lower_bound(end);
  for (auto entry = _missing.begin(); entry != last; entry = _missing.erase(entry)) {
    if (entry->first >= begin)
      AddLoss(entry->second.id, entry->first, entry->second.size);
    else
      ++_counts.misled;
  }
}

}  // namespace kestro::tool
