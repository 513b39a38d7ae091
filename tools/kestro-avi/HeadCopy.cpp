#include "HeadCopy.h"

#include <algorithm>
#include <cstring>

#include "SlotFile.h"
#include "base/LittleEndian.h"

namespace kestro::tool {

using base::Convert4;

static constexpr char kMagic[] = "kestroHC";
static constexpr unsigned kLargest = 1 << 20;

static std::string Words(std::initializer_list<std::uint64_t> values) {
  std::string bytes(values.size() * 4, '\0');
  auto* at = reinterpret_cast<unsigned char*>(bytes.data());
  for (std::uint64_t value : values) at = base::Store32(at, static_cast<unsigned>(value));
  return bytes;
}

static std::string Leaf(char const* id, std::string const& payload) {
  return Words({Convert4(id), payload.size()}) + payload;
}

static std::string List(char const* id, char const* type, std::string const& content) {
  return Leaf(id, Words({Convert4(type)}) + content);
}

std::string HeadCopy::Compose(std::string const& head, HeadPlaces const& places) {
  std::string const rest = Words({places.data, places.entries, places.reserve, places.junk}) + head;
  return std::string(kMagic) + Words({16 + rest.size(), Crc32(rest.data(), rest.size())}) + rest;
}

std::optional<HeadCopy> HeadCopy::Find(RiffReader& file, int64 from, int64 to) {
  to = std::min(std::min(to, file.Size()), int64{32} << 20);
  unsigned char front[16];
  for (int64 at = (from + kSector - 1) / kSector * kSector; at < to; at += kSector) {
    if (file.Read(at, front, 16) != 16 || std::memcmp(front, kMagic, 8) != 0) continue;
    unsigned const size = base::Load32(front + 8);
    if (size < kFront || size > kLargest || size > file.Size() - at) continue;
    std::string rest(size - 16, '\0');
    if (file.Read(at + 16, rest.data(), size - 16) != size - 16 ||
        Crc32(rest.data(), rest.size()) != base::Load32(front + 12))
      continue;
    auto const word = [&rest](std::size_t i) {
      return base::Load32(reinterpret_cast<unsigned char const*>(rest.data()) + i * 4);
    };
    if (word(3) > file.Size()) continue;
    return HeadCopy{{word(0), word(1), word(2), word(3)}, at, rest.substr(kFront - 16)};
  }
  return std::nullopt;
}

// strh and strf, as the plug-in's streams write them before the first packet.
static std::string Describe(TrackInfo const& info, base::Fraction rate) {
  constexpr unsigned kScale = 10000, kQuality = 10000;
  auto const u = [](base::int64 value) { return static_cast<std::uint64_t>(value); };
  if (info.kind == TrackInfo::kVideo) {
    std::string const codec = info.codec;
    unsigned const handler = Convert4(codec == "h264" ? "H264" : codec == "hevc" ? "hev1" : "MJPG");
    auto const width = u(info.width), height = u(info.height);
    return Leaf("strh", Words({Convert4("vids"), handler, 0, 0, 0, kScale, u(rate.Whole()) * kScale,
                               0, 0, 192000, kQuality, 0, 0, (width & 0xFFFF) | height << 16})) +
           Leaf("strf",
                Words({40, width, height, 1 | 24 << 16, handler, width * height * 3, 0, 0, 0, 0}));
  }
  if (info.kind == TrackInfo::kSound) {
    auto const channels = u(info.channels), bits = u(info.bits), frame = channels * bits / 8;
    auto const second = frame * u(info.rate);
    return Leaf("strh", Words({Convert4("auds"), Convert4("PCM"), 0, 0, 0, frame, second, 0, 0,
                               32000, kQuality, frame, 0, 0})) +
           Leaf("strf", Words({1 | channels << 16, u(info.rate), second, frame | bits << 16}));
  }
  return Leaf("strh", Words({Convert4("txts"), 0, 0, 0, 0, kScale, u(rate.Whole()) * kScale, 0, 0,
                             0, kQuality, 0, 0, 0})) +
         Leaf("strf", std::string(64, '\0'));
}

static std::string MainHeader(std::vector<Track*> const& tracks) {
  auto const last = std::find_if(tracks.rbegin(), tracks.rend(), [](Track const* track) {
    return track->Info().kind == TrackInfo::kVideo;
  });
  if (last == tracks.rend()) return std::string(56, '\0');
  auto const u = [](base::int64 value) { return static_cast<std::uint64_t>(value); };
  TrackInfo const& info = (*last)->Info();
  base::Fraction const rate = info.frameRate;
  return Words({rate.Positive() ? u(rate.den) * 1000000 / u(rate.num) : 0, 0, 0, 0x10010, 0, 0,
                tracks.size(), 192000, u(info.width), u(info.height), 0, 0, 0, 0});
}

std::string ComposeHead(std::vector<Track*> const& tracks, base::Fraction rate, Tags const* tags) {
  std::string lists = Leaf("avih", MainHeader(tracks)), info;
  auto const add = [](std::string& to, char const* id, std::vector<char> const& data) {
    if (!data.empty()) to += Leaf(id, {data.begin(), data.end()});
  };
  for (std::size_t i = 0; i < tracks.size(); ++i) {
    TrackInfo const& track = tracks[i]->Info();
    bool const shared = track.kind == TrackInfo::kVideo && !track.unnumbered;
    std::string strl = Describe(track, shared ? rate : track.frameRate);
    if (tags != nullptr) {
      add(strl, "strd", tags->Strd(i));
      add(strl, "strn", tags->Strn(i));
    }
    lists += List("LIST", "strl", strl);
  }
  if (tags != nullptr) add(info, "isft", tags->Isft());
  return List("RIFF", "AVI ",
              List("LIST", "hdrl", lists) + (info.empty() ? "" : List("LIST", "INFO", info)));
}

}  // namespace kestro::tool
