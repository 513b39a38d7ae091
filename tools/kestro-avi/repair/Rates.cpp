#include "repair/Rates.h"

#include <numeric>

#include "media/FrameRate.h"

namespace kestro::tool {

using base::Fraction;

// What the stream header says: in this system's files the whole part, while the main header has the
// time of a frame. A rate that nobody records is damage.
static Fraction Declared(avi::AviTrack const& track, unsigned time_us) {
  auto const good = [](Fraction const& rate) {
    return rate.Positive() && rate.Whole() <= kHighestRate;
  };
  unsigned const common = std::gcd(1000000u, time_us);
  Fraction const stream(track.rate, track.scale), main(1000000 / common, time_us / common);
  bool const whole = good(stream) && stream.num % stream.den == 0;
  if (good(main) && (!good(stream) || (whole && main.Whole() == stream.Whole()))) return main;
  return good(stream) ? NearWhole(stream) : Fraction();
}

namespace {

class Rates {
 public:
  Rates(Head& head, Fraction const& option) : _head(head), _option(option) {}

  SpeedReport Set();

 private:
  bool Shares(TrackInfo const& info) const { return info.IsVideo() && info.Numbered(); }
  void Share();
  void Note();

  Head& _head;
  Fraction const _option;
  std::vector<Fraction> _declared;  // by the number of what is recorded
  SpeedReport _report;
};

SpeedReport Rates::Set() {
  auto& recorded = _head.recorded;
  _declared.resize(recorded.size());
  for (std::size_t i = 0; i < _head.tracks.size(); ++i)
    if (_head.numbers[i] >= 0)
      _declared[static_cast<std::size_t>(_head.numbers[i])] =
          Declared(_head.tracks[i], _head.frameTime_us);
  Share();
  TrackInfo const* video = nullptr;
  for (std::size_t i = 0; i < recorded.size(); ++i) {
    if (!recorded[i].IsVideo()) continue;
    recorded[i].frameRate = ChooseRate({_option, _declared[i], {}}, recorded[i].name);
    if (video == nullptr) video = &recorded[i];
  }
  for (std::size_t i = 0; i < recorded.size(); ++i) {
    if (!recorded[i].IsText()) continue;
    bool const own = !_option.Positive() && _declared[i].Whole() >= 1;
    recorded[i].frameRate = own || video == nullptr ? _declared[i] : video->frameRate;
  }
  Note();
  return _report;
}

// The muxer has one rate for all video: where damage tells several, one that the main header has
// too, or the first.
void Rates::Share() {
  if (_option.Positive()) return;
  Fraction const main(1000000, _head.frameTime_us);
  Fraction chosen;
  for (std::size_t i = 0; i < _declared.size(); ++i)
    if (Shares(_head.recorded[i]) && (!chosen.Positive() || SameRate(_declared[i], main)))
      chosen = _declared[i];
  for (std::size_t i = 0; i < _declared.size(); ++i) {
    if (!Shares(_head.recorded[i])) continue;
    if (_declared[i].Positive() && !SameRate(_declared[i], chosen))
      _report.warnings.push_back(RatesDiffer(_head.recorded[i].name, _declared[i], chosen));
    _declared[i] = chosen;
  }
}

// Of a file that says a whole rate already, the speed stays.
void Rates::Note() {
  for (std::size_t i = 0; i < _head.tracks.size(); ++i) {
    avi::AviTrack const& track = _head.tracks[i];
    if (_head.numbers[i] < 0 || track.type != "video") continue;
    TrackInfo const& info = _head.recorded[static_cast<std::size_t>(_head.numbers[i])];
    bool const said = track.scale != 0 && track.rate % track.scale == 0 &&
                      track.rate / track.scale == info.frameRate.Whole();
    std::string const note = said ? "" : SpeedNote(info.name, info.frameRate);
    if (!note.empty()) _report.notes.push_back(note);
  }
}

}  // namespace

SpeedReport SetRates(Head& head, Fraction const& option) { return Rates(head, option).Set(); }

}  // namespace kestro::tool
