#include "media/libav/InputSession.h"

#include <algorithm>

#include "cli/Errors.h"
#include "cli/Text.h"
#include "media/FrameRate.h"

namespace kestro::tool {

// How much the other tracks of an input may hold while one has no packets.
static constexpr std::int64_t kMaxAhead_ns = 5000000000;
static constexpr std::size_t kMaxAheadBytes = 32 << 20;

InputSession::InputSession(std::vector<std::string> const& addresses, InputOptions const& options,
                           Selection const& selection)
    : _interrupted(options.interrupted), _timeline(selection), _start_ns(options.start_ns) {
  for (TrackChoice const& choice : options.choices)
    if (choice.Input() >= addresses.size())
      throw Error(kUsage, "--map " + choice.Text() + ": there is no such input");
  for (std::size_t i = 0; i < addresses.size(); ++i) {
    InputOptions own = options;
    auto& choices = own.choices;
    choices.erase(std::remove_if(choices.begin(), choices.end(),
                                 [i](TrackChoice const& one) { return one.Input() != i; }),
                  choices.end());
    if (choices.empty() && !options.choices.empty())
      throw Error(kUsage, "--map: chooses nothing of " + addresses[i]);
    _inputs.push_back(OpenInput(addresses[i], own, _timeline));
    auto const& since = _inputs.back()->LiveSince();
    if (since && !_clock) _clock.emplace().Take(0, *since);
  }
  for (bool numbered : {true, false})
    for (std::size_t i = 0; i < _inputs.size(); ++i)
      for (auto const& track : _inputs[i]->Tracks()) {
        if (track->Info().Numbered() != numbered) continue;
        _tracks.push_back(track.get());
        _inputOf.push_back(i);
      }
  if (_tracks.empty()) throw Error(kUnusable, "the inputs have no tracks to record");
  auto const isAvi = [](std::string const& address) { return Extension(address) == ".avi"; };
  if (std::count_if(addresses.begin(), addresses.end(), isAvi) > 1)
    _notes.emplace_back(
        "the inputs become parallel tracks; \"kestro-avi join\" puts AVI files one after another");
  CheckTracks();
  if (_video == nullptr) {  // audio can start anywhere
    _timeline.offset_ns = selection.start_ns;
    _timeline.known = true;
    _timeline.Settle(INT64_MAX);
  } else {
    SetSpeeds(options);
  }
}

record::Tracks InputSession::Tracks() const {
  record::Tracks tracks;
  for (Track const* track : _tracks) tracks.push_back(track->Info());
  return tracks;
}

void InputSession::CheckTracks() {
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
void InputSession::SetSpeeds(InputOptions const& options) {
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

// Reads the leading input until the start of the recording is known.
bool InputSession::FindStart() {
  while (!_timeline.known && !_interrupted())
    if (!_inputs[_leadInput]->Read()) break;
  return _timeline.known;
}

// Whether the other tracks of the same input hold so much that this one is skipped.
bool InputSession::OthersRunAhead(std::size_t track) const {
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

bool InputSession::Next(std::size_t& track, TimedPacket& packet) {
  if (!FindStart()) return false;
  while (!_interrupted()) {
    // The track whose packet is next. Its time is known before the packet, because times are
    // counted.
    std::size_t best = _tracks.size();
    for (std::size_t i = 0; i < _tracks.size(); ++i) {
      if (_tracks[i]->Done() || (!_tracks[i]->Ready() && OthersRunAhead(i))) continue;
      if (best == _tracks.size() || IsEarlier(*_tracks[i], *_tracks[best])) best = i;
    }
    if (best == _tracks.size()) return false;
    if (_tracks[best]->Ready()) {
      track = best;
      packet = _tracks[best]->Pop();
      if (_tracks[best]->Info().IsText()) PlaceText(packet);
      return true;
    }
    _inputs[_tracks[best]->WaitsForLead() ? _leadInput : _inputOf[best]]->Read();
  }
  return false;
}

std::optional<avi::StartTime> InputSession::Captured(std::int64_t time_ns) {
  std::int64_t const input_ns = _timeline.Input_ns(time_ns);  // from the recording's start
  if (_start_ns) return avi::StartTime{*_start_ns + input_ns, true};
  if (_clock) return _clock->Take(_timeline.offset_ns + input_ns, avi::ClockAnchor::Now::Read());
  for (auto const& input : _inputs)
    if (auto const& start = input->Start())
      return avi::StartTime{start->time_ns + _timeline.offset_ns + input_ns, start->set};
  return std::nullopt;
}

// A text gets the time of the next frame.
void InputSession::PlaceText(TimedPacket& packet) {
  std::int64_t const frame_ns = FrameTime_ns(_video->Info().frameRate, 1);
  std::int64_t const next_ns = _video->NextTime_ns();
  if (_video->Done() || next_ns > packet.time_ns + frame_ns) ++_misplaced;
  packet.time_ns = next_ns;
}

ReadExtent InputSession::ReadSoFar() const {
  ReadExtent all{0, 0};
  for (auto const& input : _inputs) {
    ReadExtent const one = input->ReadSoFar();
    if (one.size < 0) return {};
    all.size += one.size;
    all.position += one.position;
  }
  return all;
}

// Adds the track to its messages.
void InputSession::AddFrom(std::size_t track, Notices const& own, Notices& all) const {
  for (Notice notice : own) {
    std::string const& name = _tracks[track]->Info().name;
    notice.text = name + ": " + notice.text;
    std::vector<Notice::Field> fields{{"track", track}, {"input", name}};
    notice.fields.insert(notice.fields.begin(), fields.begin(), fields.end());
    all.push_back(std::move(notice));
  }
}

Notices InputSession::Notes() const {
  Notices notes = _notes;
  for (auto const& input : _inputs) Append(notes, input->Notes());
  return notes;
}

Notices InputSession::LateNotes() const {
  Notices notes;
  for (std::size_t i = 0; i < _tracks.size(); ++i) AddFrom(i, _tracks[i]->Notes(), notes);
  return notes;
}

Notices InputSession::Failures() const {
  Notices failures;
  for (auto const& input : _inputs)
    if (!input->Failure().empty())
      failures.push_back({input->Failure(), nullptr, {{"code", int{kIo}}}});
  return failures;
}

Notices InputSession::Findings() const {
  Notices findings = _findings;
  for (auto const& input : _inputs) Append(findings, input->Findings());
  for (std::size_t i = 0; i < _tracks.size(); ++i) AddFrom(i, _tracks[i]->Findings(), findings);
  if (_misplaced != 0)
    findings.emplace_back(
        std::to_string(_misplaced) +
        " texts are after the end of the video or came too late: their times are lost");
  return findings;
}

Notices InputSession::TakeEvents() {
  Notices events;
  for (auto const& input : _inputs) Append(events, input->TakeEvents());
  for (std::size_t i = 0; i < _tracks.size(); ++i) AddFrom(i, _tracks[i]->TakeEvents(), events);
  return events;
}

}  // namespace kestro::tool
