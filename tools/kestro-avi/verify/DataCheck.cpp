#include "verify/DataCheck.h"

#include <algorithm>

#include "verify/FlaggedFrames.h"

namespace kestro::tool {

using base::Convert4;

static constexpr std::size_t kMostUnindexed = 1 << 21;

static bool IsPartIndex(unsigned id) { return (id & 0xFFFF) == Convert4("ix"); }

static std::string ChunkText(unsigned id, int64 size) {
  return avi::CodeText(id) + " of " + std::to_string(size) + " bytes";
}

DataCheck::DataCheck(avi::AviFile& avi, std::vector<Stream>& streams, bool deep, Findings& findings,
                     std::function<void(int64)> const& advance)
    : _avi(avi),
      _reader(avi.Reader()),
      _streams(streams),
      _deep(deep),
      _findings(findings),
      _advance(advance),
      _converters(avi.Tracks().begin(), avi.Tracks().end()) {
  for (avi::Chunk const& chunk : avi.Tree())
    if (chunk.type == Convert4("movi")) _movis.push_back(chunk);
}

void DataCheck::Run() {
  bool indexed = false;
  for (avi::Chunk const& movi : _movis) {
    _movi = movi;
    _position = movi.Data();
    bool const first = movi.offset == _movis.front().offset;
    if (first && (indexed = FindBase())) {
      _avi.ForEachEntry([this](avi::IndexEntry const& entry) { CheckEntry(entry); }, true);
      if (_avi.IndexPlace() != avi::AviFile::Index::kFirst) CheckHole();
    }
    CheckGap(movi.end, first && indexed);
  }
  ReportUnindexed();
  if (!indexed) return;
  for (Stream const& stream : _streams)
    if (stream.track->type == "video" && stream.entries != 0 && stream.keys == 0)
      _findings.Add(found::kNoKey, _avi.IndexChunk().offset, "a key frame",
                    std::to_string(stream.entries) + " entries without");
  for (avi::IndexEntry const& entry : FlaggedFrames(_avi))
    _findings.Add(found::kAllKeys, entry.place, int64{0}, int64{entry.flags});
}

// Returns false when the chunk already had an entry.
bool DataCheck::CheckIndexedChunk(avi::IndexEntry const& entry, avi::Chunk const& chunk) {
  if (chunk.offset >= _position) {
    CheckGap(chunk.offset, true);
    CheckChunk(chunk);
    return true;
  }
  auto const earlier =
      std::lower_bound(_unindexed.begin(), _unindexed.end(), chunk.offset,
                       [](Unindexed const& other, int64 offset) { return other.offset < offset; });
  if (earlier != _unindexed.end() && earlier->offset == chunk.offset && earlier->size >= 0) {
    earlier->size = -1;
    _findings.Add(found::kEntryOrder, entry.place, "at least " + std::to_string(_position),
                  chunk.offset);
  } else if (_complete) {
    _findings.Add(found::kEntryTwice, entry.place, "another chunk",
                  avi::CodeText(chunk.id) + " at " + std::to_string(chunk.offset));
    return false;
  }
  return true;
}

// Checks the data from the current position to `end`, which has no index entries.
void DataCheck::CheckGap(int64 end, bool indexed) {
  int64 const stopped = _reader.ScanData(_position, end, [&](avi::Chunk const& chunk) {
    StreamOf(chunk.id, chunk.offset);
    CheckChunk(chunk);
    if (!indexed) return;
    _complete = _complete && _unindexed.size() < kMostUnindexed;
    if (_complete)
      _unindexed.push_back({chunk.offset, chunk.size, chunk.id});
    else
      _findings.Add(found::kNotIndexed, chunk.offset, "an entry", ChunkText(chunk.id, chunk.size));
  });
  if (stopped < end) ReportStop(stopped, end);
  _position = std::max(_position, end);
}

// The chunks end before `end`.
void DataCheck::ReportStop(int64 at, int64 end) {
  avi::Chunk chunk;
  bool const header = _reader.Header(at, _movi.end, chunk);
  if (header && avi::IsDataCode(chunk.id) && chunk.Cut())
    CheckChunk(chunk);
  else if (header && chunk.id == Convert4("idx1"))
    _findings.Add(found::kMoviSize, _movi.offset, at - _movi.Payload(), _movi.size);
  else
    _findings.Add(found::kNoChunk, at, "a chunk", std::to_string(end - at) + " bytes");
}

// Called once for each data chunk.
void DataCheck::CheckChunk(avi::Chunk const& chunk) {
  int64 const end = chunk.Payload() + chunk.size;
  bool const cut = end > _movi.end;
  if (cut) _findings.Add(found::kDataCut, chunk.offset, chunk.size, _movi.end - chunk.Payload());
  _position = cut ? _movi.end : chunk.size % 2 != 0 ? CheckPad(end) : end;
  _advance(_position);
  auto const number = static_cast<std::size_t>(avi::TrackOfCode(chunk.id));
  if (cut || number >= _streams.size()) return;
  Stream& stream = _streams[number];
  ++stream.chunks;
  stream.bytes += static_cast<uint64>(chunk.size);
  if (stream.sampleSize != 0) stream.samples += static_cast<uint64>(chunk.size) / stream.sampleSize;
  if (stream.track->codec == "pcm" && stream.blockAlign != 0 && chunk.size % stream.blockAlign != 0)
    _findings.Add(found::kAudioFrame, chunk.offset,
                  "a multiple of " + std::to_string(stream.blockAlign), chunk.size);
}

// Returns the end of the pad byte.
int64 DataCheck::CheckPad(int64 end) {
  unsigned char pad = 0;
  bool const room = end < _movi.end && _reader.Read(end, &pad, 1) == 1;
  if (room && pad == 0) return end + 1;
  bool const missing = !room || IsChunk(end);
  if (missing)
    _findings.Add(found::kPadMissing, end, "a pad byte", room ? "a chunk" : "the end of movi");
  else
    _findings.Add(found::kPadValue, end, int64{0}, int64{pad});
  return missing ? end : end + 1;
}

// Whether there is a chunk that may occur in movi, or movi ends here.
bool DataCheck::IsChunk(int64 at) {
  avi::Chunk chunk;
  if (at >= _movi.end) return at - _movi.end <= 1;
  return _reader.Header(at, _movi.end, chunk) &&
         (avi::IsDataCode(chunk.id) || IsPartIndex(chunk.id) || chunk.id == Convert4("JUNK") ||
          chunk.type == Convert4("rec "));
}

void DataCheck::ReportUnindexed() {
  for (Unindexed const& chunk : _unindexed)
    if (chunk.size > 0)  // an empty one needs no entry
      _findings.Add(found::kNotIndexed, chunk.offset, "an entry", ChunkText(chunk.id, chunk.size));
}

}  // namespace kestro::tool
