#include "recorder/Head.h"

#include <algorithm>

#include "avi/HeadCopy.h"
#include "base/FourCC.h"

namespace kestro::record {

using avi::Words;
using base::Convert4;

static std::string Leaf(char const* id, std::string const& payload) {
  return Words({Convert4(id), payload.size()}) + payload;
}

static std::string List(char const* id, char const* type, std::string const& content) {
  return Leaf(id, Words({Convert4(type)}) + content);
}

// The chunks strh and strf, as the plug-in writes them before the first packet.
static std::string Describe(TrackInfo const& info, base::Fraction rate) {
  constexpr unsigned kScale = 10000, kQuality = 10000;
  auto const u = [](base::int64 value) { return static_cast<std::uint64_t>(value); };
  if (info.IsVideo()) {
    static constexpr char const* kHandlers[] = {"H264", "hev1", "MJPG"};
    unsigned const handler = Convert4(kHandlers[info.codec]);
    auto const width = u(info.width), height = u(info.height);
    return Leaf("strh", Words({Convert4("vids"), handler, 0, 0, 0, kScale, u(rate.Whole()) * kScale,
                               0, 0, 192000, kQuality, 0, 0, (width & 0xFFFF) | height << 16})) +
           Leaf("strf",
                Words({40, width, height, 1 | 24 << 16, handler, width * height * 3, 0, 0, 0, 0}));
  }
  if (info.IsAudio()) {
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

static std::string MainHeader(Tracks const& tracks) {
  auto const last = std::find_if(tracks.rbegin(), tracks.rend(),
                                 [](TrackInfo const& track) { return track.IsVideo(); });
  if (last == tracks.rend()) return std::string(56, '\0');
  auto const u = [](base::int64 value) { return static_cast<std::uint64_t>(value); };
  TrackInfo const& info = *last;
  base::Fraction const rate = info.frameRate;
  return Words({rate.Positive() ? u(rate.den) * 1000000 / u(rate.num) : 0, 0, 0, 0x10010, 0, 0,
                tracks.size(), 192000, u(info.width), u(info.height), 0, 0, 0, 0});
}

std::string ComposeHead(Tracks const& tracks, base::Fraction rate, Tags const* tags) {
  std::string lists = Leaf("avih", MainHeader(tracks)), info;
  auto const add = [](std::string& to, char const* id, std::vector<char> const& data) {
    if (!data.empty()) to += Leaf(id, {data.begin(), data.end()});
  };
  for (std::size_t i = 0; i < tracks.size(); ++i) {
    TrackInfo const& track = tracks[i];
    bool const shared = track.IsVideo() && track.Numbered();
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

}  // namespace kestro::record
