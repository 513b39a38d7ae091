#include "repair/Coverage.h"

#include <algorithm>

#include "repair/Salvage.h"

namespace kestro::tool {

static constexpr int64 kSamples = 256;
static constexpr std::size_t kLast = 16;
static constexpr int64 kEntry = 16, kHead = 8;

void TrackSum::Add(avi::AviTrack const& track, unsigned size) {
  ++packets;
  bytes += size;
  entries += size != 0;
  units += track.type == "audio" ? size / track.scale : 1;
  largest = std::max(largest, size);
}

void TrackSum::operator+=(TrackSum const& more) {
  packets += more.packets;
  bytes += more.bytes;
  units += more.units;
  entries += more.entries;
  largest = std::max(largest, more.largest);
}

Coverage::Coverage(avi::RiffReader& file, Layout const& layout)
    : _file(file),
      _layout(layout),
      _step((file.Size() - layout.Data()) / kSamples),
      _end(layout.Data()),
      _sums(layout.tracks.size()),
      _beyond(layout.tracks.size()) {}

void Coverage::Fail(avi::IndexEntry const& entry, char const* what) {
  if (_fault.empty())
    _fault = "the index entry at offset " + std::to_string(entry.place) + " " + what;
}

// The bytes of its packet. See avi::SizeAgrees; a text counts its pad byte here, too.
int64 Coverage::Payload(avi::IndexEntry const& entry) const {
  bool const headed =
      _layout.tracks[static_cast<std::size_t>(avi::TrackOfCode(entry.id))].codec == "mjpeg";
  return int64{entry.size} - (headed ? kHead : 0);
}

void Coverage::Add(avi::IndexEntry const& entry) {
  if (!Good()) return;
  bool const adjacent = _place < 0 || entry.place == _place;
  _place = entry.place + kEntry;
  if (!adjacent) return Fail(entry, "follows one that is damaged");
  if (!Salvage::IsTrackData(_layout.tracks, entry.id) || Payload(entry) < 0)
    return Fail(entry, "is not one of a packet");
  int64 const size = Payload(entry), end = entry.offset + kHead + size;
  auto const track = static_cast<std::size_t>(avi::TrackOfCode(entry.id));
  if (entry.offset < _end) return Fail(entry, "points to an earlier chunk");
  _all = _all && end <= _file.Size();
  if (!_all) return _beyond[track].Add(_layout.tracks[track], static_cast<unsigned>(size));
  if (!PassEmpty(entry.offset)) return Fail(entry, "does not follow the one before");
  if (entry.offset >= _sample) {
    if (!PointsToChunk(entry)) return Fail(entry, "does not point to its chunk");
    _sample = entry.offset + _step;
  }
  _end = end + size % 2;
  ++_entries;
  _sums[track].Add(_layout.tracks[track], static_cast<unsigned>(size));
  _last.push_back(entry);
  if (_last.size() > kLast) _last.pop_front();
}

bool Coverage::PointsToChunk(avi::IndexEntry const& entry) {
  avi::Chunk chunk;
  return Salvage::PointsToChunk(_file, _layout.tracks, entry, chunk);
}

// Passes the chunks that have no entry because they are empty, or JUNK.
bool Coverage::PassEmpty(int64 limit) {
  avi::Chunk chunk;
  while (_end < limit) {
    if (!_file.Header(_end, limit, chunk) || chunk.Cut()) return false;
    bool const data = Salvage::IsTrackData(_layout.tracks, chunk.id);
    if (chunk.id != base::Convert4("JUNK") && !(data && chunk.size == 0)) return false;
    if (data) {
      auto const track = static_cast<std::size_t>(avi::TrackOfCode(chunk.id));
      if (_layout.tracks[track].codec != "mjpeg") _sums[track].Add(_layout.tracks[track], 0);
    }
    _end = _file.Next(chunk);
  }
  return _end == limit;
}

void Coverage::Finish() {
  for (avi::IndexEntry const& entry : _last)
    if (Good() && !PointsToChunk(entry)) Fail(entry, "does not point to its chunk");
}

}  // namespace kestro::tool
