#include "media/libav/MediaInput.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <thread>

#include "avi/AviFile.h"
#include "base/LittleEndian.h"
#include "cli/Errors.h"
#include "cli/Text.h"
#include "media/FrameRate.h"
#include "media/libav/AudioTrack.h"
#include "media/libav/OpenFormat.h"
#include "media/libav/PacketTimes.h"
#include "media/libav/StreamRate.h"
#include "media/libav/SubtitleFile.h"
#include "media/libav/TextTrack.h"
#include "media/libav/VideoTrack.h"

namespace kestro::tool {

// How many packets are searched for a key frame with parameter sets.
static constexpr std::size_t kMaxAhead = 256;

static constexpr char kGoesOn[] = "; the recording goes on without a gap";

MediaInput::MediaInput(std::string const& address, InputOptions const& options, Timeline& timeline)
    : _address(address), _interrupted(options.interrupted), _packet(av_packet_alloc()) {
  Open(options);
  AddTracks(options, timeline);
}

void MediaInput::Open(InputOptions const& options) {
  std::error_code none;
  if (std::filesystem::is_regular_file(_address, none)) CheckSize(_address);
  avi::ClockAnchor::Now opened{};
  _format = OpenFormat(_address, options.rate, options.interrupted, &opened);
  if (IsLive())
    _liveSince = opened;
  else
    _start = ReadStart();
}

// A recording of this system knows its start; other containers may have a date, which writers leave
// out or set to their epoch when they do not know it.
std::optional<avi::StartTime> MediaInput::ReadStart() const {
  if (std::strcmp(_format->iformat->name, "avi") == 0) {
    try {
      if (auto const start = avi::AviFile(_address).ReadSoftware().start) return start;
    } catch (Error const&) {  // libavformat reads more than we do
    }
  }
  auto const* const date = av_dict_get(_format->metadata, "creation_time", nullptr, 0);
  auto const time = avi::IsoTime::Parse(date != nullptr ? date->value : "");
  if (!time || !time->zoned || time->time_ns <= 0) return std::nullopt;
  return avi::StartTime{time->time_ns, true};
}

// Whether the stream can be a track. Video codecs are checked later, where an unsupported one is an
// error.
static bool IsSupported(AVStream const& stream) {
  switch (stream.codecpar->codec_type) {
    case AVMEDIA_TYPE_VIDEO:
      return (stream.disposition & AV_DISPOSITION_ATTACHED_PIC) == 0;
    case AVMEDIA_TYPE_AUDIO:
      return true;
    case AVMEDIA_TYPE_SUBTITLE:
      return SubtitleDecoder::Supports(stream);
    default:
      return false;
  }
}

static InputTrack::Kind KindOf(AVStream const& stream) {
  switch (stream.codecpar->codec_type) {
    case AVMEDIA_TYPE_VIDEO:
      return InputTrack::kVideo;
    case AVMEDIA_TYPE_AUDIO:
      return InputTrack::kAudio;
    default:
      return InputTrack::kText;
  }
}

// The streams that can be tracks, in order.
std::vector<AVStream*> MediaInput::SupportedStreams(InputOptions const& options) {
  std::vector<AVStream*> streams;
  for (unsigned i = 0; i < _format->nb_streams; ++i) {
    AVStream* const stream = _format->streams[i];
    stream->discard = AVDISCARD_ALL;
    bool const text = stream->codecpar->codec_type == AVMEDIA_TYPE_SUBTITLE && options.text;
    if (IsSupported(*stream))
      streams.push_back(stream);
    else if (text)
      _notes.push_back(Name(*stream) + ": is not text in a known format; left out");
  }
  if (streams.empty()) throw Error(kUnusable, _address + ": contains no video, audio or text");
  return streams;
}

void MediaInput::AddTracks(InputOptions const& options, Timeline& timeline) {
  std::vector<AVStream*> streams = SupportedStreams(options);
  std::vector<InputTrack> tracks;
  std::size_t counts[3] = {};
  for (AVStream const* stream : streams) {
    auto const* const entry = av_dict_get(stream->metadata, "language", nullptr, 0);
    std::string const language = entry != nullptr ? entry->value : "und";
    auto const kind = KindOf(*stream);
    tracks.push_back({kind, static_cast<std::size_t>(stream->index), counts[kind]++,
                      language == "und" ? "" : language});
  }
  bool const wanted[] = {options.video, options.audio, options.text};
  auto const chosen = Chosen(options.choices, tracks, _address);
  for (std::size_t i = 0; i < streams.size(); ++i) {
    if (!chosen[i] || !wanted[tracks[i].kind]) streams[i] = nullptr;
    _hasVideo |= streams[i] != nullptr && tracks[i].kind == InputTrack::kVideo;
    _hasAudio |= streams[i] != nullptr && tracks[i].kind == InputTrack::kAudio;
  }
  _byStream.resize(_format->nb_streams);
  for (AVStream* stream : streams) {
    if (stream == nullptr) continue;
    stream->discard = AVDISCARD_DEFAULT;
    _tracks.push_back(NewTrack(*stream, options, timeline));
    _byStream[static_cast<std::size_t>(stream->index)] = _tracks.back().get();
  }
}

// Whether the source delivers in its own time and cannot wait.
bool MediaInput::IsLive() const {
  AVClass const* const settings = _format->iformat->priv_class;
  if (settings != nullptr && AV_IS_INPUT_DEVICE(settings->category)) return true;
  if (_format->pb != nullptr) return (_format->pb->seekable & AVIO_SEEKABLE_NORMAL) == 0;
  return _address.find("://") != _address.npos;
}

void MediaInput::NoteRotation(AVStream const& stream) {
  auto const* const matrix = reinterpret_cast<std::int32_t const*>(
      av_stream_get_side_data(&stream, AV_PKT_DATA_DISPLAYMATRIX, nullptr));
  double const degrees = matrix == nullptr ? 0 : -av_display_rotation_get(matrix);
  if (std::isnan(degrees) || std::lround(degrees) % 360 == 0) return;
  _findings.push_back(Name(stream) + ": is shown rotated by " +
                      std::to_string((std::lround(degrees) + 360) % 360) +
                      " degrees, which the recording does not store");
}

std::unique_ptr<Track> MediaInput::NewTrack(AVStream& stream, InputOptions const& options,
                                            Timeline& timeline) {
  std::string const name = Name(stream);
  switch (stream.codecpar->codec_type) {
    case AVMEDIA_TYPE_VIDEO:
      VideoTrack::Check(stream, name);
      NoteRotation(stream);
      return std::make_unique<VideoTrack>(stream, name, OptionsFor(stream, options, name), timeline,
                                          _clock);
    case AVMEDIA_TYPE_AUDIO:
      return std::make_unique<AudioTrack>(stream, name, timeline, _clock, !_hasVideo, IsLive());
    default:
      return NewTextTrack(stream, options, timeline);
  }
}

std::unique_ptr<Track> MediaInput::NewTextTrack(AVStream& stream, InputOptions const& options,
                                                Timeline const& timeline) {
  std::string const name = Name(stream);
  auto decoder = std::make_unique<SubtitleDecoder>(stream, options.textEncoding);
  std::vector<Cue> cues;
  std::error_code none;
  bool const file = std::filesystem::is_regular_file(_address, none);
  if (options.textAsSrt && !file)
    throw Error(kUsage, name + ": --text-form srt needs a file, to read its texts first");
  if (options.textAsSrt)
    cues = ReadSubtitles(_address, stream.index, *decoder, _interrupted);
  else
    _notes.push_back(name + ": the end times of texts are not stored" +
                     (file ? " (--text-form srt stores them)" : ""));
  auto track = std::make_unique<TextTrack>(name, std::move(decoder), timeline, _clock,
                                           !_hasVideo && !_hasAudio);
  if (!options.textAsSrt) return track;
  track->StoreAsSrt();
  for (Cue& cue : cues) track->Add(std::move(cue));
  track->End();
  return track;
}

VideoOptions MediaInput::OptionsFor(AVStream& stream, InputOptions const& options,
                                    std::string const& name) {
  // Demuxers with an option for the rate use a default: those of elementary streams and of series
  // of pictures. Devices report their real rate.
  AVClass const* settings = _format->iformat->priv_class;
  bool const elementary =
      settings != nullptr && !AV_IS_INPUT_DEVICE(settings->category) &&
      av_opt_find(&settings, "framerate", nullptr, 0, AV_OPT_SEARCH_FAKE_OBJ) != nullptr;
  RateSources sources;
  sources.option = options.rate;
  if (!elementary)
    sources.container = ContainerRate(*_format, stream);
  else if (!options.rate.Positive())
    if (PacketPtr const key = FindFirstKey(stream.index))
      sources.stream = StreamRate(*stream.codecpar, *key);

  VideoOptions video;
  video.rate = ChooseRate(sources, name);
  bool const sameRate = !sources.container.Positive() || SameRate(video.rate, sources.container);
  if (!sameRate) video.otherRate = sources.container;
  video.checkTimes = !elementary && sameRate;
  video.live = IsLive();
  video.newFileAtGap = options.newFileAtGap;
  return video;
}

// The stream's first key frame. It and the packets before it are kept for ReadPacket.
PacketPtr MediaInput::FindFirstKey(int stream) {
  while (_ahead.size() < kMaxAhead) {
    PacketPtr packet(av_packet_alloc());
    if (av_read_frame(_format.get(), packet.get()) < 0) break;
    bool const found = packet->stream_index == stream && (packet->flags & AV_PKT_FLAG_KEY) != 0;
    _ahead.push_back(std::move(packet));
    if (found) return PacketPtr(av_packet_clone(_ahead.back().get()));
  }
  return nullptr;
}

int MediaInput::ReadPacket(AVPacket& packet) {
  if (!_ahead.empty()) {
    av_packet_move_ref(&packet, _ahead.front().get());
    _ahead.pop_front();
    return 0;
  }
  int got;
  while ((got = av_read_frame(_format.get(), &packet)) == AVERROR(EAGAIN) && !_interrupted())
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  return got;
}

ReadExtent MediaInput::ReadSoFar() const {
  AVIOContext* const io = _format->pb;  // devices and series of pictures have none
  if (io == nullptr) return {};
  return {avio_size(io), avio_tell(io)};
}

bool MediaInput::Read() {
  if (_ended) return false;
  int const got = ReadPacket(*_packet);
  if (got < 0) {
    Finish(got);
    return false;
  }
  auto const stream = static_cast<std::size_t>(_packet->stream_index);
  // Some containers add streams later: those are not recorded.
  Track* track = stream < _byStream.size() ? _byStream[stream] : nullptr;
  if (track != nullptr) {
    AVRational const timeBase = _format->streams[stream]->time_base;
    DropWildTimes(*_packet, timeBase);
    if (!track->Info().IsText()) _jumps.Correct(*_packet, timeBase);
    for (Notice& jump : _jumps.Take()) {
      jump.text = _address + ": " + jump.text + kGoesOn;
      jump.fields.push_back({"input", _address});
      _events.push_back(std::move(jump));
    }
    std::int64_t const start = _packet->pts != AV_NOPTS_VALUE ? _packet->pts : _packet->dts;
    std::int64_t& end_ns = _end_ns[_packet->stream_index];
    if (start != AV_NOPTS_VALUE)
      end_ns = std::max(end_ns, av_rescale_q(start + _packet->duration, timeBase, kNanoseconds));
    if (!track->Done()) track->Take(*_packet);
  }
  av_packet_unref(_packet.get());
  return true;
}

void MediaInput::Finish(int outcome) {
  bool const whole = outcome == AVERROR_EOF;
  if (!whole && !_interrupted()) {
    std::string const text = _address + ": " + LibavError(outcome);
    if (ExitCodeOf(outcome) == kUnusable)
      _findings.push_back(text);
    else
      _failure = text;
  }
  _ended = true;
  for (auto const& track : _tracks) track->End();
  if (_jumps.Count() != 0) {
    _findings.push_back(_address + ": " + _jumps.Describe() + kGoesOn);
    _findings.back().reported = true;
  }
  if (whole) CheckLength();
}

// Compares what was read with the length in the container's header.
void MediaInput::CheckLength() {
  constexpr std::int64_t kShort_ns = 500000000;
  if (_format->duration_estimation_method != AVFMT_DURATION_FROM_STREAM || _jumps.Count() != 0)
    return;
  std::int64_t latest_ns = 0;
  bool known = false;  // there are lengths of streams
  auto const check = [this](std::string const& name, std::int64_t end_ns, std::int64_t length_ns) {
    if (end_ns + kShort_ns < length_ns)
      _findings.push_back(name + ": ends early, at " + Seconds_ns(end_ns) + " of " +
                          Seconds_ns(length_ns));
  };
  for (auto const& [index, end_ns] : _end_ns) {
    AVStream const& stream = *_format->streams[index];
    latest_ns = std::max(latest_ns, end_ns);
    if (stream.duration <= 0 || _byStream[static_cast<std::size_t>(index)]->Info().IsText())
      continue;
    known = true;
    std::int64_t const start = stream.start_time != AV_NOPTS_VALUE ? stream.start_time : 0;
    check(Name(stream), end_ns,
          av_rescale_q(av_sat_add64(start, stream.duration), stream.time_base, kNanoseconds));
  }
  bool const all = std::none_of(_byStream.begin(), _byStream.end(),
                                [](Track const* track) { return track == nullptr; });
  if (!known && all && _format->duration > 0)
    check(_address, latest_ns, av_rescale_q(_format->duration, AV_TIME_BASE_Q, kNanoseconds));
}

// A RIFF file, such as WAV or AVI, that was cut off looks like a short one.
void MediaInput::CheckSize(std::string const& path) {
  std::uint8_t head[8] = {};
  std::error_code none;
  std::ifstream file(path, std::ios::binary);
  auto const size = std::filesystem::file_size(path, none);
  if (none || !file.read(reinterpret_cast<char*>(head), sizeof head) ||
      std::memcmp(head, "RIFF", 4) != 0)
    return;
  std::uint64_t const expected = base::Load32(head + 4) + std::uint64_t{8};
  bool const streamed = expected == 8 || expected > UINT32_MAX;  // its size was never written
  if (!streamed && size < expected)
    _findings.push_back(_address + ": is cut off, at " + ByteCount(size) + " of " +
                        ByteCount(expected));
}

}  // namespace kestro::tool
