#include "recorder/TrackSet.h"

#include <cmath>

#include "recorder/CheckOptions.h"
#include "recorder/Refusal.h"

namespace kestro::record {

TrackSet::TrackSet(RecorderOptions const& options, Tracks const& tracks) {
  Sort(tracks);
  if (!options.verbatim) {
    CheckTracks(_infos);
    CheckReserve(options, _infos);
  }
  UseStoredRates(options.verbatim);
}

void TrackSet::Sort(Tracks const& tracks) {
  if (tracks.empty() || tracks.size() > 100)
    throw Refusal(Code::kInvalid, "a recording must have 1 to 100 tracks");
  _numberOf.resize(tracks.size());
  for (bool numbered : {true, false})
    for (std::size_t i = 0; i < tracks.size(); ++i) {
      if (tracks[i].Numbered() != numbered) continue;
      _numberOf[i] = _infos.size();
      _infos.push_back(tracks[i]);
      if (tracks[i].name.empty()) _infos.back().name = "track " + std::to_string(i);
    }
}

// Remembers how long frames last, and makes the rates those that files store.
void TrackSet::UseStoredRates(bool verbatim) {
  _frame_ns.resize(_infos.size());
  for (std::size_t i = 0; i < _infos.size(); ++i) {
    base::Fraction const rate = _infos[i].frameRate;
    if (!rate.Positive()) continue;
    _frame_ns[i] =
        std::llround(1e9 * static_cast<double>(rate.den) / static_cast<double>(rate.num));
    if (!verbatim) _infos[i].frameRate = TrackInfo::StoredRate(rate);
  }
}

std::int64_t TrackSet::Duration_ns(std::size_t number, stream::Packet const& packet) const {
  constexpr std::int64_t kSecond_ns = 1000000000;
  TrackInfo const& info = _infos[number];
  if (info.IsText()) return 0;
  if (info.IsAudio())
    return std::int64_t{packet.Size() / info.FrameBytes()} * kSecond_ns / info.rate;
  return _frame_ns[number];
}

}  // namespace kestro::record
