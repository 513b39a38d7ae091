#include "verify/FlaggedFrames.h"

#include <algorithm>

#include "verify/FrameConverter.h"

namespace kestro::tool {

static constexpr unsigned kMostFrames = 64;  // to check: the second key frame comes much later

std::vector<avi::IndexEntry> FlaggedFrames(avi::AviFile& avi) {
  struct State {
    FrameConverter converter;
    bool all;  // all entries so far have flags
    unsigned frames = 0;
    avi::IndexEntry other = {};  // the first that is not a key frame; id 0 for none
  };
  std::vector<State> states;
  for (avi::AviTrack const& track : avi.Tracks())
    states.push_back({FrameConverter(track), track.codec == "h264" || track.codec == "hevc"});
  avi.ForEachEntry([&](avi::IndexEntry const& entry) {
    auto const number = static_cast<std::size_t>(avi::TrackOfCode(entry.id));
    if (number >= states.size()) return;
    State& state = states[number];
    state.all = state.all && entry.flags != 0;
    if (!state.all || state.other.id != 0 || ++state.frames > kMostFrames) return;
    if (state.converter.KindOf(avi.Reader(), entry) == Picture::kOther) state.other = entry;
  });
  std::vector<avi::IndexEntry> list;
  for (State const& state : states)
    if (state.all && state.other.id != 0) list.push_back(state.other);
  return list;
}

}  // namespace kestro::tool
