#include "media/libav/InputSession.h"

#include <algorithm>

#include "cli/Errors.h"
#include "media/FrameRate.h"

namespace kestro::tool {

// How much the other tracks of an input may hold while one has no packets.
static constexpr std::int64_t kMaxAhead_ns = 5000000000;
static constexpr std::size_t kMaxAheadBytes = 32 << 20;

InputSession::InputSession(std::vector<std::string> const& addresses, InputOptions const& options,
                           Timeline const& timeline)
    : _interrupted(options.interrupted), _timeline(timeline) {
  bool lead = true;
  for (std::string const& address : addresses) {
    _inputs.push_back(OpenInput(address, options, _timeline, lead));
    lead = lead && !_inputs.back()->HasVideo();
  }
  for (bool numbered : {true, false})
    for (std::size_t i = 0; i < _inputs.size(); ++i)
      for (auto const& track : _inputs[i]->Tracks()) {
        if (track->Info().Numbered() != numbered) continue;
        _tracks.push_back(track.get());
        _inputOf.push_back(i);
      }
  if (_tracks.empty()) throw Error(kUnusable, "the inputs have no tracks to record");
  CheckRates();
  if (_video == nullptr) {  // audio can start anywhere
    _timeline.offset_ns = _timeline.start_ns;
    _timeline.known = true;
  }
}

record::Tracks InputSession::Tracks() const {
  record::Tracks tracks;
  for (Track const* track : _tracks) tracks.push_back(track->Info());
  return tracks;
}

void InputSession::CheckRates() {
  for (Track* track : _tracks) {
    TrackInfo const& info = track->Info();
    if (info.IsText() && _video == nullptr)
      throw Error(kUnusable, info.name +
                                 ": text takes its times from video, and there is none "
                                 "(--no-text leaves it out)");
    if (info.IsText()) track->FrameRate(_video->Info().frameRate);
    if (!info.IsVideo()) continue;
    if (_video == nullptr) _video = track;
    // Motion JPEG may have its own rate.
    if (info.Numbered() && !SameRate(info.frameRate, _video->Info().frameRate))
      throw Error(kUnusable, RatesDiffer(info.name, info.frameRate, _video->Info().frameRate));
  }
}

// Reads the leading input until the start of the recording is known.
bool InputSession::FindStart() {
  auto const lead = std::find_if(_inputs.begin(), _inputs.end(),
                                 [](auto const& input) { return input->HasVideo(); });
  while (!_timeline.known && !_interrupted())
    if (!(*lead)->Read()) break;
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
      bool const text = _tracks[best]->Info().IsText();
      if (text && packet.time_ns != _video->NextTime_ns()) ++_misplaced;
      return true;
    }
    _inputs[_inputOf[best]]->Read();
  }
  return false;
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

std::vector<std::string> InputSession::Notes() const {
  std::vector<std::string> notes;
  for (auto const& input : _inputs)
    notes.insert(notes.end(), input->Notes().begin(), input->Notes().end());
  return notes;
}

std::vector<std::string> InputSession::Failures() const {
  std::vector<std::string> failures;
  for (auto const& input : _inputs)
    if (!input->Failure().empty()) failures.push_back(input->Failure());
  return failures;
}

std::vector<std::string> InputSession::Findings() const {
  std::vector<std::string> findings;
  for (auto const& input : _inputs)
    if (!input->Damage().empty()) findings.push_back(input->Damage());
  for (Track const* track : _tracks)
    if (std::string const text = track->Findings(); !text.empty())
      findings.push_back(track->Info().name + ": " + text);
  if (_misplaced != 0)
    findings.push_back(
        std::to_string(_misplaced) +
        " texts are after the end of the video or came too late: their times are lost");
  return findings;
}

}  // namespace kestro::tool
