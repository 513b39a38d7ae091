#include "avi/AviFile.h"

#include <algorithm>
#include <array>
#include <cmath>

#include "Errors.h"
#include "base/LittleEndian.h"

namespace kestro::tool {

using base::Convert4;

static constexpr int kMaxDepth = 16;
static constexpr std::size_t kMaxNodes = 65536;
static constexpr std::size_t kMaxTracks = 100;  // chunk codes have two digits

static constexpr unsigned kRiff = Convert4("RIFF"), kMovi = Convert4("movi");

// A chunk's first bytes, the missing ones 0.
template <std::size_t N>
struct Fields {
  std::array<unsigned char, N> bytes{};

  Fields(RiffReader& reader, Chunk const& chunk) {
    reader.Read(chunk.Payload(), bytes.data(),
                static_cast<unsigned>(std::min<int64>(N, chunk.end - chunk.Payload())));
  }
  unsigned At16(std::size_t at) const { return bytes[at] | bytes[at + 1] << 8; }
  unsigned At32(std::size_t at) const { return At16(at) | At16(at + 2) << 16; }
};

std::string AviTrack::Kind() const {
  return codec.empty() || codec == type ? type : type + " " + codec;
}

void AviFile::Read(std::string const& name) {
  Chunk riff;
  if (!_reader.Header(0, Size(), riff) || riff.id != kRiff)
    throw Error(kUnusable, name + ": not a RIFF file: no RIFF at offset 0");
  if (riff.type != Convert4("AVI "))
    throw Error(kUnusable, name + ": a RIFF file of type \"" + CodeText(riff.type) +
                               "\" at offset 8, not AVI");
  Walk(0, Size(), 0);
  ReadTracks();
  if (_tracks.empty())
    throw Error(kUnusable, name + ": an AVI file without stream headers: " + HeaderPlace());
  FindIndex();
  Count();
  Time();
}

// Where stream lists are missing.
std::string AviFile::HeaderPlace() const {
  for (Chunk const& chunk : _tree)
    if (chunk.type == Convert4("hdrl"))
      return "no strl in the list hdrl at offset " + std::to_string(chunk.offset);
  return "no list hdrl at offset " + std::to_string(_tree.front().Data());
}

// Sizes of a recording that was cut off are still those of its beginning: what follows belongs to
// it all the same.
void AviFile::Unfinished(Chunk& chunk, int64 limit) {
  Chunk next;
  bool const more = _reader.Header(chunk.end, limit, next);
  if (chunk.id == kRiff && more && next.id != kRiff) {
    chunk.end = limit;
  } else if (chunk.type == kMovi && more && (IsDataCode(next.id) || chunk.size < 4)) {
    chunk.end = std::min(limit, _reader.ScanData(chunk.end, limit, [](Chunk const&) {}));
    _cutOff = true;
    Note("the size of movi was not written");
  }
}

void AviFile::Walk(int64 begin, int64 limit, int depth) {
  Chunk chunk;
  for (int64 at = begin; _reader.Header(at, limit, chunk); at = _reader.Next(chunk)) {
    if (CodeText(chunk.id).find('.') != std::string::npos || chunk.id == 0) {
      Note("no chunk at offset " + std::to_string(at));
      return;
    }
    if (_tree.size() == kMaxNodes || depth > kMaxDepth) {
      Note("too many chunks: those from offset " + std::to_string(at) + " are left out");
      return;
    }
    chunk.depth = depth;
    if (chunk.Cut()) {
      _cutOff = true;
      Note(CodeText(chunk.id) + " at offset " + std::to_string(at) + " ends " +
           std::to_string(chunk.Payload() + chunk.size - chunk.end) + " bytes early");
    }
    Unfinished(chunk, limit);
    _riffs += chunk.id == kRiff;
    _tree.push_back(chunk);
    if (chunk.type != 0 && chunk.type != kMovi) Walk(chunk.Data(), chunk.end, depth + 1);
  }
}

void AviFile::ReadTracks() {
  bool ours = false;  // inside a strl of a track that is listed
  for (Chunk const& chunk : _tree) {
    if (chunk.type != 0) {
      ours = chunk.type == Convert4("strl") && _tracks.size() < kMaxTracks;
      if (ours) _tracks.emplace_back();
    } else if (ours && chunk.id == Convert4("strh")) {
      ReadHeader(chunk, _tracks.back());
    } else if (ours && chunk.id == Convert4("strf")) {
      ReadFormat(chunk, _tracks.back());
    }
  }
}

void AviFile::ReadHeader(Chunk const& chunk, AviTrack& track) {
  Fields<56> const fields(_reader, chunk);
  unsigned const type = fields.At32(0);
  track.type = type == Convert4("vids")   ? "video"
               : type == Convert4("auds") ? "audio"
               : type == Convert4("txts") ? "text"
                                          : CodeText(type);
  track.handler = CodeText(fields.At32(4));
  track.scale = fields.At32(20);
  track.rate = fields.At32(24);
  track.length = fields.At32(32);
  if (track.type == "text") track.codec = "text";
}

static std::string VideoCodec(unsigned code) {
  static constexpr std::pair<unsigned, char const*> kNames[] = {
      {Convert4("h264"), "h264"},  {Convert4("avc1"), "h264"},  {Convert4("x264"), "h264"},
      {Convert4("hevc"), "hevc"},  {Convert4("hev1"), "hevc"},  {Convert4("h265"), "hevc"},
      {Convert4("mjpg"), "mjpeg"}, {Convert4("jpeg"), "mjpeg"}, {Convert4("xvid"), "mpeg4"},
      {Convert4("fmp4"), "mpeg4"}, {Convert4("divx"), "mpeg4"}};
  unsigned lower = code;
  for (int i = 0; i < 32; i += 8)
    if (unsigned const c = code >> i & 0xFF; c >= 'A' && c <= 'Z') lower |= 0x20u << i;
  for (auto const& [known, name] : kNames)
    if (lower == known) return name;
  return CodeText(code);
}

static std::string SoundCodec(unsigned tag) {
  switch (tag) {
    case 1:
    case 0xFFFE:
      return "pcm";
    case 3:
      return "pcm-float";
    case 6:
      return "alaw";
    case 7:
      return "mulaw";
    case 0x50:
      return "mp2";
    case 0x55:
      return "mp3";
    case 0xFF:
      return "aac";
    case 0x2000:
      return "ac3";
    default: {
      char text[16];
      std::snprintf(text, sizeof text, "0x%04x", tag);
      return text;
    }
  }
}

void AviFile::ReadFormat(Chunk const& chunk, AviTrack& track) {
  Fields<40> const fields(_reader, chunk);
  if (track.type == "video") {
    track.width = fields.At32(4);
    // Negative for pictures stored from the top.
    track.height = static_cast<unsigned>(std::llabs(static_cast<int>(fields.At32(8))));
    track.codec = VideoCodec(fields.At32(16));
  } else if (track.type == "audio") {
    // An extensible format tells the real one in its id.
    unsigned const tag = fields.At16(0), real = fields.At16(24);
    track.codec = SoundCodec(tag == 0xFFFE && real != 0 ? real : tag);
    track.channels = fields.At16(2);
    track.sampleRate = fields.At32(4);
    track.bytesPerSecond = fields.At32(8);
    track.bits = fields.At16(14);
  }
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

  // The first entry shows what the offsets count from.
  unsigned first = 0;
  int64 offset = 0;
  ForEachEntry([&](IndexEntry const& entry) {
    if (first == 0) first = entry.id, offset = entry.offset;
  });
  Chunk at;
  auto leads = [&](int64 base) {
    return _reader.Header(base + offset, Size(), at) && at.id == first;
  };
  if (first == 0) {
    _indexBase = -1;
    Note("the index is empty");
  } else if (!leads(0)) {
    if (leads(movi.Payload())) {
      _indexBase = movi.Payload();
      Note("index offsets count from movi");
    } else {
      _indexBase = -1;
      Note("the index does not lead to chunks");
    }
  }
}

void ReadEntries(RiffReader& reader, Chunk const& index, int64 base, EntrySink const& sink,
                 bool all) {
  constexpr unsigned kEntry = 16, kEntries = 256;
  unsigned char block[kEntry * kEntries];
  for (int64 at = index.Payload(); index.end - at >= kEntry;) {
    auto const want = static_cast<unsigned>(std::min<int64>(sizeof block, index.end - at));
    unsigned const n = reader.Read(at, block, want) / kEntry;
    if (n == 0) return;
    for (unsigned i = 0; i < n; ++i) {
      auto field = [&](std::size_t number) {
        return base::Load32(block + std::size_t{i} * kEntry + number * 4);
      };
      if (!all && !IsDataCode(field(0))) continue;
      sink({field(0), field(1), base + field(2), field(3), at + int64{i} * kEntry});
    }
    at += static_cast<int64>(n) * kEntry;
  }
}

bool SizeAgrees(AviTrack const& track, IndexEntry const& entry, Chunk const& chunk) {
  int64 const more = int64{entry.size} - chunk.size, pad = chunk.size % 2;
  if (more == 0) return true;
  if (track.codec == "text") return more == pad;
  return track.codec == "mjpeg" && (more == 8 || more == 8 + pad);
}

void AviFile::ForEachEntry(EntrySink const& sink, bool all) {
  if (_place != Index::kNone)
    ReadEntries(_reader, _index, std::max<int64>(_indexBase, 0), sink, all);
}

unsigned AviFile::DataSize(IndexEntry const& entry) {
  auto const number = static_cast<std::size_t>(TrackOfCode(entry.id));
  if (number >= _tracks.size()) return entry.size;
  std::string const& codec = _tracks[number].codec;
  Chunk chunk;
  if ((codec != "text" && codec != "mjpeg") || !_reader.Header(entry.offset, Size(), chunk) ||
      chunk.id != entry.id)
    return entry.size;
  int64 const padded = chunk.size + chunk.size % 2;
  bool const agrees = entry.size == padded || entry.size == padded + 8;
  return agrees ? static_cast<unsigned>(chunk.size) : entry.size;
}

void AviFile::ForEachData(RiffReader::DataSink const& sink) {
  for (Chunk const& chunk : _tree) {
    if (chunk.type != kMovi) continue;
    int64 const stopped = _reader.ScanData(chunk.Data(), chunk.end, sink);
    if (stopped < chunk.end && chunk.end - stopped >= 8)
      Note("no whole chunk at offset " + std::to_string(stopped));
  }
}

// From the index, which knows key frames too; from the data when there is no index, or when it
// covers the first part of the file only.
void AviFile::Count() {
  bool counted = false;
  if (_place != Index::kNone && _riffs == 1)
    ForEachEntry([&](IndexEntry const& entry) {
      auto const number = static_cast<std::size_t>(TrackOfCode(entry.id));
      if (number >= _tracks.size()) return;
      counted = true;
      AviTrack& track = _tracks[number];
      ++track.chunks;
      track.keyChunks += (entry.flags & IndexEntry::kKey) != 0;
      track.bytes += DataSize(entry);
    });
  if (_riffs > 1) Note("the file has " + std::to_string(_riffs) + " RIFF parts");
  _indexed = counted && _indexBase >= 0;
  for (AviTrack& track : _tracks) track.keysKnown = counted && track.type == "video";
  if (counted) return;
  ForEachData([&](Chunk const& chunk) {
    auto const number = static_cast<std::size_t>(TrackOfCode(chunk.id));
    if (number >= _tracks.size()) return;
    ++_tracks[number].chunks;
    _tracks[number].bytes += static_cast<base::uint64>(chunk.size);
  });
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

}  // namespace kestro::tool
