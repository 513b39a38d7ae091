#include "media/libav/Epoch.h"

#include <algorithm>
#include <utility>

#include "cli/Errors.h"
#include "media/FrameRate.h"

namespace kestro::tool {

// How much the other tracks of an input may hold while one has no packets.
static constexpr std::int64_t kMaxAhead_ns = 5000000000;
static constexpr std::size_t kMaxAheadBytes = 32 << 20;

Epoch::Epoch(std::vector<Input*> inputs, InputOptions const& options, Selection const& selection,
             EpochStart const& start)
    : _session_ns(start.session_ns), _timeline(selection), _inputs(std::move(inputs)) {
  for (Input* const input : _inputs) input->Begin(_timeline, start);
  for (bool numbered : {true, false})
    for (std::size_t i = 0; i < _inputs.size(); ++i)
      for (auto const& track : _inputs[i]->Tracks()) {
        if (track->Info().Numbered() != numbered) continue;
        _tracks.push_back(track.get());
        _inputOf.push_back(i);
      }
  CheckTracks();
  if (_video == nullptr) {  // audio can start anywhere
    _timeline.offset_ns = selection.start_ns;
    _timeline.known = true;
    _timeline.Settle(INT64_MAX);
  } else {
    SetSpeeds(options);
  }
}

record::Tracks Epoch::Tracks() const {
  record::Tracks tracks;
  for (Track const* track : _tracks) tracks.push_back(track->Info());
  return tracks;
}

void Epoch::CheckTracks() {
  for (std::size_t i = 0; i < _tracks.size(); ++i) {
    Track* const track = _tracks[i];
    TrackInfo const& info = track->Info();
    if (info.IsText() && _video == nullptr)
      throw Error(kUnusable, info.name +
                                 ": text takes its times from video, and there is none "
                                 "(--no-text leaves it out)");
    if (info.IsText()) track->FrameRate(_video->Info().frameRate);
    if (!info.IsVideo()) continue;
    if (_video == nullptr) {
      _video = track;
      _leadInput = i;
      track->MakeLead();
    }
    // Motion JPEG may have its own rate.
    if (info.Numbered() && !SameRate(info.frameRate, _video->Info().frameRate))
      throw Error(kUnusable, RatesDiffer(info.name, track->InputRate(), _video->InputRate()));
  }
  if (_video != nullptr) _leadInput = _inputOf[_leadInput];
}

// A file stores whole frame rates, so that pictures may play at another speed: audio follows as far
// as this is not noticed.
void Epoch::SetSpeeds(InputOptions const& options) {
  _timeline.videoSpeed = PlayedSpeed(_video->InputRate());
  bool const stretches = Stretchable(_timeline.videoSpeed) && !options.keepSamples;
  if (stretches) _timeline.speed = _timeline.videoSpeed;
  bool const audio = std::any_of(_tracks.begin(), _tracks.end(),
                                 [](Track const* track) { return track->Info().IsAudio(); });
  for (Track const* track : _tracks) {
    base::Fraction const rate = track->InputRate(), other = track->OtherRate();
    if (!rate.Positive()) continue;
    base::Fraction const speed = PlayedSpeed(rate);
    std::string const name = track->Info().name + ": ", stored = StoredRateText(rate);
    char const* const than = audio ? "audio" : "in the input";
    if (SameRate(speed, _timeline.speed)) {
      if (!stored.empty())
        _notes.push_back(name + stored + (audio ? "; audio is stretched to match" : ""));
    } else if (stretches) {
      base::Fraction const apart{speed.num * _timeline.speed.den, speed.den * _timeline.speed.num};
      (Stretchable(apart) ? _notes : _findings)
          .push_back(name + RateText(rate) + " fps, but the first video has " +
                     RateText(_video->InputRate()) + " fps: " + DriftText(apart, than));
    } else {
      _findings.push_back(name + stored + ": " + DriftText(speed, than) +
                          (options.keepSamples && Stretchable(speed)
                               ? "; without --keep-samples, the audio is stretched to match"
                               : "; a video with a whole frame rate avoids this"));
    }
    if (other.Positive() && audio)
      _findings.push_back(name + "--fps " + RateText(rate) + " instead of " + RateText(other) +
                          ": " + DriftText({other.num * rate.den, other.den * rate.num}));
  }
}

// Whether the other tracks of the same input hold so much that this one is skipped.
bool Epoch::OthersRunAhead(std::size_t track) const {
  std::size_t bytes = 0;
  std::int64_t longest_ns = 0;
  for (auto const& other : _inputs[_inputOf[track]]->Tracks()) {
    if (!other->Ready()) continue;
    bytes += other->WaitingBytes();
    longest_ns = std::max(longest_ns, other->Waiting_ns());
  }
  return bytes > kMaxAheadBytes || longest_ns > kMaxAhead_ns;
}

// At the same time, text comes before its frame.
static bool IsEarlier(Track const& a, Track const& b) {
  if (a.NextTime_ns() != b.NextTime_ns()) return a.NextTime_ns() < b.NextTime_ns();
  return a.Info().IsText() && !b.Info().IsText();
}

// The track whose packet is next; their count at the end. The time is known before the packet,
// because times are counted.
std::size_t Epoch::FindNext() const {
  std::size_t best = _tracks.size();
  for (std::size_t i = 0; i < _tracks.size(); ++i) {
    if (_tracks[i]->Done() || (!_tracks[i]->Ready() && OthersRunAhead(i))) continue;
    if (best == _tracks.size() || IsEarlier(*_tracks[i], *_tracks[best])) best = i;
  }
  return best;
}

Epoch::Outcome Epoch::Next(std::size_t& track, TimedPacket& packet) {
  if (!_timeline.known) {
    bool const more = _inputs[_leadInput]->Read();
    return more || _timeline.known ? kNothing : kEnd;
  }
  std::size_t const next = FindNext();
  if (next == _tracks.size()) return kEnd;
  if (!_tracks[next]->Ready()) {
    _inputs[_tracks[next]->WaitsForLead() ? _leadInput : _inputOf[next]]->Read();
    return kNothing;
  }
  track = next;
  packet = _tracks[next]->Pop();
  if (_tracks[next]->Info().IsText()) PlaceText(packet);
  return kPacket;
}

// A text gets the time of the next frame.
void Epoch::PlaceText(TimedPacket& packet) {
  std::int64_t const frame_ns = FrameTime_ns(_video->Info().frameRate, 1);
  std::int64_t const next_ns = _video->NextTime_ns();
  if (_video->Done() || next_ns > packet.time_ns + frame_ns) ++_misplaced;
  packet.time_ns = next_ns;
}

// Adds the track to its messages.
void Epoch::AddFrom(std::size_t track, Notices const& own, Notices& all) const {
  for (Notice notice : own) {
    std::string const& name = _tracks[track]->Info().name;
    notice.text = name + ": " + notice.text;
    std::vector<Notice::Field> fields{{"track", track}, {"input", name}};
    notice.fields.insert(notice.fields.begin(), fields.begin(), fields.end());
    all.push_back(std::move(notice));
  }
}

Notices Epoch::LateNotes() const {
  Notices notes;
  for (std::size_t i = 0; i < _tracks.size(); ++i) AddFrom(i, _tracks[i]->Notes(), notes);
  return notes;
}

Notices Epoch::Findings() const {
  Notices findings = _findings;
  for (std::size_t i = 0; i < _tracks.size(); ++i) AddFrom(i, _tracks[i]->Findings(), findings);
  if (_misplaced != 0)
    findings.emplace_back(
        std::to_string(_misplaced) +
        " texts are after the end of the video or came too late: their times are lost");
  return findings;
}

Notices Epoch::TakeEvents() {
  Notices events;
  for (std::size_t i = 0; i < _tracks.size(); ++i) AddFrom(i, _tracks[i]->TakeEvents(), events);
  return events;
}

}  // namespace kestro::tool
