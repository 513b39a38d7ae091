// The checks of the index entries.
#include <algorithm>

#include "verify/DataCheck.h"

namespace kestro::tool {

using base::Convert4;

// Finds out what the offsets are relative to, from several entries because the first one may be
// wrong. Returns false when the index does not point to chunks.
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
    auto pointsToChunk = [&](int64 offset) {
      return _reader.Header(offset, _avi.Size(), chunk) && chunk.id == entry.id;
    };
    absolute += pointsToChunk(entry.offset - from);
    relative += pointsToChunk(entry.offset - from + _movi.Payload());
  });
  if (few == 0)
    _findings.Add(found::kIndexEmpty, index.offset, "entries", "none");
  else if (absolute == 0 && relative == 0)
    _findings.Add(found::kIndexAstray, index.offset, "offsets of chunks", "other offsets");
  else if (relative > absolute)
    _findings.Add(found::kFromMovi, index.offset, int64{0}, _movi.Payload());
  _base = (relative > absolute ? _movi.Payload() : 0) - from;
  return absolute != 0 || relative != 0;
}

void DataCheck::CheckEntry(avi::IndexEntry entry) {
  if (entry.id == 0) {  // unused space of a reserved index
    if (_hole < 0) _hole = entry.place;
    return;
  }
  CheckHole();
  if (!CheckFields(entry)) return;
  entry.offset += _base;
  Stream* const stream = StreamOf(entry.id, entry.place);
  avi::Chunk chunk;
  if (stream == nullptr || !FindChunk(entry, chunk)) return;
  auto const inside = [&](avi::Chunk const& movi) {
    return entry.offset >= movi.Data() && entry.offset < movi.end;
  };
  if (std::none_of(_movis.begin(), _movis.end(), inside)) {
    _findings.Add(found::kEntryOutside, entry.place,
                  std::to_string(_movi.Data()) + " to " + std::to_string(_movi.end), entry.offset);
    return;
  }
  if (!avi::SizeAgrees(*stream->track, entry, chunk)) {
    CheckSize(entry, chunk);
    entry.size = static_cast<unsigned>(chunk.size);
  }
  if (inside(_movi) && !CheckIndexedChunk(entry, chunk)) return;
  CheckKey(entry, *stream);
}

// Reports empty entries that are followed by another one, or end an index after the data.
void DataCheck::CheckHole() {
  if (_hole >= 0) _findings.Add(found::kIndexHole, _hole, "an entry", "zeros");
  _hole = -1;
}

// Reads the header of the entry's chunk. A wrong id is corrected if the chunk fits otherwise.
bool DataCheck::FindChunk(avi::IndexEntry const& entry, avi::Chunk& chunk) {
  bool const there = _reader.Header(entry.offset, _avi.Size(), chunk);
  if (there && chunk.id == entry.id) return true;
  int64 const end = entry.offset + 8 + entry.size + entry.size % 2;
  if (!there || entry.offset != _position || !IsChunk(end)) {
    _findings.Add(found::kEntryOffset, entry.place,
                  avi::CodeText(entry.id) + " at " + std::to_string(entry.offset),
                  there ? "\"" + avi::CodeText(chunk.id) + "\"" : "no chunk");
    return false;
  }
  _findings.Add(found::kChunkId, entry.offset, avi::CodeText(entry.id), avi::CodeText(chunk.id));
  chunk.id = entry.id;
  return true;
}

// Checks flags and id. Returns whether it is an entry of track data.
bool DataCheck::CheckFields(avi::IndexEntry const& entry) {
  constexpr unsigned kList = 0x3, kParts = 0x60, kNoTime = 0x100, kCompressor = 0x0FFF0000;
  unsigned const undefined =
      entry.flags & ~(avi::IndexEntry::kKey | kList | kParts | kNoTime | kCompressor);
  if (undefined != 0)
    _findings.Add(found::kEntryFlags, entry.place, int64{entry.flags & ~undefined},
                  int64{entry.flags});
  if (avi::IsDataCode(entry.id)) return true;
  if (entry.id != Convert4("rec ") && (entry.id & 0xFFFF) != Convert4("ix"))
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
  char const* const expected = letters == "wb"                      ? "audio"
                               : letters == "dc" || letters == "db" ? "video"
                               : letters == "tx"                    ? "text"
                                                                    : nullptr;
  if (expected != nullptr && type != expected)
    _findings.Add(found::kEntryTrack, offset, type, avi::CodeText(id));
  return &_streams[number];
}

// The chunk and its entry have different sizes: the next chunk shows which one is right.
void DataCheck::CheckSize(avi::IndexEntry const& entry, avi::Chunk& chunk) {
  int64 const end = chunk.Payload() + chunk.size;
  if (IsChunk(end + chunk.size % 2) || IsChunk(end)) {
    _findings.Add(found::kEntrySize, entry.place, chunk.size, int64{entry.size});
  } else {
    _findings.Add(found::kChunkSize, chunk.offset, int64{entry.size}, chunk.size);
    chunk.size = entry.size;
  }
}

void DataCheck::CheckKey(avi::IndexEntry const& entry, Stream& stream) {
  bool const key = (entry.flags & avi::IndexEntry::kKey) != 0,
             video = stream.track->type == "video";
  if (video && stream.entries == 0 && !key)
    _findings.Add(found::kFirstNotKey, entry.place, int64{avi::IndexEntry::kKey},
                  int64{entry.flags});
  ++stream.entries;
  stream.keys += key;
  if (!_deep || !video || entry.size == 0) return;
  auto const number = static_cast<std::size_t>(avi::TrackOfCode(entry.id));
  auto const picture = _converters[number].KindOf(_reader, entry);
  if (!picture)
    _findings.Add(found::kUnitLength, entry.offset, "lengths that fill the frame",
                  std::to_string(entry.size) + " bytes");
  if (picture == Picture::kKey && !key)
    _findings.Add(found::kKeyUnmarked, entry.place, int64{avi::IndexEntry::kKey},
                  int64{entry.flags});
  if (picture == Picture::kOther && key)
    _findings.Add(found::kKeyFalse, entry.place, int64{0}, int64{entry.flags});
}

}  // namespace kestro::tool
