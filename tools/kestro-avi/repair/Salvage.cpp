#include "repair/Salvage.h"

#include <algorithm>
#include <cstring>

#include "base/LittleEndian.h"
#include "stream/NalUnits.h"

namespace kestro::tool {

using base::Convert4;

static constexpr std::size_t kMaxListed = 20;  // holes, and losses

Salvage::Salvage(avi::RiffReader& file, int64 begin, std::vector<avi::AviTrack> const& tracks,
                 Sink sink)
    : _file(file),
      _tracks(tracks),
      _sink(std::move(sink)),
      _position(begin),
      _openKeys(tracks.size()),
      _converters(tracks.begin(), tracks.end()) {
  _counts.kept.resize(tracks.size());
  _counts.lost.resize(tracks.size());
}

void Salvage::Limit(int64 largest) {
  _largest = largest;
  _data.reserve(static_cast<std::size_t>(largest));
}

bool Salvage::IsTrackData(std::vector<avi::AviTrack> const& tracks, unsigned id) {
  if (!avi::IsDataCode(id)) return false;
  auto const number = static_cast<std::size_t>(avi::TrackOfCode(id));
  if (number >= tracks.size()) return false;
  std::string const& type = tracks[number].type;
  unsigned const letters = id >> 16;
  auto const is = [letters](char const* code) {
    return letters == static_cast<unsigned>(code[0] | code[1] << 8);
  };
  return type == "video" ? is("dc") || is("db") : type == "audio" ? is("wb") : is("tx");
}

// Reads the chunk at an offset.
Salvage::ChunkKind Salvage::ReadChunk(int64 at, int64 limit, avi::Chunk& chunk) {
  if (!_file.Header(at, limit, chunk)) return ChunkKind::kNone;
  bool const cut = chunk.Cut() || chunk.size > _largest;
  if (IsTrackData(chunk.id)) return cut ? ChunkKind::kCut : ChunkKind::kData;
  if (chunk.type == Convert4("rec ") || chunk.type == Convert4("movi") ||
      chunk.type == Convert4("AVIX"))
    return ChunkKind::kList;
  if (chunk.id == Convert4("idx1")) return ChunkKind::kOther;
  bool const other = chunk.id == Convert4("JUNK") || chunk.type == Convert4("INFO") ||
                     (chunk.id & 0xFFFF) == Convert4("ix") || avi::IsDataCode(chunk.id);
  return other && !chunk.Cut() ? ChunkKind::kOther : ChunkKind::kNone;
}

bool Salvage::IsChunk(int64 at, int64 limit) {
  avi::Chunk chunk;
  return at >= limit || ReadChunk(at, limit, chunk) != ChunkKind::kNone;
}

void Salvage::Finish() {
  int64 const end = _file.Size();
  if (_waiting && !_stopped) ProcessWaiting(nullptr);
  Scan(end);
  if (!_stopped) LoseMissing(end - 7, INT64_MAX);  // entries beyond the end
}

// Reads the data from the current position up to a limit.
void Salvage::Scan(int64 limit) {
  avi::Chunk chunk;
  while (_position < limit && !_stopped) {
    switch (ReadChunk(_position, limit, chunk)) {
      case ChunkKind::kData:
        KeepPacket(chunk, nullptr);
        _position = _file.Next(chunk);
        break;
      case ChunkKind::kList:
        _position = chunk.Data();
        break;
      case ChunkKind::kOther:
        _indexSeen = _indexSeen || chunk.id == Convert4("idx1");
        if (avi::IsDataCode(chunk.id)) AddLoss(chunk.id, chunk.offset, chunk.size);
        _position = _file.Next(chunk);
        break;
      case ChunkKind::kCut:
        Skip(limit, &chunk);
        break;
      case ChunkKind::kNone:
        Skip(limit, nullptr);
        break;
    }
  }
}

// Whether the last bytes of the file are the start of an index.
bool Salvage::StartsIndex(int64 at) {
  unsigned char bytes[8];
  unsigned const n = _file.Read(at, bytes, sizeof bytes);
  return n < sizeof bytes && std::memcmp(bytes, "idx1", std::min(n, 4u)) == 0;
}

// Skips to the next packet. `cut`: the packet at the current position is cut.
void Salvage::Skip(int64 limit, avi::Chunk const* cut) {
  int64 const from = _position;
  _position = FindPacket(from + (cut != nullptr ? 8 : 1), limit);
  if (cut != nullptr) {
    AddLoss(cut->id, cut->offset, _position - cut->Payload());
    _missing.erase(from);
  }
  LoseMissing(from, _position);
  if (cut != nullptr || (_position == limit && (_indexSeen || StartsIndex(from)))) return;
  _counts.skipped.packets += 1;
  _counts.skipped.bytes += static_cast<base::uint64>(_position - from);
  if (_counts.holes.size() < kMaxListed) _counts.holes.push_back({from, _position - from});
}

// The offset of the next packet that is followed by another chunk, or the limit.
int64 Salvage::FindPacket(int64 from, int64 limit) {
  constexpr int64 kCode = 4;
  unsigned char block[1 << 16];
  while (limit - from >= 8) {
    auto const want = static_cast<unsigned>(std::min<int64>(sizeof block, limit - from));
    int64 const n = _file.Read(from, block, want);
    for (int64 i = 0; i + kCode <= n; ++i) {
      unsigned char const c = block[i];  // most bytes cannot start a code
      if (c > '9' ? c != 'i' && c != 'R' : c < '0') continue;
      unsigned const id = base::Load32(block + i);
      if (!IsTrackData(id) && id != Convert4("idx1") && id != Convert4("RIFF")) continue;
      avi::Chunk chunk;
      ChunkKind const kind = ReadChunk(from + i, limit, chunk);
      if (kind == ChunkKind::kList || ((kind == ChunkKind::kData || kind == ChunkKind::kOther) &&
                                       IsChunk(_file.Next(chunk), limit)))
        return from + i;
    }
    // Skips a sector that cannot be read.
    from += n < kCode ? kSector : n - (kCode - 1);
  }
  return limit;
}

void Salvage::KeepPacket(avi::Chunk const& chunk, avi::IndexEntry const* entry, bool damaged) {
  auto const track = static_cast<std::size_t>(avi::TrackOfCode(chunk.id));
  auto const size = static_cast<unsigned>(chunk.size);
  _data.resize(size);
  if (damaged || _file.Read(chunk.Payload(), _data.data(), size) != size || !IsIntact(chunk) ||
      !Convert(track)) {
    AddLoss(chunk.id, chunk.offset, chunk.size);
    return;
  }
  Trim(_tracks[track], entry != nullptr);
  bool const key = IsKey(track, entry);
  ++(entry != nullptr ? _counts.indexed : _counts.found);
  ++_counts.kept[track].packets;
  _counts.kept[track].bytes += size;
  _stopped = !_sink({track, _data, key, chunk});
}

// Removes the first bytes if the muxer would not store them. Packets in files of this system do not
// have any.
void Salvage::Trim(avi::AviTrack const& track, bool indexed) {
  _counts.empty += track.type == "video" && _data.empty() && indexed;
  auto const codec = stream::NalCodecOf(track.codec);
  if (!codec) return;
  std::size_t const front = stream::UnstoredBytes(*codec, _data.data(), _data.size());
  _counts.trimmed.packets += front != 0;
  _counts.trimmed.bytes += front;
  _data.erase(_data.begin(), _data.begin() + static_cast<std::ptrdiff_t>(front));
}

// Whether the data looks right. Lost sectors read as zeros.
bool Salvage::IsIntact(avi::Chunk const& chunk) {
  auto const number = static_cast<std::size_t>(avi::TrackOfCode(chunk.id));
  avi::AviTrack const& track = _tracks[number];
  if (_data.empty() || track.type == "audio") return true;  // zeros are silence
  auto const first = static_cast<std::size_t>(
      std::find_if(_data.begin(), _data.end(), [](std::uint8_t b) { return b != 0; }) -
      _data.begin());
  if (first == _data.size()) return false;
  if (track.codec == "mjpeg")
    return first == 0 && _data.size() > 1 && _data[0] == 0xFF && _data[1] == 0xD8;
  bool const started = first >= 2 && _data[first] == 1;
  bool const codes = stream::NalCodecOf(track.codec) && !_converters[number].Needed();
  if (codes && !started) return false;
  // A packet may end with zeros. Zeros of lost sectors start at a sector, and no chunk follows
  // them.
  auto const tail = static_cast<std::size_t>((chunk.Payload() + chunk.size) % kSector);
  if (tail == 0 || tail >= _data.size()) return true;
  bool const zeros = std::all_of(_data.end() - static_cast<std::ptrdiff_t>(tail), _data.end(),
                                 [](std::uint8_t b) { return b == 0; });
  int64 const next = _file.Next(chunk);
  return !zeros || (next < _file.Size() && IsChunk(next, _file.Size()));
}

// Converts a frame to the form that is recorded. Returns false if it is damaged.
bool Salvage::Convert(std::size_t track) {
  if (!_converters[track].Needed()) return true;
  bool const whole = _converters[track].Convert(_data.data(), _data.size(), _converted);
  _data.swap(_converted);
  return whole;
}

bool Salvage::IsKey(std::size_t track, avi::IndexEntry const* entry) {
  avi::AviTrack const& info = _tracks[track];
  if (info.type != "video") return false;
  bool const marked = entry != nullptr && (entry->flags & avi::IndexEntry::kKey) != 0;
  bool key = info.codec == "mjpeg";
  // Key frames of other video, which cannot be recorded, are not detected.
  if (!key && info.codec != "h264" && info.codec != "hevc") return marked;
  if (!key) {
    Picture const picture = PictureKind(info.codec, _data.data(), _data.size());
    if (picture == Picture::kOpen && entry != nullptr) _openKeys[track] = marked;
    key = picture == Picture::kKey || (picture == Picture::kOpen && _openKeys[track]);
  }
  _counts.corrected += entry != nullptr && key != marked;
  return key;
}

void Salvage::AddLoss(unsigned id, int64 offset, int64 bytes) {
  Counted& lost = IsTrackData(id) ? _counts.lost[static_cast<std::size_t>(avi::TrackOfCode(id))]
                                  : _counts.unknown;
  auto const count = static_cast<base::uint64>(std::max<int64>(bytes, 0));
  lost += {1, count};
  if (_counts.losses.size() < kMaxListed) _counts.losses.push_back({id, offset, count});
}

}  // namespace kestro::tool
