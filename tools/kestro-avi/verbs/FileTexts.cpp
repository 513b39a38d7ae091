#include "verbs/FileTexts.h"

#include <algorithm>

#include "avi/TrackReader.h"
#include "media/Scaled.h"

namespace kestro::tool {

static constexpr std::int64_t kLatest_ms = std::int64_t{1} << 40;

std::vector<TimedText> ReadTexts(avi::AviFile& avi) {
  auto const& tracks = avi.Tracks();
  std::vector<bool> selected(tracks.size());
  std::transform(tracks.begin(), tracks.end(), selected.begin(),
                 [](avi::AviTrack const& track) { return track.type == "text"; });
  if (std::find(selected.begin(), selected.end(), true) == selected.end()) return {};
  std::vector<TimedText> texts;
  avi::TrackReader(avi, selected).ForEach([&](std::size_t track, avi::Piece const& piece) {
    auto const timed = UnwrapSrt(piece.data, piece.size);
    texts.insert(texts.end(), timed.begin(), timed.end());
    if (!timed.empty() || piece.size == 0) return true;
    avi::AviTrack const& clock = tracks[avi.ClockOf(track)];
    std::int64_t const time_ms =
        std::clamp(Scaled(static_cast<std::int64_t>(piece.position),
                          std::int64_t{clock.scale} * 1000, clock.rate, Rounding::kTowardsZero),
                   std::int64_t{0}, kLatest_ms);
    texts.push_back({time_ms, time_ms, {piece.data, piece.data + piece.size}});
    return true;
  });
  std::stable_sort(texts.begin(), texts.end(),
                   [](TimedText const& a, TimedText const& b) { return a.start_ms < b.start_ms; });
  return texts;
}

}  // namespace kestro::tool
