// Counts the chunks of a file, in its index and in its data.
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
  auto const indexed = [&](IndexEntry entry) {
    Chunk chunk;
    AviTrack const* const track = TrackOf(entry.id);
    bool const valid = track != nullptr && _reader.Header(entry.offset, Size(), chunk) &&
                       chunk.id == entry.id && !chunk.Cut() && SizeAgrees(*track, entry, chunk);
    if (!valid || !walk.Entry(chunk.offset, _reader.Next(chunk))) return;
    entry.size = static_cast<unsigned>(chunk.size);
    sink(entry);
  };
  if (_indexBase >= 0) ForEachEntry(indexed);
  walk.Finish();
  return walk.Stopped();
}

void AviFile::ForEachPacket(EntrySink const& sink) {
  if (Indexed())
    ForEachEntry(sink);
  else
    ForEachChunk(sink);
}

// Counts by the index, which also marks key frames, if it covers all data; else by the data.
void AviFile::CountChunks() {
  if (_riffs > 1) Note("the file has " + std::to_string(_riffs) + " RIFF parts");
  bool const usable = _place != Index::kNone && _indexBase >= 0 && _riffs == 1;
  std::vector<base::uint64> indexed(_tracks.size());  // chunks with data and an entry, by track
  bool const complete = usable && CountIndex(indexed);
  for (AviTrack const& track : _tracks) _hasIndex = _hasIndex || track.indexedChunks != 0;
  bool const more = !complete && CountData(indexed);
  _indexed = _hasIndex && !more;
  for (AviTrack& track : _tracks) track.keysKnown = _indexed && track.type == "video";
}

// Returns whether the index has entries for all chunks with data: these usually fill movi.
bool AviFile::CountIndex(std::vector<base::uint64>& indexed) {
  int64 left = 0;
  for (Chunk const& movi : DataLists()) left += movi.end - movi.Data();
  ForEachEntry([&](IndexEntry const& entry) {
    unsigned const size = DataSize(entry);
    left -= int64{8} + size + size % 2;
    AviTrack* const track = TrackOf(entry.id);
    if (track == nullptr) return;
    track->keyChunks += (entry.flags & IndexEntry::kKey) != 0;
    track->bytes += size;
    track->filledChunks += size != 0;
    indexed[static_cast<std::size_t>(TrackOfCode(entry.id))] += size != 0;
    track->indexedChunks = ++track->chunks;
  });
  return left == 0 || CoversAllData();
}

// Whether there is no chunk with data between the indexed ones. Assumes that there is one when the
// index is not in file order.
bool AviFile::CoversAllData() {
  bool covers = true;
  DataWalk walk(_reader, DataLists(), [&](Chunk const& chunk) {
    if (chunk.size != 0 && TrackOf(chunk.id) != nullptr) covers = false;
  });
  ForEachEntry([&](IndexEntry const& entry) {
    if (!covers) return;
    unsigned const size = DataSize(entry);
    if (!walk.Entry(entry.offset, entry.offset + 8 + size + size % 2)) covers = false;
  });
  if (covers) walk.Finish();
  return covers;
}

// Returns whether there are chunks with data that the index lacks; if not, the counts stay as they
// are.
bool AviFile::CountData(std::vector<base::uint64> const& indexed) {
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
  base::uint64 filled = 0, missing = 0;
  for (std::size_t i = 0; i < found.size(); ++i) {
    filled += found[i].filled;
    missing += std::max(found[i].filled, indexed[i]) - indexed[i];
  }
  if (_hasIndex && missing == 0) return false;
  for (std::size_t i = 0; i < found.size(); ++i) {
    _tracks[i].chunks = found[i].chunks;
    _tracks[i].bytes = found[i].bytes;
    _tracks[i].filledChunks = found[i].filled;
  }
  if (_hasIndex)
    Note("the index has entries for " + std::to_string(filled - missing) + " of " +
         Quantity(filled, "chunk") + " with data");
  if (stopped >= 0) Note("no complete chunk at offset " + std::to_string(stopped));
  return true;
}

// Takes the length from the stream header or, if that was never written, from the counts.
void AviFile::SetDurations() {
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
