#include "avi/AviFile.h"

#include <algorithm>

#include "avi/Error.h"

namespace kestro::avi {

using base::Convert4;

static constexpr int kMaxDepth = 16;
static constexpr std::size_t kMaxNodes = 65536;
static constexpr std::size_t kMaxTracks = 100;  // chunk codes have two digits

static constexpr unsigned kRiff = Convert4("RIFF"), kMovi = Convert4("movi");

void AviFile::Read(std::string const& name) {
  Chunk riff;
  if (!_reader.Header(0, Size(), riff) || riff.id != kRiff)
    throw Error(kUnusable, name + ": not a RIFF file: no RIFF at offset 0");
  if (riff.type != Convert4("AVI "))
    throw Error(kUnusable, name + ": a RIFF file of type \"" + CodeText(riff.type) +
                               "\" at offset 8, not AVI");
  ReadTree(0, Size(), 0);
  ReadTracks();
  if (_tracks.empty())
    throw Error(kUnusable, name + ": an AVI file without stream headers: " + MissingHeaders());
  FindIndex();
  CountChunks();
  SetDurations();
}

// Which list is missing, and where.
std::string AviFile::MissingHeaders() const {
  for (Chunk const& chunk : _tree)
    if (chunk.type == Convert4("hdrl"))
      return "no strl in the list hdrl at offset " + std::to_string(chunk.offset);
  return "no list hdrl at offset " + std::to_string(_tree.front().Data());
}

// In a recording that was cut off, RIFF and movi still have their initial sizes: the chunks that
// follow belong to them.
void AviFile::ExtendUnfinished(Chunk& chunk, int64 limit) {
  Chunk next;
  bool const more = _reader.Header(chunk.end, limit, next);
  if (chunk.id == kRiff && more && next.id != kRiff) {
    chunk.end = limit;
  } else if (chunk.type == kMovi && more && (IsDataCode(next.id) || chunk.size < 4)) {
    chunk.end = std::min(limit, _reader.ScanData(chunk.end, limit, [](Chunk const&) {}));
    _cutOff = true;
    Note("the size of movi was never written");
  }
}

void AviFile::ReadTree(int64 begin, int64 limit, int depth) {
  Chunk chunk;
  for (int64 at = begin; _reader.Header(at, limit, chunk); at = _reader.Next(chunk)) {
    if (CodeText(chunk.id).find('.') != std::string::npos || chunk.id == 0) {
      Note("no chunk at offset " + std::to_string(at));
      return;
    }
    if (_tree.size() == kMaxNodes || depth > kMaxDepth) {
      Note("too many chunks: ignoring those from offset " + std::to_string(at));
      return;
    }
    chunk.depth = depth;
    if (chunk.Cut()) {
      _cutOff = true;
      Note(CodeText(chunk.id) + " at offset " + std::to_string(at) + " ends " +
           std::to_string(chunk.Payload() + chunk.size - chunk.end) + " bytes early");
    }
    ExtendUnfinished(chunk, limit);
    _riffs += chunk.id == kRiff;
    _tree.push_back(chunk);
    if (chunk.type != 0 && chunk.type != kMovi) ReadTree(chunk.Data(), chunk.end, depth + 1);
  }
}

void AviFile::ReadTracks() {
  bool inTrack = false;  // inside the strl of a listed track
  for (Chunk const& chunk : _tree) {
    if (chunk.type != 0) {
      inTrack = chunk.type == Convert4("strl") && _tracks.size() < kMaxTracks;
      if (inTrack) _tracks.emplace_back();
    } else if (inTrack && chunk.id == Convert4("strh")) {
      ReadStreamHeader(_reader, chunk, _tracks.back());
    } else if (inTrack && chunk.id == Convert4("strf")) {
      ReadStreamFormat(_reader, chunk, _tracks.back());
    } else if (inTrack && chunk.id == Convert4("strn")) {
      _tracks.back().name = ReadText(_reader, chunk);
    } else if (inTrack && chunk.id == Convert4("strd")) {
      _tracks.back().streamData = chunk;
    }
  }
}

Software AviFile::ReadSoftware() {
  for (Chunk const& chunk : _tree)
    if (chunk.id == Convert4("isft") || chunk.id == Convert4("ISFT"))
      return Software::Parse(ReadText(_reader, chunk));
  return {};
}

void AviFile::FindIndex() {
  bool data = false;
  Chunk movi;
  for (Chunk const& chunk : _tree) {
    if (chunk.type == kMovi && !data) {
      movi = chunk;
      data = true;
    } else if (chunk.id == Convert4("idx1") && _place == Index::kNone) {
      _index = chunk;
      _place = data ? Index::kLast : Index::kFirst;
    }
  }
  if (!data) {
    _cutOff = true;
    Note("no movi list");
  }
  if (_place == Index::kNone) return;

  // The first entry shows what the offsets are relative to.
  unsigned first = 0;
  int64 offset = 0;
  ForEachEntry([&](IndexEntry const& entry) {
    if (first == 0) first = entry.id, offset = entry.offset;
  });
  Chunk at;
  auto pointsToChunk = [&](int64 base) {
    return _reader.Header(base + offset, Size(), at) && at.id == first;
  };
  if (first == 0) {
    _indexBase = -1;
    Note("the index is empty");
  } else if (!pointsToChunk(0)) {
    if (data && pointsToChunk(movi.Payload())) {
      _indexBase = movi.Payload();
      Note("index offsets are relative to movi");
    } else {
      _indexBase = -1;
      Note("the index does not point to chunks");
    }
  }
}

void AviFile::ForEachEntry(EntrySink const& sink, bool all) {
  if (_place != Index::kNone)
    ReadEntries(_reader, _index, std::max<int64>(_indexBase, 0), sink, all,
                _place == Index::kFirst);
}

AviTrack* AviFile::TrackOf(unsigned id) {
  auto const number = static_cast<std::size_t>(TrackOfCode(id));
  return number < _tracks.size() ? &_tracks[number] : nullptr;
}

unsigned AviFile::DataSize(IndexEntry const& entry) {
  AviTrack const* const track = TrackOf(entry.id);
  if (track == nullptr) return entry.size;
  std::string const& codec = track->codec;
  Chunk chunk;
  if ((codec != "text" && codec != "mjpeg") || !_reader.Header(entry.offset, Size(), chunk) ||
      chunk.id != entry.id)
    return entry.size;
  int64 const padded = chunk.size + chunk.size % 2;
  bool const agrees = entry.size == padded || entry.size == padded + 8;
  return agrees ? static_cast<unsigned>(chunk.size) : entry.size;
}

int64 AviFile::Skew_ms() const {
  int64 least = INT64_MAX, most = 0;
  for (AviTrack const& track : _tracks) {
    if (track.type != "video" && track.type != "audio") continue;
    least = std::min(least, track.duration_ms);
    most = std::max(most, track.duration_ms);
  }
  return std::max<int64>(0, most - least);
}

int64 AviFile::Duration_ms() const {
  int64 longest = 0;
  for (AviTrack const& track : _tracks) longest = std::max(longest, track.duration_ms);
  return longest;
}

std::size_t AviFile::ClockOf(std::size_t track) const {
  if (_tracks[track].type != "text") return track;
  for (std::size_t i = 0; i < _tracks.size(); ++i)
    if (_tracks[i].type == "video" && _tracks[i].chunks != 0) return i;
  return track;
}

}  // namespace kestro::avi
