#include "media/libav/OpenedInput.h"

#include <cmath>

#include "cli/Address.h"
#include "cli/Errors.h"
#include "media/FrameRate.h"
#include "media/TrackChoice.h"
#include "media/libav/OpenFormat.h"
#include "media/libav/StreamRate.h"
#include "media/libav/SubtitleDecoder.h"

namespace kestro::tool {

// How many packets are searched for a key frame with parameter sets.
static constexpr std::size_t kMaxAhead = 256;

bool IsRecorded(AVStream const& stream) { return stream.discard != AVDISCARD_ALL; }

std::string StreamName(std::string const& address, AVStream const& stream) {
  return Hidden(address) + ", track " + std::to_string(stream.index);
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

// Chooses the streams to record.
static void ChooseStreams(OpenedInput& input, std::string const& address,
                          InputOptions const& options) {
  std::vector<AVStream*> streams;
  std::vector<InputTrack> tracks;
  std::size_t counts[3] = {};
  for (unsigned i = 0; i < input.format->nb_streams; ++i) {
    AVStream* const stream = input.format->streams[i];
    stream->discard = AVDISCARD_ALL;
    if (!IsSupported(*stream)) {
      if (stream->codecpar->codec_type == AVMEDIA_TYPE_SUBTITLE && options.text)
        input.notes.push_back(StreamName(address, *stream) +
                              ": is not text in a known format; left out");
      continue;
    }
    auto const* const entry = av_dict_get(stream->metadata, "language", nullptr, 0);
    std::string const language = entry != nullptr ? entry->value : "und";
    auto const kind = KindOf(*stream);
    streams.push_back(stream);
    tracks.push_back({kind, static_cast<std::size_t>(stream->index), counts[kind]++,
                      language == "und" ? "" : language});
  }
  if (streams.empty())
    throw Error(kUnusable, Hidden(address) + ": contains no video, audio or text");
  bool const wanted[] = {options.video, options.audio, options.text};
  auto const chosen = Chosen(options.choices, tracks, Hidden(address));
  for (std::size_t i = 0; i < streams.size(); ++i)
    if (chosen[i] && wanted[tracks[i].kind]) streams[i]->discard = AVDISCARD_DEFAULT;
}

static bool IsLive(AVFormatContext const& format, std::string const& address) {
  AVClass const* const settings = format.iformat->priv_class;
  if (settings != nullptr && AV_IS_INPUT_DEVICE(settings->category)) return true;
  if (format.pb != nullptr) return (format.pb->seekable & AVIO_SEEKABLE_NORMAL) == 0;
  return address.find("://") != address.npos;
}

static void NoteRotation(AVStream const& stream, std::string const& name, Notices& findings) {
  auto const* const matrix = reinterpret_cast<std::int32_t const*>(
      av_stream_get_side_data(&stream, AV_PKT_DATA_DISPLAYMATRIX, nullptr));
  double const degrees = matrix == nullptr ? 0 : -av_display_rotation_get(matrix);
  if (std::isnan(degrees) || std::lround(degrees) % 360 == 0) return;
  findings.push_back(name + ": is shown rotated by " +
                     std::to_string((std::lround(degrees) + 360) % 360) +
                     " degrees, which the recording does not store");
}

// The stream's first key frame. It and the packets before it are kept.
static PacketPtr FindFirstKey(OpenedInput& input, int stream, Patience& patience) {
  while (input.ahead.size() < kMaxAhead) {
    PacketPtr packet(av_packet_alloc());
    patience.Begin();
    if (av_read_frame(input.format.get(), packet.get()) < 0) break;
    bool const found = packet->stream_index == stream && (packet->flags & AV_PKT_FLAG_KEY) != 0;
    input.ahead.push_back(std::move(packet));
    if (found) return PacketPtr(av_packet_clone(input.ahead.back().get()));
  }
  return nullptr;
}

static VideoOptions OptionsFor(OpenedInput& input, AVStream& stream, InputOptions const& options,
                               std::string const& name, Patience& patience) {
  // Demuxers with an option for the rate use a default: those of elementary streams and of series
  // of pictures. Devices report their real rate.
  AVClass const* settings = input.format->iformat->priv_class;
  bool const elementary =
      settings != nullptr && !AV_IS_INPUT_DEVICE(settings->category) &&
      av_opt_find(&settings, "framerate", nullptr, 0, AV_OPT_SEARCH_FAKE_OBJ) != nullptr;
  RateSources sources;
  sources.option = options.rate;
  if (!elementary)
    sources.container = ContainerRate(*input.format, stream);
  else if (!options.rate.Positive())
    if (PacketPtr const key = FindFirstKey(input, stream.index, patience))
      sources.stream = StreamRate(*stream.codecpar, *key);

  VideoOptions video;
  video.rate = ChooseRate(sources, name);
  bool const sameRate = !sources.container.Positive() || SameRate(video.rate, sources.container);
  if (!sameRate) video.otherRate = sources.container;
  video.fixedRate = options.rate.Positive();
  video.checkTimes = !elementary && sameRate;
  video.live = input.live;
  video.newFileAtGap = options.newFileAtGap;
  video.sameFormat = true;
  return video;
}

OpenedInput OpenStreams(std::string const& address, InputOptions const& options,
                        Patience& patience) {
  OpenedInput input;
  input.format = OpenFormat(address, options.rate, patience, &input.at);
  input.live = IsLive(*input.format, address);
  ChooseStreams(input, address, options);
  for (unsigned i = 0; i < input.format->nb_streams; ++i) {
    AVStream& stream = *input.format->streams[i];
    if (!IsRecorded(stream) || stream.codecpar->codec_type != AVMEDIA_TYPE_VIDEO) continue;
    std::string const name = StreamName(address, stream);
    VideoTrack::Check(stream, name);
    NoteRotation(stream, name, input.findings);
    input.video[stream.index] = OptionsFor(input, stream, options, name, patience);
  }
  return input;
}

FormatPtr CopyStreams(AVFormatContext const& format) {
  FormatPtr copy(avformat_alloc_context());
  if (!copy) throw std::bad_alloc();
  for (unsigned i = 0; i < format.nb_streams; ++i) {
    AVStream const& from = *format.streams[i];
    AVStream* const to = avformat_new_stream(copy.get(), nullptr);
    if (to == nullptr || avcodec_parameters_copy(to->codecpar, from.codecpar) < 0)
      throw std::bad_alloc();
    to->time_base = from.time_base;
    to->discard = from.discard;
  }
  return copy;
}

}  // namespace kestro::tool
