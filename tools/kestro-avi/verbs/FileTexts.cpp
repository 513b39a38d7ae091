#include "verbs/FileTexts.h"

#include <algorithm>

#include "avi/TrackReader.h"

namespace kestro::tool {

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
    std::int64_t const time_ms = TextTime_ms(tracks[avi.ClockOf(track)], piece.position);
    texts.push_back({time_ms, time_ms, {piece.data, piece.data + piece.size}});
    return true;
  });
  std::stable_sort(texts.begin(), texts.end(),
                   [](TimedText const& a, TimedText const& b) { return a.start_ms < b.start_ms; });
  return texts;
}

}  // namespace kestro::tool
