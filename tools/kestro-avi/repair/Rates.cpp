#include "repair/Rates.h"

#include <algorithm>
#include <numeric>

#include "media/FrameRate.h"

namespace kestro::tool {

using base::Fraction;

// The rate in the headers. In files of this system the stream header has only the whole part, and
// the main header the frame time. Ignores rates that cannot be recorded, because they must be
// damaged.
static Fraction HeaderRate(avi::AviTrack const& track, unsigned time_us) {
  auto const valid = [](Fraction const& rate) {
    return rate.Positive() && rate.Whole() <= kHighestRate;
  };
  unsigned const common = std::gcd(1000000u, time_us);
  Fraction const stream(track.rate, track.scale), main(1000000 / common, time_us / common);
  bool const whole = valid(stream) && stream.num % stream.den == 0;
  if (valid(main) && (!valid(stream) || (whole && main.Whole() == stream.Whole()))) return main;
  return valid(stream) ? UsualRate(stream) : Fraction();
}

unsigned ChunksPerFrame(avi::AviTrack const& track) {
  constexpr unsigned kFewest = 10;  // so that a few empty chunks are no pattern
  if (track.type != "video" || track.filledChunks < kFewest) return 1;
  base::uint64 const filled = track.filledChunks;
  base::uint64 const times = (track.chunks + filled / 2) / filled;
  base::uint64 const whole = times * filled;
  base::uint64 const off = std::max(whole, track.chunks) - std::min(whole, track.chunks);
  return times > 1 && times <= kHighestRate && off <= 2 + filled / 50 ? static_cast<unsigned>(times)
                                                                      : 1;
}

namespace {

class Rates {
 public:
  Rates(Head& head, Fraction const& option) : _head(head), _option(option) {}

  SpeedReport Set();

 private:
  bool SharesRate(TrackInfo const& info) const { return info.IsVideo() && info.Numbered(); }
  void UseOneRate();
  void Round();

  Head& _head;
  Fraction const _option;
  std::vector<Fraction> _rates;  // from the headers, by recorded track
  SpeedReport _report;
};

SpeedReport Rates::Set() {
  auto& recorded = _head.recorded;
  _rates.resize(recorded.size());
  for (std::size_t i = 0; i < _head.tracks.size(); ++i)
    if (_head.numbers[i] >= 0)
      _rates[static_cast<std::size_t>(_head.numbers[i])] =
          HeaderRate(_head.tracks[i], _head.frameTime_us);
  for (std::size_t i = 0; i < _head.tracks.size(); ++i)
    if (_head.numbers[i] >= 0)
      _rates[static_cast<std::size_t>(_head.numbers[i])].den *= ChunksPerFrame(_head.tracks[i]);
  UseOneRate();
  TrackInfo const* video = nullptr;
  for (std::size_t i = 0; i < recorded.size(); ++i) {
    if (!recorded[i].IsVideo()) continue;
    recorded[i].frameRate = ChooseRate({_option, _rates[i], {}}, recorded[i].name);
    if (video == nullptr) video = &recorded[i];
  }
  for (std::size_t i = 0; i < recorded.size(); ++i) {
    if (!recorded[i].IsText()) continue;
    bool const own = !_option.Positive() && _rates[i].Whole() >= 1;
    recorded[i].frameRate = own || video == nullptr ? _rates[i] : video->frameRate;
  }
  Round();
  return _report;
}

// The muxer has one rate for all H.264 and HEVC tracks. If the headers are damaged and have
// several, uses one that equals that of the main header, or else the first.
void Rates::UseOneRate() {
  if (_option.Positive()) return;
  Fraction const main(1000000, _head.frameTime_us);
  Fraction chosen;
  for (std::size_t i = 0; i < _rates.size(); ++i)
    if (SharesRate(_head.recorded[i]) && (!chosen.Positive() || SameRate(_rates[i], main)))
      chosen = _rates[i];
  for (std::size_t i = 0; i < _rates.size(); ++i) {
    if (!SharesRate(_head.recorded[i])) continue;
    if (_rates[i].Positive() && !SameRate(_rates[i], chosen))
      _report.warnings.push_back(RatesDiffer(_head.recorded[i].name, _rates[i], chosen));
    _rates[i] = chosen;
  }
}

// A file stores whole rates. Files of this system have the next lower one, and keep it.
void Rates::Round() {
  for (std::size_t i = 0; i < _head.tracks.size(); ++i) {
    avi::AviTrack const& track = _head.tracks[i];
    if (_head.numbers[i] < 0 || track.type != "video") continue;
    TrackInfo& info = _head.recorded[static_cast<std::size_t>(_head.numbers[i])];
    Fraction const rate = info.frameRate;
    bool const same = track.scale != 0 && track.rate % track.scale == 0 &&
                      ChunksPerFrame(track) == 1 && track.rate / track.scale == rate.Whole();
    if (same) continue;
    info.frameRate = StoredRate(rate);
    std::string const text = StoredRateText(rate);
    if (text.empty()) continue;
    auto const speed = PlayedSpeed(rate);
    (Stretchable(speed) ? _report.notes : _report.warnings)
        .push_back(info.name + ": " + text + ": " + DriftText(speed));
  }
}

}  // namespace

SpeedReport SetRates(Head& head, Fraction const& option) { return Rates(head, option).Set(); }

}  // namespace kestro::tool
