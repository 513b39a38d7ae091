#include "media/libav/MediaInput.h"

#include <cstring>
#include <filesystem>
#include <thread>

#include "cli/Errors.h"
#include "media/FrameRate.h"
#include "media/libav/AudioTrack.h"
#include "media/libav/StreamRate.h"
#include "media/libav/TextTrack.h"
#include "media/libav/VideoTrack.h"

namespace kestro::tool {

// How many packets are searched for a key frame with parameter sets.
static constexpr std::size_t kMaxAhead = 256;

MediaInput::MediaInput(std::string const& address, InputOptions const& options, Timeline& timeline,
                       bool lead)
    : _address(address), _interrupted(options.interrupted), _packet(av_packet_alloc()) {
  Open(address, options);
  AddTracks(options, timeline, lead);
}

static ExitCode CodeOf(int failed) {
  switch (failed) {
    case AVERROR_INVALIDDATA:
    case AVERROR_EOF:
    case AVERROR_PATCHWELCOME:
    case AVERROR_DECODER_NOT_FOUND:
    case AVERROR_DEMUXER_NOT_FOUND:
    case AVERROR_STREAM_NOT_FOUND:
    case AVERROR(ENOMEM):  // a damaged length
      return kUnusable;
    case AVERROR_EXIT:
      return kInterrupted;
    default:
      return kIo;
  }
}

// Removes the type of a device from an address such as "v4l2:/dev/video0" and returns it; null for
// other addresses.
static AVInputFormat const* TakeDevice(std::string& url) {
#ifdef KESTRO_DEVICES
  static bool const registered = (avdevice_register_all(), true);
  (void)registered;
  auto const colon = url.find(':');
  if (colon == url.npos) return nullptr;
  AVInputFormat const* kind = av_find_input_format(url.substr(0, colon).c_str());
  if (kind == nullptr || kind->priv_class == nullptr ||
      !AV_IS_INPUT_DEVICE(kind->priv_class->category))
    return nullptr;
  url.erase(0, colon + 1);
  return kind;
#else
  (void)url;
  return nullptr;
#endif
}

// Opens an address. Requests the frame rate and the picture format from a device, if they are
// given.
int MediaInput::OpenFormat(std::string const& url, AVInputFormat const* device, base::Fraction rate,
                           char const* form) {
  AVDictionary* settings = nullptr;
  if (rate.Positive()) av_dict_set(&settings, "framerate", rate.Text().c_str(), 0);
  if (form != nullptr) av_dict_set(&settings, "input_format", form, 0);
  AVFormatContext* context = avformat_alloc_context();
  context->interrupt_callback.callback = [](void* input) {
    return static_cast<MediaInput*>(input)->_interrupted() ? 1 : 0;
  };
  context->interrupt_callback.opaque = this;
  int const failed = avformat_open_input(&context, url.c_str(), device, &settings);
  av_dict_free(&settings);
  _format.reset(context);
  return failed;
}

void MediaInput::Open(std::string const& address, InputOptions const& options) {
  std::error_code none;
  std::string url = address == "-" ? "pipe:0" : address;
  auto const status = std::filesystem::status(address, none);
  if (std::filesystem::is_directory(status)) throw Error(kIo, address + ": is a directory");
  // A file name may look like an address.
  AVInputFormat const* device = nullptr;
  if (std::filesystem::exists(status))
    url = "file:" + address;
  else
    device = TakeDevice(url);

  // Cameras deliver raw pictures by default.
  bool const camera = device != nullptr && std::strstr(device->name, "v4l2") != nullptr;
  int failed = OpenFormat(url, device, options.rate, camera ? "mjpeg" : nullptr);
  if (failed < 0 && camera) failed = OpenFormat(url, device, options.rate, nullptr);
  if (failed >= 0) failed = avformat_find_stream_info(_format.get(), nullptr);
  if (failed < 0)
    throw Error(CodeOf(failed),
                address + ": " +
                    (CodeOf(failed) == kUnusable ? "has an unknown format" : LibavError(failed)));
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

void MediaInput::AddTracks(InputOptions const& options, Timeline& timeline, bool lead) {
  std::vector<AVStream*> selected;
  bool any = false;
  for (unsigned i = 0; i < _format->nb_streams; ++i) {
    AVStream* stream = _format->streams[i];
    stream->discard = AVDISCARD_ALL;
    auto const type = stream->codecpar->codec_type;
    bool const text = type == AVMEDIA_TYPE_SUBTITLE && options.text;
    if (text && !IsSupported(*stream))
      _notes.push_back(Name(*stream) + ": is not text in a known format; left out");
    if (!IsSupported(*stream)) continue;
    any = true;
    bool const video = type == AVMEDIA_TYPE_VIDEO && options.video;
    bool const audio = type == AVMEDIA_TYPE_AUDIO && options.audio;
    _hasVideo |= video;
    _hasAudio |= audio;
    if (video || audio || text) selected.push_back(stream);
  }
  if (!any) throw Error(kUnusable, _address + ": contains no video, audio or text");

  _byStream.resize(_format->nb_streams);
  for (AVStream* stream : selected) {
    stream->discard = AVDISCARD_DEFAULT;
    _tracks.push_back(NewTrack(*stream, options, timeline, lead));
    if (stream->codecpar->codec_type == AVMEDIA_TYPE_VIDEO) lead = false;
    _byStream[static_cast<std::size_t>(stream->index)] = _tracks.back().get();
  }
}

std::unique_ptr<Track> MediaInput::NewTrack(AVStream& stream, InputOptions const& options,
                                            Timeline& timeline, bool lead) {
  std::string const name = Name(stream);
  switch (stream.codecpar->codec_type) {
    case AVMEDIA_TYPE_VIDEO: {
      bool const checkRate = !options.rate.Positive();
      auto video = std::make_unique<VideoTrack>(stream, name, timeline, _clock, lead, checkRate);
      video->FrameRate(ChooseFrameRate(stream, options, name));
      return video;
    }
    case AVMEDIA_TYPE_AUDIO:
      return std::make_unique<AudioTrack>(stream, name, timeline, _clock, !_hasVideo);
    default:
      return std::make_unique<TextTrack>(name, std::make_unique<SubtitleDecoder>(stream), timeline,
                                         _clock, !_hasVideo && !_hasAudio);
  }
}

base::Fraction MediaInput::ChooseFrameRate(AVStream& stream, InputOptions const& options,
                                           std::string const& name) {
  RateSources sources;
  sources.option = options.rate;
  // Demuxers with an option for the rate use a default: those of elementary streams and of series
  // of pictures. Devices report their real rate.
  AVClass const* settings = _format->iformat->priv_class;
  bool const elementary =
      settings != nullptr && !AV_IS_INPUT_DEVICE(settings->category) &&
      av_opt_find(&settings, "framerate", nullptr, 0, AV_OPT_SEARCH_FAKE_OBJ) != nullptr;
  if (!elementary)
    sources.container = ContainerRate(*_format, stream);
  else if (!options.rate.Positive())
    if (PacketPtr const key = FindFirstKey(stream.index))
      sources.stream = StreamRate(*stream.codecpar, *key);
  return ChooseRate(sources, name);
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
    if (got != AVERROR_EOF && !_interrupted())
      (CodeOf(got) == kUnusable ? _damage : _failure) = _address + ": " + LibavError(got);
    _ended = true;
    for (auto const& track : _tracks) track->End();
    return false;
  }
  auto const stream = static_cast<std::size_t>(_packet->stream_index);
  // Some containers add streams later: those are not recorded.
  Track* track = stream < _byStream.size() ? _byStream[stream] : nullptr;
  if (track != nullptr && !track->Done()) track->Take(*_packet);
  av_packet_unref(_packet.get());
  return true;
}

}  // namespace kestro::tool
