// What the tracks of a file hold, by its index and by its data.
#include <algorithm>
#include <cmath>

#include "avi/AviFile.h"
#include "avi/DataWalk.h"
#include "avi/Text.h"

namespace kestro::avi {

std::vector<Chunk> AviFile::DataLists() const {
  std::vector<Chunk> lists;
  for (Chunk const& chunk : _tree)
    if (chunk.type == base::Convert4("movi")) lists.push_back(chunk);
  return lists;
}

int64 AviFile::ForEachChunk(EntrySink const& sink) {
  DataWalk walk(_reader, DataLists(), [&](Chunk const& chunk) {
    sink({chunk.id, 0, chunk.offset, static_cast<unsigned>(chunk.size)});
  });
  auto const named = [&](IndexEntry entry) {
    Chunk chunk;
    AviTrack const* const track = TrackOf(entry.id);
    bool const leads = track != nullptr && _reader.Header(entry.offset, Size(), chunk) &&
                       chunk.id == entry.id && !chunk.Cut() && SizeAgrees(*track, entry, chunk);
    if (!leads || !walk.Entry(chunk.offset, _reader.Next(chunk))) return;
    entry.size = static_cast<unsigned>(chunk.size);
    sink(entry);
  };
  if (_indexBase >= 0) ForEachEntry(named);
  walk.Rest();
  return walk.Stopped();
}

// By the index, which knows key frames too, where it names all data; else by the data.
void AviFile::Count() {
  if (_riffs > 1) Note("the file has " + std::to_string(_riffs) + " RIFF parts");
  bool const usable = _place != Index::kNone && _indexBase >= 0 && _riffs == 1;
  std::vector<base::uint64> named(_tracks.size());  // chunks with data
  bool const whole = usable && CountIndex(named);
  for (AviTrack const& track : _tracks) _hasIndex = _hasIndex || track.indexedChunks != 0;
  bool const more = !whole && CountData(named);
  _indexed = _hasIndex && !more;
  for (AviTrack& track : _tracks) track.keysKnown = _indexed && track.type == "video";
}

// Whether the index is known to name all chunks with data: as a rule they fill movi.
bool AviFile::CountIndex(std::vector<base::uint64>& named) {
  int64 left = 0;
  for (Chunk const& movi : DataLists()) left += movi.end - movi.Data();
  ForEachEntry([&](IndexEntry const& entry) {
    unsigned const size = DataSize(entry);
    left -= int64{8} + size + size % 2;
    AviTrack* const track = TrackOf(entry.id);
    if (track == nullptr) return;
    track->keyChunks += (entry.flags & IndexEntry::kKey) != 0;
    track->bytes += size;
    named[static_cast<std::size_t>(TrackOfCode(entry.id))] += size != 0;
    track->indexedChunks = ++track->chunks;
  });
  return left == 0 || NothingBetween();
}

// Whether no chunk with data lies between those that the index names. Not known for an index that
// is not in the order of the data.
bool AviFile::NothingBetween() {
  bool known = true;
  DataWalk walk(_reader, DataLists(), [&](Chunk const& chunk) {
    if (chunk.size != 0 && TrackOf(chunk.id) != nullptr) known = false;
  });
  ForEachEntry([&](IndexEntry const& entry) {
    if (!known) return;
    unsigned const size = DataSize(entry);
    if (!walk.Entry(entry.offset, entry.offset + 8 + size + size % 2)) known = false;
  });
  if (known) walk.Rest();
  return known;
}

// Whether there is more than the index names; if not, what was counted before stays.
bool AviFile::CountData(std::vector<base::uint64> const& named) {
  struct Content {
    base::uint64 chunks = 0, filled = 0, bytes = 0;
  };
  std::vector<Content> found(_tracks.size());
  int64 const stopped = ForEachChunk([&](IndexEntry const& chunk) {
    if (TrackOf(chunk.id) == nullptr) return;
    Content& content = found[static_cast<std::size_t>(TrackOfCode(chunk.id))];
    ++content.chunks;
    content.filled += chunk.size != 0;
    content.bytes += chunk.size;
  });
  base::uint64 filled = 0, unnamed = 0;
  for (std::size_t i = 0; i < found.size(); ++i) {
    filled += found[i].filled;
    unnamed += std::max(found[i].filled, named[i]) - named[i];
  }
  if (_hasIndex && unnamed == 0) return false;
  for (std::size_t i = 0; i < found.size(); ++i) {
    _tracks[i].chunks = found[i].chunks;
    _tracks[i].bytes = found[i].bytes;
  }
  if (_hasIndex)
    Note("the index names " + std::to_string(filled - unnamed) + " of " +
         Quantity(filled, "chunk") + " with data");
  if (stopped >= 0) Note("no whole chunk at offset " + std::to_string(stopped));
  return true;
}

// By the stream header; by what was counted when that was not finished.
void AviFile::Time() {
  constexpr double kLongest = 1e15;
  for (AviTrack& track : _tracks) {
    double seconds = 0;
    if (track.length != 0 && track.rate != 0)
      seconds = static_cast<double>(track.length) * track.scale / track.rate;
    else if (track.type == "audio" && track.bytesPerSecond != 0)
      seconds = static_cast<double>(track.bytes) / track.bytesPerSecond;
    else if (track.type == "video" && track.rate != 0)
      seconds = static_cast<double>(track.chunks) * track.scale / track.rate;
    track.duration_ms = std::llround(std::min(seconds * 1000, kLongest));
  }
}

}  // namespace kestro::avi
