#include "repair/Salvage.h"

#include <algorithm>
#include <cstring>

#include "base/LittleEndian.h"
#include "stream/NalUnits.h"
#include "verify/KeyFrame.h"

namespace kestro::tool {

using base::Convert4;

static constexpr std::size_t kNamed = 20;  // holes and losses

Salvage::Salvage(avi::RiffReader& file, int64 begin, std::vector<avi::AviTrack> const& tracks,
                 Sink sink)
    : _file(file),
      _tracks(tracks),
      _sink(std::move(sink)),
      _position(begin),
      _openKeys(tracks.size()) {
  _counts.kept.resize(tracks.size());
  _counts.lost.resize(tracks.size());
}

bool Salvage::Known(std::vector<avi::AviTrack> const& tracks, unsigned id) {
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

// What stands at an offset.
Salvage::Sight Salvage::Look(int64 at, int64 limit, avi::Chunk& chunk) {
  if (!_file.Header(at, limit, chunk)) return Sight::kNothing;
  bool const cut = chunk.Cut() || chunk.size > kMaxPacket;
  if (Known(chunk.id)) return cut ? Sight::kCut : Sight::kData;
  if (chunk.type == Convert4("rec ") || chunk.type == Convert4("movi") ||
      chunk.type == Convert4("AVIX"))
    return Sight::kList;
  if (chunk.id == Convert4("idx1")) return Sight::kOther;
  bool const other = chunk.id == Convert4("JUNK") || chunk.type == Convert4("INFO") ||
                     (chunk.id & 0xFFFF) == Convert4("ix") || avi::IsDataCode(chunk.id);
  return other && !chunk.Cut() ? Sight::kOther : Sight::kNothing;
}

bool Salvage::Follows(int64 at, int64 limit) {
  avi::Chunk chunk;
  return at >= limit || Look(at, limit, chunk) != Sight::kNothing;
}

void Salvage::Rest() {
  int64 const end = _file.Size();
  if (_waiting && !_stopped) Settle(nullptr);
  Scan(end);
  if (!_stopped) LoseMissing(end - 7, INT64_MAX);  // promised, but beyond the end
}

// Everything from the position up to a limit.
void Salvage::Scan(int64 limit) {
  avi::Chunk chunk;
  while (_position < limit && !_stopped) {
    switch (Look(_position, limit, chunk)) {
      case Sight::kData:
        Take(chunk, nullptr);
        _position = _file.Next(chunk);
        break;
      case Sight::kList:
        _position = chunk.Data();
        break;
      case Sight::kOther:
        _indexSeen = _indexSeen || chunk.id == Convert4("idx1");
        if (avi::IsDataCode(chunk.id)) Lose(chunk.id, chunk.offset, chunk.size);
        _position = _file.Next(chunk);
        break;
      case Sight::kCut:
        Skip(limit, &chunk);
        break;
      case Sight::kNothing:
        Skip(limit, nullptr);
        break;
    }
  }
}

// Whether the file ends with the first bytes of an index.
bool Salvage::BeginsIndex(int64 at) {
  unsigned char bytes[8];
  unsigned const n = _file.Read(at, bytes, sizeof bytes);
  return n < sizeof bytes && std::memcmp(bytes, "idx1", std::min(n, 4u)) == 0;
}

// Goes on where packets follow again. `cut`: the header of a packet that is not whole stands here.
void Salvage::Skip(int64 limit, avi::Chunk const* cut) {
  int64 const from = _position;
  _position = Find(from + (cut != nullptr ? 8 : 1), limit);
  if (cut != nullptr) {
    Lose(cut->id, cut->offset, _position - cut->Payload());
    _missing.erase(from);
  }
  LoseMissing(from, _position);
  if (cut != nullptr || (_position == limit && (_indexSeen || BeginsIndex(from)))) return;
  _counts.skipped.packets += 1;
  _counts.skipped.bytes += static_cast<base::uint64>(_position - from);
  if (_counts.holes.size() < kNamed) _counts.holes.push_back({from, _position - from});
}

// The first packet with another behind it, or the limit.
int64 Salvage::Find(int64 from, int64 limit) {
  constexpr int64 kCode = 4;
  unsigned char block[1 << 16];
  while (limit - from >= 8) {
    auto const want = static_cast<unsigned>(std::min<int64>(sizeof block, limit - from));
    int64 const n = _file.Read(from, block, want);
    for (int64 i = 0; i + kCode <= n; ++i) {
      unsigned char const c = block[i];  // most bytes begin no code
      if (c > '9' ? c != 'i' && c != 'R' : c < '0') continue;
      unsigned const id = base::Load32(block + i);
      if (!Known(id) && id != Convert4("idx1") && id != Convert4("RIFF")) continue;
      avi::Chunk chunk;
      Sight const sight = Look(from + i, limit, chunk);
      if (sight == Sight::kList ||
          ((sight == Sight::kData || sight == Sight::kOther) && Follows(_file.Next(chunk), limit)))
        return from + i;
    }
    // What cannot be read is passed over.
    from += n < kCode ? kSector : n - (kCode - 1);
  }
  return limit;
}

void Salvage::Take(avi::Chunk const& chunk, avi::IndexEntry const* entry, bool torn) {
  auto const track = static_cast<std::size_t>(avi::TrackOfCode(chunk.id));
  auto const size = static_cast<unsigned>(chunk.size);
  _data.resize(size);
  if (torn || _file.Read(chunk.Payload(), _data.data(), size) != size || !Whole(chunk)) {
    Lose(chunk.id, chunk.offset, chunk.size);
    return;
  }
  Trim(_tracks[track], entry != nullptr);
  bool const key = IsKey(track, entry);
  ++(entry != nullptr ? _counts.indexed : _counts.found);
  ++_counts.kept[track].packets;
  _counts.kept[track].bytes += size;
  _stopped = !_sink(track, _data, key);
}

// Takes off what the muxer does not store, before the rest is looked at. Packets of this system's
// files were trimmed.
void Salvage::Trim(avi::AviTrack const& track, bool indexed) {
  _counts.empty += track.type == "video" && _data.empty() && indexed;
  auto const codec = stream::NalCodecOf(track.codec);
  if (!codec) return;
  std::size_t const front = stream::UnstoredBytes(*codec, _data.data(), _data.size());
  _counts.trimmed.packets += front != 0;
  _counts.trimmed.bytes += front;
  _data.erase(_data.begin(), _data.begin() + static_cast<std::ptrdiff_t>(front));
}

// Whether the data is what it should be. Where sectors are lost, zeros are read.
bool Salvage::Whole(avi::Chunk const& chunk) {
  avi::AviTrack const& track = _tracks[static_cast<std::size_t>(avi::TrackOfCode(chunk.id))];
  if (_data.empty() || track.type == "audio") return true;  // zeros are silence
  auto const first = static_cast<std::size_t>(
      std::find_if(_data.begin(), _data.end(), [](std::uint8_t b) { return b != 0; }) -
      _data.begin());
  if (first == _data.size()) return false;
  if (track.codec == "mjpeg")
    return first == 0 && _data.size() > 1 && _data[0] == 0xFF && _data[1] == 0xD8;
  bool const started = first >= 2 && _data[first] == 1;
  if ((track.codec == "h264" || track.codec == "hevc") && !started) return false;
  // Zeros may stand at the end of a packet, but with lost sectors they begin where one does, and
  // nothing follows.
  auto const tail = static_cast<std::size_t>((chunk.Payload() + chunk.size) % kSector);
  if (tail == 0 || tail >= _data.size()) return true;
  bool const zeros = std::all_of(_data.end() - static_cast<std::ptrdiff_t>(tail), _data.end(),
                                 [](std::uint8_t b) { return b == 0; });
  int64 const next = _file.Next(chunk);
  return !zeros || (next < _file.Size() && Follows(next, _file.Size()));
}

bool Salvage::IsKey(std::size_t track, avi::IndexEntry const* entry) {
  avi::AviTrack const& info = _tracks[track];
  if (info.type != "video") return false;
  bool const marked = entry != nullptr && (entry->flags & avi::IndexEntry::kKey) != 0;
  bool key = info.codec == "mjpeg";
  // Of other video, which cannot be recorded, key frames are not known.
  if (!key && info.codec != "h264" && info.codec != "hevc") return marked;
  if (!key) {
    Picture const picture = PictureKind(info.codec, _data.data(), _data.size());
    if (picture == Picture::kOpen && entry != nullptr) _openKeys[track] = marked;
    key = picture == Picture::kKey || (picture == Picture::kOpen && _openKeys[track]);
  }
  _counts.corrected += entry != nullptr && key != marked;
  return key;
}

void Salvage::Lose(unsigned id, int64 offset, int64 bytes) {
  Counted& lost =
      Known(id) ? _counts.lost[static_cast<std::size_t>(avi::TrackOfCode(id))] : _counts.unknown;
  auto const count = static_cast<base::uint64>(std::max<int64>(bytes, 0));
  lost += {1, count};
  if (_counts.losses.size() < kNamed) _counts.losses.push_back({id, offset, count});
}

}  // namespace kestro::tool
