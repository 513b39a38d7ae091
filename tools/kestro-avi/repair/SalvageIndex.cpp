// What an index says about the data, and how far it is believed.
#include <algorithm>

#include "repair/Salvage.h"

namespace kestro::tool {

static constexpr std::size_t kMostMissing = 1 << 16;

bool Salvage::Leads(avi::RiffReader& file, std::vector<avi::AviTrack> const& tracks,
                    avi::IndexEntry const& entry, avi::Chunk& chunk) {
  return Known(tracks, entry.id) && file.Header(entry.offset, file.Size(), chunk) &&
         chunk.id == entry.id && !chunk.Cut() && chunk.size <= kMaxPacket &&
         avi::SizeAgrees(tracks[static_cast<std::size_t>(avi::TrackOfCode(entry.id))], entry,
                         chunk);
}

void Salvage::Entry(avi::IndexEntry const& entry) {
  if (_waiting && !_stopped) Settle(&entry);
  _waiting = entry;
}

// The entry that waits, once the one after it is known.
void Salvage::Settle(avi::IndexEntry const* next) {
  avi::IndexEntry const entry = *_waiting;
  avi::Chunk chunk;
  bool const leads = Leads(_file, _tracks, entry, chunk);
  if (entry.offset < _position) {
    _counts.misled += !leads;
  } else if (leads || Headless(entry, chunk)) {
    Scan(entry.offset);
    if (!_stopped) Take(chunk, &entry, Torn(chunk, next));
    _told = _position = _file.Next(chunk);
  } else if (Known(entry.id) && entry.size <= kMaxPacket &&
             entry.offset - std::max(_position, _told) <= kMaxPacket &&
             _missing.size() < kMostMissing) {  // and not half an entry
    _told = End(entry);
    _missing.emplace(entry.offset, entry);
  } else {
    ++_counts.misled;
  }
}

// Where the chunk of an entry ends, its pad left out.
int64 Salvage::End(avi::IndexEntry const& entry) const {
  bool const headed =
      _tracks[static_cast<std::size_t>(avi::TrackOfCode(entry.id))].codec == "mjpeg";
  return entry.offset + (headed ? 0 : 8) + entry.size;
}

// Whether an entry leads to where the one before it ends.
bool Salvage::Adjoins(avi::IndexEntry const& entry) const {
  int64 const gap = entry.offset - std::max(_position, _told);
  return gap == 0 || gap == 1;  // a pad that is damaged looks like none
}

// Whether only the header of a chunk is gone or wrong: with what the index tells, more follows.
bool Salvage::Headless(avi::IndexEntry const& entry, avi::Chunk& chunk) {
  int64 const size = _file.Size();
  avi::Chunk there;
  if (!Known(entry.id) || !Adjoins(entry) ||
      (Look(entry.offset, size, there) == Sight::kData && Follows(_file.Next(there), size)))
    return false;
  std::string const& codec = _tracks[static_cast<std::size_t>(avi::TrackOfCode(entry.id))].codec;
  chunk = {entry.id, 0, entry.offset, entry.size, entry.offset + 8 + entry.size, 0};
  int64 const next = _file.Next(chunk);
  return codec != "mjpeg" && codec != "text" && chunk.size <= kMaxPacket && next <= size &&
         Follows(next, size);
}

// Whether the sector in which a packet ends is garbage: where the next header should stand, neither
// one nor zeros are, nor is that header alone damaged.
bool Salvage::Torn(avi::Chunk const& chunk, avi::IndexEntry const* next) {
  int64 const size = _file.Size(), room = kSector - chunk.end % kSector;
  avi::Chunk there;
  unsigned char bytes[kSector];
  if (room == kSector || room < 8 || _file.Read(chunk.end, bytes, unsigned(room)) != room ||
      (_file.Header(_file.Next(chunk), size, there) &&
       avi::CodeText(there.id).find('.') == std::string::npos))
    return false;
  bool const more = next != nullptr && next->offset - chunk.end <= 1;
  if (more && (!Known(next->id) || Follows(End(*next), size) || Follows(End(*next) + 1, size)))
    return false;
  return std::count(bytes, bytes + room, 0) < room / 4;
}

// Entries that lead between two offsets name packets that are gone; those in front were wrong.
void Salvage::LoseMissing(int64 begin, int64 end) {
  auto const last = _missing.lower_bound(end);
  for (auto entry = _missing.begin(); entry != last; entry = _missing.erase(entry)) {
    if (entry->first >= begin)
      Lose(entry->second.id, entry->first, entry->second.size);
    else
      ++_counts.misled;
  }
}

}  // namespace kestro::tool
