#include "repair/Head.h"

#include <algorithm>

#include "Errors.h"
#include "HeadCopy.h"
#include "input/FrameRate.h"
#include "verify/Streams.h"

namespace kestro::tool {

using base::Convert4;

static constexpr int64 kMaxTag = 64 << 20;

static std::vector<char> Content(AviFile& avi, Chunk const& chunk) {
  if (chunk.Cut() || chunk.size > kMaxTag) return {};
  std::vector<char> data(static_cast<std::size_t>(chunk.size));
  data.resize(avi.Reader().Read(chunk.Payload(), data.data(), static_cast<unsigned>(data.size())));
  return data;
}

// The stream header holds the whole part of a frame rate only, the main header the time of a frame.
// A rate that nobody records is damage.
static base::Fraction FrameRate(AviTrack const& track, unsigned time_us) {
  auto const good = [](base::Fraction const& rate) {
    return rate.Positive() && rate.Whole() <= kHighestRate;
  };
  base::Fraction const whole(track.rate, track.scale), fine(1000000, time_us);
  if (good(fine) && (!good(whole) || fine.Whole() == whole.Whole())) return fine;
  return good(whole) ? whole : base::Fraction();
}

// False for a track that the plug-in cannot record.
static bool Describe(AviTrack const& track, unsigned time_us, TrackInfo& info) {
  struct Codec {
    char const *codec, *recorded;
    TrackInfo::Kind kind;
  };
  static constexpr Codec kCodecs[] = {{"h264", "h264", TrackInfo::kVideo},
                                      {"hevc", "hevc", TrackInfo::kVideo},
                                      {"mjpeg", "mjpg", TrackInfo::kVideo},
                                      {"pcm", "pcm", TrackInfo::kSound},
                                      {"text", "txt", TrackInfo::kText}};
  auto const* const found = std::find_if(std::begin(kCodecs), std::end(kCodecs),
                                         [&](Codec const& c) { return track.codec == c.codec; });
  if (found == std::end(kCodecs)) return false;
  info.codec = found->recorded;
  info.kind = found->kind;
  info.unnumbered = track.codec == "mjpeg" || track.codec == "text";
  info.width = static_cast<int>(track.width);
  info.height = static_cast<int>(track.height);
  info.rate = static_cast<int>(track.sampleRate);
  info.channels = static_cast<int>(track.channels);
  info.bits = static_cast<int>(track.bits);
  if (info.kind != TrackInfo::kSound) info.frameRate = FrameRate(track, time_us);
  // The fields of a sound format have 16 and 32 bits.
  auto const frame = base::uint64{track.channels} * track.bits / 8;
  return info.kind != TrackInfo::kSound ||
         (track.sampleRate != 0 && track.bits % 8 == 0 && frame != 0 && frame <= UINT16_MAX &&
          frame * track.sampleRate <= UINT32_MAX);
}

// The muxer has one rate for all video: where damage tells several, one that the main header has
// too, or the first.
static void ShareRate(std::vector<TrackInfo>& tracks, unsigned time_us) {
  auto const shares = [](TrackInfo const& info) {
    return info.kind == TrackInfo::kVideo && !info.unnumbered;
  };
  TrackInfo const* chosen = nullptr;
  for (TrackInfo const& info : tracks)
    if (shares(info) && (chosen == nullptr || info.frameRate == base::Fraction(1000000, time_us)))
      chosen = &info;
  for (TrackInfo& info : tracks)
    if (shares(info)) info.frameRate = base::Fraction(chosen->frameRate);
}

static void CarryTags(AviFile& avi, Head& head) {
  auto of = [&head](std::vector<std::vector<char>>& list, int track) -> std::vector<char>& {
    list.resize(head.recorded.size());
    return list.at(static_cast<std::size_t>(track));
  };
  int lists = 0;
  for (Chunk const& chunk : avi.Tree()) {
    if (chunk.type == Convert4("movi")) return;
    lists += chunk.type == Convert4("strl");
    bool const listed = lists > 0 && static_cast<std::size_t>(lists) <= head.numbers.size();
    int const track = listed ? head.numbers[static_cast<std::size_t>(lists) - 1] : -1;
    if (track >= 0 && chunk.id == Convert4("strd"))
      of(head.tags.strdOf, track) = Content(avi, chunk);
    if (track >= 0 && chunk.id == Convert4("strn"))
      of(head.tags.strnOf, track) = Content(avi, chunk);
    if (chunk.id == Convert4("isft") || chunk.id == Convert4("ISFT")) {
      auto const text = Content(avi, chunk);
      head.tags.isft.assign(text.begin(), text.end());
    }
    if (chunk.id != Convert4("JUNK") || chunk.depth != 1 || !head.tags.junkData.empty()) continue;
    // Where it has a copy of the head, it is as large as that wants it.
    if (auto const copy = HeadCopy::Find(avi.Reader(), chunk.Payload(), chunk.end))
      head.tags.junk = copy->places.junk;
    else
      head.tags.junkData = Content(avi, chunk);
  }
}

Head ReadHead(AviFile& avi, std::string const& path, int64 data) {
  Head head;
  head.data = data;
  head.tracks = avi.Tracks();
  unsigned time_us = 0;
  for (Chunk const& chunk : avi.Tree()) {
    if (chunk.id == Convert4("avih")) time_us = Field32(avi.Reader(), chunk, 0);
    if (chunk.type == Convert4("movi") && head.data == 0) head.data = chunk.Data();
  }
  if (head.data == 0) throw Error(kUnusable, path + ": no movi list: it ends within its head");
  for (std::size_t i = 0; i < head.tracks.size(); ++i) {
    TrackInfo info;
    info.name = path + ", track " + std::to_string(i);
    bool const good = Describe(head.tracks[i], time_us, info);
    head.numbers.push_back(good ? static_cast<int>(head.recorded.size()) : -1);
    if (good) head.recorded.push_back(info);
  }
  if (head.recorded.empty()) throw Error(kUnusable, path + ": no track can be recorded");
  ShareRate(head.recorded, time_us);
  CarryTags(avi, head);
  return head;
}

bool SameTracks(Head const& a, Head const& b) {
  auto const same = [](AviTrack const& x, AviTrack const& y) {
    return x.type == y.type && x.codec == y.codec && x.width == y.width && x.height == y.height &&
           x.rate == y.rate && x.scale == y.scale && x.sampleRate == y.sampleRate &&
           x.channels == y.channels && x.bits == y.bits;
  };
  return a.data == b.data &&
         std::equal(a.tracks.begin(), a.tracks.end(), b.tracks.begin(), b.tracks.end(), same);
}

}  // namespace kestro::tool
