#include "verify/DataCheck.h"

#include <algorithm>

#include "verify/FlaggedFrames.h"
#include "verify/KeyFrame.h"

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
      _advance(advance) {
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
      _avi.ForEachEntry([this](avi::IndexEntry const& entry) { Entry(entry); }, true);
      if (_hole >= 0 && _avi.IndexPlace() != avi::AviFile::Index::kFirst)
        _findings.Add(found::kIndexHole, _hole, "an entry", "zeros");
    }
    Gap(movi.end, first && indexed);
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

// Whether the index can be followed. The first entry may be the one that is wrong: the first few
// tell what offsets count from.
bool DataCheck::FindBase() {
  if (_avi.IndexPlace() == avi::AviFile::Index::kNone) {
    _findings.Add(found::kNoIndex, _movi.end, "idx1", "none");
    return false;
  }
  avi::Chunk const& index = _avi.IndexChunk();
  if (_avi.IndexPlace() == avi::AviFile::Index::kLast && index.size % 16 != 0)
    _findings.Add(found::kIndexLength, index.offset, index.size / 16 * 16, index.size);
  constexpr int kFew = 256;
  int few = 0, absolute = 0, relative = 0;
  int64 const from = std::max<int64>(_avi.IndexBase(), 0);
  _avi.ForEachEntry([&](avi::IndexEntry const& entry) {
    if (++few > kFew) return;
    avi::Chunk chunk;
    auto leads = [&](int64 offset) {
      return _reader.Header(offset, _avi.Size(), chunk) && chunk.id == entry.id;
    };
    absolute += leads(entry.offset - from);
    relative += leads(entry.offset - from + _movi.Payload());
  });
  if (few == 0)
    _findings.Add(found::kIndexEmpty, index.offset, "entries", "none");
  else if (absolute == 0 && relative == 0)
    _findings.Add(found::kIndexAstray, index.offset, "offsets of chunks", "others");
  else if (relative > absolute)
    _findings.Add(found::kFromMovi, index.offset, int64{0}, _movi.Payload());
  _base = (relative > absolute ? _movi.Payload() : 0) - from;
  return absolute != 0 || relative != 0;
}

void DataCheck::Entry(avi::IndexEntry entry) {
  if (entry.id == 0) {  // what is left of a reserve
    if (_hole < 0) _hole = entry.place;
    return;
  }
  if (_hole >= 0) _findings.Add(found::kIndexHole, _hole, "an entry", "zeros");
  _hole = -1;
  if (!Known(entry)) return;
  entry.offset += _base;
  Stream* const stream = StreamOf(entry.id, entry.place);
  if (stream == nullptr) return;

  avi::Chunk chunk;
  bool const there = _reader.Header(entry.offset, _avi.Size(), chunk);
  if (!there || chunk.id != entry.id) {
    int64 const end = entry.offset + 8 + entry.size + entry.size % 2;
    if (!there || entry.offset != _position || !Follows(end)) {
      _findings.Add(found::kEntryOffset, entry.place,
                    avi::CodeText(entry.id) + " at " + std::to_string(entry.offset),
                    there ? "\"" + avi::CodeText(chunk.id) + "\"" : "no chunk");
      return;
    }
    _findings.Add(found::kChunkId, entry.offset, avi::CodeText(entry.id), avi::CodeText(chunk.id));
    chunk.id = entry.id;
  }
  auto const inside = [&](avi::Chunk const& movi) {
    return entry.offset >= movi.Data() && entry.offset < movi.end;
  };
  if (std::none_of(_movis.begin(), _movis.end(), inside)) {
    _findings.Add(found::kEntryOutside, entry.place,
                  std::to_string(_movi.Data()) + " to " + std::to_string(_movi.end), entry.offset);
    return;
  }
  if (!avi::SizeAgrees(*stream->track, entry, chunk)) Resized(entry, chunk);
  if (inside(_movi) && !Cover(entry, chunk)) return;
  Key(entry, *stream);
}

// Whether it is an entry of track data.
bool DataCheck::Known(avi::IndexEntry const& entry) {
  constexpr unsigned kList = 0x3, kParts = 0x60, kNoTime = 0x100, kCompressor = 0x0FFF0000;
  unsigned const strange =
      entry.flags & ~(avi::IndexEntry::kKey | kList | kParts | kNoTime | kCompressor);
  if (strange != 0)
    _findings.Add(found::kEntryFlags, entry.place, int64{entry.flags & ~strange},
                  int64{entry.flags});
  if (avi::IsDataCode(entry.id)) return true;
  if (entry.id != Convert4("rec ") && !IsPartIndex(entry.id))
    _findings.Add(found::kEntryId, entry.place, "track data",
                  "\"" + avi::CodeText(entry.id) + "\"");
  return false;
}

Stream* DataCheck::StreamOf(unsigned id, int64 offset) {
  auto const number = static_cast<std::size_t>(avi::TrackOfCode(id));
  std::string const letters = avi::CodeText(id).substr(2);
  if (number >= _streams.size()) {
    _findings.Add(found::kEntryTrack, offset, "track 0 to " + std::to_string(_streams.size() - 1),
                  avi::CodeText(id));
    return nullptr;
  }
  std::string const& type = _streams[number].track->type;
  char const* const told = letters == "wb"                      ? "audio"
                           : letters == "dc" || letters == "db" ? "video"
                           : letters == "tx"                    ? "text"
                                                                : nullptr;
  if (told != nullptr && type != told)
    _findings.Add(found::kEntryTrack, offset, type, avi::CodeText(id));
  return &_streams[number];
}

// The chunk and its entry differ in size: what follows tells which of them is right.
void DataCheck::Resized(avi::IndexEntry const& entry, avi::Chunk& chunk) {
  int64 const end = chunk.Payload() + chunk.size;
  if (Follows(end + chunk.size % 2) || Follows(end)) {
    _findings.Add(found::kEntrySize, entry.place, chunk.size, int64{entry.size});
  } else {
    _findings.Add(found::kChunkSize, chunk.offset, int64{entry.size}, chunk.size);
    chunk.size = entry.size;
  }
}

void DataCheck::Key(avi::IndexEntry const& entry, Stream& stream) {
  bool const key = (entry.flags & avi::IndexEntry::kKey) != 0,
             video = stream.track->type == "video";
  if (video && stream.entries == 0 && !key)
    _findings.Add(found::kFirstNotKey, entry.place, int64{avi::IndexEntry::kKey},
                  int64{entry.flags});
  ++stream.entries;
  stream.keys += key;
  if (!_deep || !video || entry.size == 0) return;
  unsigned char start[4096];  // parameter sets and the like stand before the first slice
  unsigned const n = _reader.Read(entry.offset + 8, start, std::min(entry.size, 4096u));
  Picture const picture = PictureKind(stream.track->codec, start, n);
  if (picture == Picture::kKey && !key)
    _findings.Add(found::kKeyUnmarked, entry.place, int64{avi::IndexEntry::kKey},
                  int64{entry.flags});
  if (picture == Picture::kOther && key)
    _findings.Add(found::kKeyFalse, entry.place, int64{0}, int64{entry.flags});
}

// Whether the entry is the chunk's first.
bool DataCheck::Cover(avi::IndexEntry const& entry, avi::Chunk const& chunk) {
  if (chunk.offset >= _position) {
    Gap(chunk.offset, true);
    Data(chunk);
    return true;
  }
  auto const behind =
      std::lower_bound(_unindexed.begin(), _unindexed.end(), chunk.offset,
                       [](Unindexed const& other, int64 offset) { return other.offset < offset; });
  if (behind != _unindexed.end() && behind->offset == chunk.offset && behind->size >= 0) {
    behind->size = -1;
    _findings.Add(found::kEntryOrder, entry.place, "at least " + std::to_string(_position),
                  chunk.offset);
  } else if (_complete) {
    _findings.Add(found::kEntryTwice, entry.place, "another chunk",
                  avi::CodeText(chunk.id) + " at " + std::to_string(chunk.offset));
    return false;
  }
  return true;
}

// What lies between here and there: chunks without an entry, lists, other things.
void DataCheck::Gap(int64 end, bool indexed) {
  int64 const stopped = _reader.ScanData(_position, end, [&](avi::Chunk const& chunk) {
    StreamOf(chunk.id, chunk.offset);
    Data(chunk);
    if (!indexed) return;
    _complete = _complete && _unindexed.size() < kMostUnindexed;
    if (_complete)
      _unindexed.push_back({chunk.offset, chunk.size, chunk.id});
    else
      _findings.Add(found::kNotIndexed, chunk.offset, "an entry", ChunkText(chunk.id, chunk.size));
  });
  if (stopped < end) Stopped(stopped, end);
  _position = std::max(_position, end);
}

void DataCheck::Stopped(int64 at, int64 end) {
  avi::Chunk chunk;
  bool const header = _reader.Header(at, _movi.end, chunk);
  if (header && avi::IsDataCode(chunk.id) && chunk.Cut())
    Data(chunk);
  else if (header && chunk.id == Convert4("idx1"))
    _findings.Add(found::kMoviSize, _movi.offset, at - _movi.Payload(), _movi.size);
  else
    _findings.Add(found::kNoChunk, at, "a chunk", std::to_string(end - at) + " bytes");
}

// A data chunk, met once.
void DataCheck::Data(avi::Chunk const& chunk) {
  int64 const end = chunk.Payload() + chunk.size;
  bool const cut = end > _movi.end;
  if (cut) _findings.Add(found::kDataCut, chunk.offset, chunk.size, _movi.end - chunk.Payload());
  _position = cut ? _movi.end : chunk.size % 2 != 0 ? Pad(end) : end;
  _advance(_position);
  auto const number = static_cast<std::size_t>(avi::TrackOfCode(chunk.id));
  if (cut || number >= _streams.size()) return;
  Stream& stream = _streams[number];
  ++stream.chunks;
  stream.bytes += static_cast<uint64>(chunk.size);
  if (stream.sampleSize != 0) stream.samples += static_cast<uint64>(chunk.size) / stream.sampleSize;
  if (stream.track->codec == "pcm" && stream.blockAlign != 0 && chunk.size % stream.blockAlign != 0)
    _findings.Add(found::kSoundFrame, chunk.offset,
                  "a multiple of " + std::to_string(stream.blockAlign), chunk.size);
}

// Where the pad byte of a chunk ends.
int64 DataCheck::Pad(int64 end) {
  unsigned char pad = 0;
  bool const room = end < _movi.end && _reader.Read(end, &pad, 1) == 1;
  if (room && pad == 0) return end + 1;
  bool const missing = !room || Follows(end);
  if (missing)
    _findings.Add(found::kPadMissing, end, "a pad byte", room ? "a chunk" : "the end of movi");
  else
    _findings.Add(found::kPadValue, end, int64{0}, int64{pad});
  return missing ? end : end + 1;
}

// Whether a chunk that may stand in movi does stand here, or movi ends.
bool DataCheck::Follows(int64 at) {
  avi::Chunk chunk;
  if (at >= _movi.end) return at - _movi.end <= 1;
  return _reader.Header(at, _movi.end, chunk) &&
         (avi::IsDataCode(chunk.id) || IsPartIndex(chunk.id) || chunk.id == Convert4("JUNK") ||
          chunk.type == Convert4("rec "));
}

void DataCheck::ReportUnindexed() {
  for (Unindexed const& chunk : _unindexed)
    if (chunk.size > 0)  // nothing is lost with an empty one
      _findings.Add(found::kNotIndexed, chunk.offset, "an entry", ChunkText(chunk.id, chunk.size));
}

}  // namespace kestro::tool
