#include "repair/Head.h"

#include <algorithm>

#include "avi/HeadCopy.h"
#include "cli/Errors.h"
#include "verify/Streams.h"

namespace kestro::tool {

using base::Convert4;

static constexpr int64 kMaxTag = 64 << 20;

static std::vector<char> Content(avi::AviFile& avi, avi::Chunk const& chunk) {
  if (chunk.Cut() || chunk.size > kMaxTag) return {};
  std::vector<char> data(static_cast<std::size_t>(chunk.size));
  data.resize(avi.Reader().Read(chunk.Payload(), data.data(), static_cast<unsigned>(data.size())));
  return data;
}

// Returns false when the plug-in cannot record the track.
static bool ConvertTrack(avi::AviTrack const& track, TrackInfo& info) {
  static constexpr std::pair<char const*, TrackInfo::Codec> kCodecs[] = {
      {"h264", TrackInfo::kH264},
      {"hevc", TrackInfo::kHevc},
      {"mjpeg", TrackInfo::kMjpeg},
      {"pcm", TrackInfo::kPcm},
      {"text", TrackInfo::kText}};
  auto const* const found = std::find_if(std::begin(kCodecs), std::end(kCodecs),
                                         [&](auto const& c) { return track.codec == c.first; });
  if (found == std::end(kCodecs)) return false;
  info.codec = found->second;
  info.width = static_cast<int>(track.width);
  info.height = static_cast<int>(track.height);
  info.rate = static_cast<int>(track.sampleRate);
  info.channels = static_cast<int>(track.channels);
  info.bits = static_cast<int>(track.bits);
  // The fields of an audio format have 16 and 32 bits.
  auto const frame = base::uint64{track.channels} * track.bits / 8;
  return !info.IsAudio() || (track.sampleRate != 0 && track.bits % 8 == 0 && frame != 0 &&
                             frame <= UINT16_MAX && frame * track.sampleRate <= UINT32_MAX);
}

static void CopyTags(avi::AviFile& avi, Head& head) {
  auto of = [&head](std::vector<std::vector<char>>& list, int track) -> std::vector<char>& {
    list.resize(head.recorded.size());
    return list.at(static_cast<std::size_t>(track));
  };
  int lists = 0;
  for (avi::Chunk const& chunk : avi.Tree()) {
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
    // With a copy of the header in it, JUNK is larger than requested.
    if (auto const copy = avi::HeadCopy::Find(avi.Reader(), chunk.Payload(), chunk.end))
      head.tags.junk = copy->places.junk;
    else
      head.tags.junkData = Content(avi, chunk);
  }
}

Head ReadHead(avi::AviFile& avi, std::string const& path, int64 data) {
  Head head;
  head.data = data;
  head.tracks = avi.Tracks();
  for (avi::Chunk const& chunk : avi.Tree()) {
    if (chunk.id == Convert4("avih")) head.frameTime_us = Field32(avi.Reader(), chunk, 0);
    if (chunk.type == Convert4("movi") && head.data == 0) head.data = chunk.Data();
  }
  if (head.data == 0) throw Error(kUnusable, path + ": no movi list: it ends within its header");
  std::vector<TrackInfo> infos(head.tracks.size());
  head.numbers.assign(infos.size(), -1);
  for (std::size_t i = 0; i < infos.size(); ++i) {
    infos[i].name = path + ", track " + std::to_string(i);
    if (ConvertTrack(head.tracks[i], infos[i])) head.numbers[i] = 0;
  }
  for (bool numbered : {true, false})
    for (std::size_t i = 0; i < infos.size(); ++i) {
      if (head.numbers[i] < 0 || infos[i].Numbered() != numbered) continue;
      head.numbers[i] = static_cast<int>(head.recorded.size());
      head.recorded.push_back(infos[i]);
    }
  if (head.recorded.empty()) throw Error(kUnusable, path + ": no track can be recorded");
  CopyTags(avi, head);
  return head;
}

bool SameTracks(Head const& a, Head const& b) {
  auto const same = [](avi::AviTrack const& x, avi::AviTrack const& y) {
    return x.type == y.type && x.codec == y.codec && x.width == y.width && x.height == y.height &&
           x.rate == y.rate && x.scale == y.scale && x.sampleRate == y.sampleRate &&
           x.channels == y.channels && x.bits == y.bits;
  };
  return a.data == b.data &&
         std::equal(a.tracks.begin(), a.tracks.end(), b.tracks.begin(), b.tracks.end(), same);
}

}  // namespace kestro::tool
