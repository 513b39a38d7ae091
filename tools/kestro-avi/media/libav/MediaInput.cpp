#include "media/libav/MediaInput.h"

#include <algorithm>
#include <filesystem>

#include "cli/Address.h"
#include "cli/Errors.h"
#include "cli/Text.h"
#include "media/libav/AudioTrack.h"
#include "media/libav/InputChecks.h"
#include "media/libav/OpenFormat.h"
#include "media/libav/PacketTimes.h"
#include "media/libav/SubtitleFile.h"
#include "media/libav/TextTrack.h"

namespace kestro::tool {

static constexpr char kGoesOn[] = "; the recording goes on without a gap";
// How far the streams of an input may be apart where its tracks are cut.
static constexpr std::int64_t kInterleaving_ns = 1000000000;
static constexpr std::size_t kMostHeld = 5000;

MediaInput::MediaInput(std::string const& address, InputOptions const& options)
    : _address(address), _options(options) {
  std::error_code none;
  if (std::filesystem::is_regular_file(_address, none)) _findings = CheckSize(_address);
  if (MayComeBack(address)) {
    auto live = std::make_unique<LiveSource>(address, options);
    _live = live.get();
    _source = std::move(live);
  } else {
    _source = std::make_unique<FileSource>(address, options);
  }
  OpenedInput const& opened = _source->Opened();
  if (opened.live)
    _liveSince = opened.at;
  else
    _start = ReadStart(_address, *opened.format);
  _notes = opened.notes;
  Append(_findings, opened.findings);
}

bool MediaInput::Accept() {
  if (_live == nullptr || !_live->Accept()) return false;
  NoteJumps();
  _jumps = {};
  _end_ns.clear();
  _held.clear();
  _extra.clear();
  _lost = _untimed = false;
  return true;
}

bool MediaInput::Has(AVMediaType type) const {
  for (unsigned i = 0; i < Format().nb_streams; ++i)
    if (AVStream const& stream = *Format().streams[i];
        IsRecorded(stream) && stream.codecpar->codec_type == type)
      return true;
  return false;
}

// By how much the session's clock is ahead of the packets' times.
std::optional<std::int64_t> MediaInput::Shift_ns() const {
  if (_live != nullptr) {
    auto const shift_ns = _live->Shift_ns();
    return shift_ns ? std::optional(*shift_ns - _jumps.Shift_ns()) : std::nullopt;
  }
  if (_shift_ns || !_clock.known) return _shift_ns;
  return _session_ns - _clock.origin_ns;
}

void MediaInput::Begin(Timeline& timeline, EpochStart const& start) {
  _shift_ns = _untimed ? std::nullopt : Shift_ns();  // times are counted by each track
  _clock =
      start.placed && _shift_ns ? InputClock{start.session_ns - *_shift_ns, true} : InputClock{};
  _session_ns = start.session_ns;
  _tracks.clear();
  _byStream.assign(Format().nb_streams, nullptr);
  _cut_ns.reset();
  _reached.clear();
  _recent.clear();
  _again = std::exchange(_held, {});
  _done = _cutting = false;
  for (unsigned i = 0; i < Format().nb_streams; ++i) {
    AVStream& stream = *Format().streams[i];
    bool const text = stream.codecpar->codec_type == AVMEDIA_TYPE_SUBTITLE;
    if (!IsRecorded(stream) || (text && !start.texts) || (text && _options.textAsSrt && _begun))
      continue;
    _tracks.push_back(NewTrack(stream, timeline));
    _byStream[i] = _tracks.back().get();
  }
  _begun = true;
}

std::unique_ptr<Track> MediaInput::NewTrack(AVStream& stream, Timeline& timeline) {
  OpenedInput const& opened = _source->Opened();
  std::string const name = Name(stream.index);
  switch (stream.codecpar->codec_type) {
    case AVMEDIA_TYPE_VIDEO: {
      auto track = std::make_unique<VideoTrack>(stream, name, opened.video.at(stream.index),
                                                timeline, _clock);
      if (auto const extra = _extra.find(stream.index); extra != _extra.end())
        track->Configure(extra->second);
      return track;
    }
    case AVMEDIA_TYPE_AUDIO:
      return std::make_unique<AudioTrack>(stream, name, timeline, _clock, !HasVideo(), opened.live);
    default:
      return NewTextTrack(stream, timeline);
  }
}

std::unique_ptr<Track> MediaInput::NewTextTrack(AVStream& stream, Timeline const& timeline) {
  std::string const name = Name(stream.index);
  auto decoder = std::make_unique<SubtitleDecoder>(stream, _options.textEncoding);
  std::vector<Cue> cues;
  std::error_code none;
  bool const file = std::filesystem::is_regular_file(_address, none);
  if (_options.textAsSrt && !file)
    throw Error(kUsage, name + ": --text-form srt needs a file, to read its texts first");
  if (_options.textAsSrt)
    cues = ReadSubtitles(_address, stream.index, *decoder, _options.interrupted);
  else if (!_begun)
    _notes.push_back(name + ": the end times of texts are not stored" +
                     (file ? " (--text-form srt stores them)" : ""));
  auto track = std::make_unique<TextTrack>(name, std::move(decoder), timeline, _clock,
                                           !HasVideo() && !Has(AVMEDIA_TYPE_AUDIO));
  if (!_options.textAsSrt) return track;
  track->StoreAsSrt();
  for (Cue& cue : cues) track->Add(std::move(cue));
  track->End();
  return track;
}

ReadExtent MediaInput::ReadSoFar() const {
  if (_live != nullptr) return {};
  AVIOContext* const io = Format().pb;  // devices and series of pictures have none
  if (io == nullptr) return {};
  return {avio_size(io), avio_tell(io)};
}

static std::int64_t StartOf(AVPacket const& packet) {
  return packet.pts != AV_NOPTS_VALUE ? packet.pts : packet.dts;
}

// The start of a recorded packet on the input's clock.
std::int64_t MediaInput::Time_ns(AVPacket const& packet) const {
  std::int64_t const start = StartOf(packet);
  if (start == AV_NOPTS_VALUE)
    return _byStream[static_cast<std::size_t>(packet.stream_index)]->Latest_ns();
  return av_rescale_q(start, Stream(packet.stream_index).time_base, kNanoseconds);
}

// The next packet with its corrected time, as av_read_frame.
int MediaInput::Fetch(PacketPtr& packet) {
  if (!_again.empty()) {
    packet = std::move(_again.front());
    _again.pop_front();
    return 0;
  }
  packet.reset(av_packet_alloc());
  int const got = _source->Read(*packet);
  if (got < 0) return got;
  auto const stream = static_cast<std::size_t>(packet->stream_index);
  // Some containers add streams later: those are not recorded.
  if (stream < _byStream.size() && IsRecorded(Stream(packet->stream_index))) Correct(*packet);
  return got;
}

void MediaInput::Correct(AVPacket& packet) {
  AVStream const& stream = Stream(packet.stream_index);
  DropWildTimes(packet, stream.time_base);
  if (stream.codecpar->codec_type != AVMEDIA_TYPE_SUBTITLE)
    _jumps.Correct(packet, stream.time_base);
  for (Notice& jump : _jumps.Take()) {
    jump.text = Hidden(_address) + ": " + jump.text + kGoesOn;
    jump.fields.push_back({"input", Hidden(_address)});
    _events.push_back(std::move(jump));
  }
  std::int64_t const start = StartOf(packet);
  bool const timed = start != AV_NOPTS_VALUE;
  std::int64_t& end_ns = _end_ns[packet.stream_index];
  if (timed)
    end_ns =
        std::max(end_ns, av_rescale_q(start + packet.duration, stream.time_base, kNanoseconds));
  _untimed |= !timed && stream.codecpar->codec_type == AVMEDIA_TYPE_VIDEO;
}

bool MediaInput::Read() {
  if (_done) return false;
  PacketPtr packet;
  int const got = Fetch(packet);
  if (got == AVERROR(EAGAIN)) return true;
  if (got < 0) {
    Finish(got);
    return false;
  }
  int const stream = packet->stream_index;
  auto const place = static_cast<std::size_t>(stream);
  Track* const track = place < _byStream.size() ? _byStream[place] : nullptr;
  if (track == nullptr) {
    if (place < _byStream.size() && IsRecorded(Stream(stream))) ++_skipped;
    return true;
  }
  if (_cutting && IsAfterCut(*packet)) {
    Hold(std::move(packet));
    return !_done;
  }
  if (track->Info().IsAudio()) Remember(*packet);
  if (!track->Done()) PassOn(std::move(packet), *track);
  return !_done;
}

void MediaInput::PassOn(PacketPtr packet, Track& track) {
  std::size_t size = 0;
  auto const* sets = av_packet_get_side_data(packet.get(), AV_PKT_DATA_NEW_EXTRADATA, &size);
  if (sets != nullptr) _extra[packet->stream_index] = Bytes(sets, sets + size);
  if (track.Take(*packet)) return;
  Change(static_cast<VideoTrack const&>(track), packet->stream_index);
  _cutting = true;
  Hold(std::move(packet));
}

// Adopts the parameters of a key frame, for the next tracks.
void MediaInput::Change(VideoTrack const& track, int stream) {
  PictureFormat const &before = track.Formats().Before(), &after = track.Formats().After();
  AVCodecParameters& codec = *Stream(stream).codecpar;
  codec.width = after.width;
  codec.height = after.height;
  VideoOptions& video = _source->Opened().video[stream];
  if (after.rate.Positive() && !video.fixedRate) video.rate = after.rate;
  std::string const from = before.Text(codec.codec_id), to = after.Text(codec.codec_id);
  _news.push_back({Name(stream) + ": changes from " + from + " to " + to + "; a new file begins",
                   "changed",
                   {{"input", Name(stream)}, {"from", from}, {"to", to}}});
}

void MediaInput::CutAt(std::int64_t session_ns) {
  if (_done || _cutting) return;
  auto const shift_ns = Shift_ns();
  _cut_ns = session_ns;
  if (!shift_ns) return EndTracks();  // nothing was read
  _cutting = true;
  _from_ns = session_ns - *shift_ns;
  if (HasVideo())
    _cut_ns.reset();
  else
    SetCut(_from_ns);
}

void MediaInput::SetCut(std::int64_t time_ns) {
  _from_ns = time_ns;
  _cut_ns = time_ns + Shift_ns().value_or(0);
  for (auto const& track : _tracks) track->EndAt(time_ns);
  for (PacketPtr& packet : _recent)
    if (EndsAfter(*packet, time_ns)) _held.push_back(std::move(packet));
  _recent.clear();
}

// Whether a packet is for the next tracks. Those of an input with video start with a key frame.
bool MediaInput::IsAfterCut(AVPacket const& packet) const {
  if (_reached.count(packet.stream_index) != 0) return true;
  bool const video = Stream(packet.stream_index).codecpar->codec_type == AVMEDIA_TYPE_VIDEO;
  if (!video && !_cut_ns) return false;
  return Time_ns(packet) >= _from_ns && (!video || (packet.flags & AV_PKT_FLAG_KEY) != 0);
}

bool MediaInput::EndsAfter(AVPacket const& packet, std::int64_t time_ns) const {
  AVRational const timeBase = Stream(packet.stream_index).time_base;
  return Time_ns(packet) + av_rescale_q(packet.duration, timeBase, kNanoseconds) > time_ns;
}

// Keeps audio that may be after a cut: it is often read before the video of the same time.
void MediaInput::Remember(AVPacket const& packet) {
  if (StartOf(packet) == AV_NOPTS_VALUE) return;
  if (_cutting && _cut_ns) {  // a packet across the cut is for both
    if (EndsAfter(packet, _from_ns)) _held.emplace_back(av_packet_clone(&packet));
    return;
  }
  _recent.emplace_back(av_packet_clone(&packet));
  while (!EndsAfter(*_recent.front(), Time_ns(packet) - kInterleaving_ns)) _recent.pop_front();
}

void MediaInput::Hold(PacketPtr packet) {
  std::int64_t const time_ns = Time_ns(*packet);
  if (!_cut_ns) SetCut(time_ns);
  _reached.insert(packet->stream_index);
  _held.push_back(std::move(packet));
  bool all = true;
  for (std::size_t i = 0; i < _byStream.size(); ++i)
    if (_byStream[i] != nullptr && !_byStream[i]->Info().IsText())
      all = all && _reached.count(static_cast<int>(i)) != 0;
  if (all || time_ns - _from_ns > kInterleaving_ns || _held.size() > kMostHeld) EndTracks();
}

void MediaInput::EndTracks() {
  _done = true;
  for (auto const& track : _tracks) track->End();
}

void MediaInput::Finish(int outcome) {
  EndTracks();
  if (_live == nullptr && !_held.empty()) return;  // it ends in the next tracks
  bool const whole = outcome == AVERROR_EOF;
  if (_live != nullptr && _options.reconnect_ns != 0 && !_options.interrupted()) {
    std::int64_t end_ns = INT64_MIN;
    for (auto const& [stream, stream_ns] : _end_ns) end_ns = std::max(end_ns, stream_ns);
    if (!_cut_ns && !_end_ns.empty()) _cut_ns = end_ns + Shift_ns().value_or(0);
    _held.clear();
    _lost = true;
    return;
  }
  if (!whole && !_options.interrupted()) {
    std::string const text =
        Hidden(_address) + ": " + (_live != nullptr ? _live->Reason() : LibavError(outcome));
    if (ExitCodeOf(outcome) == kUnusable)
      _findings.push_back(text);
    else
      _failure = text;
  }
  _ended = true;
  NoteJumps();
  if (whole && _live == nullptr) CheckLength();
}

Notices MediaInput::Findings() const {
  Notices findings = _findings;
  if (_skipped != 0) findings.push_back(SkippedTexts(Hidden(_address), _skipped));
  return findings;
}

void MediaInput::NoteJumps() {
  constexpr std::size_t kMost = 20;
  if (_jumps.Count() == 0 || _findings.size() > kMost) return;
  _findings.push_back(Hidden(_address) + ": " + _jumps.Describe() + kGoesOn);
  _findings.back().reported = true;
}

// Compares what was read with the length in the container's header.
void MediaInput::CheckLength() {
  constexpr std::int64_t kShort_ns = 500000000;
  if (Format().duration_estimation_method != AVFMT_DURATION_FROM_STREAM || _jumps.Count() != 0)
    return;
  std::int64_t latest_ns = 0;
  bool known = false;  // there are lengths of streams
  auto const check = [this](std::string const& name, std::int64_t end_ns, std::int64_t length_ns) {
    if (end_ns + kShort_ns < length_ns)
      _findings.push_back(name + ": ends early, at " + Seconds_ns(end_ns) + " of " +
                          Seconds_ns(length_ns));
  };
  for (auto const& [index, end_ns] : _end_ns) {
    AVStream const& stream = Stream(index);
    latest_ns = std::max(latest_ns, end_ns);
    Track const* const track = _byStream[static_cast<std::size_t>(index)];
    if (stream.duration <= 0 || track == nullptr || track->Info().IsText()) continue;
    known = true;
    std::int64_t const start = stream.start_time != AV_NOPTS_VALUE ? stream.start_time : 0;
    check(Name(index), end_ns,
          av_rescale_q(av_sat_add64(start, stream.duration), stream.time_base, kNanoseconds));
  }
  bool const all = std::none_of(_byStream.begin(), _byStream.end(),
                                [](Track const* track) { return track == nullptr; });
  if (!known && all && Format().duration > 0)
    check(Hidden(_address), latest_ns,
          av_rescale_q(Format().duration, AV_TIME_BASE_Q, kNanoseconds));
}

}  // namespace kestro::tool
