#include "media/libav/OpenFormat.h"

#include <cstring>
#include <filesystem>

#include "cli/Address.h"
#include "media/libav/Devices.h"
#include "media/libav/StreamHeaders.h"

namespace kestro::tool {

// How long libavformat may read packets to learn the parameters of the streams.
static constexpr std::int64_t kProbing_ns = 5000000000;

ExitCode ExitCodeOf(int failed) {
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

bool MayComeBack(std::string const& address) {
  std::error_code none;
  if (std::filesystem::exists(address, none)) return false;
  std::string url = address;
  if (AVInputFormat const* const device = TakeDevice(url))
    return std::strcmp(device->name, "lavfi") != 0;  // a generator, which ends when it is done
  std::string const protocol = address.substr(0, address.find(':'));
  for (char const* known : {"rtsp", "rtsps", "rtmp", "rtmps", "rtmpe", "rtmpt", "rtmpte", "rtmpts",
                            "rtp", "srtp", "udp", "udplite", "tcp", "tls", "srt", "rist", "sctp"})
    if (protocol == known) return protocol.size() < address.size();
  return false;
}

// Opens an address. Requests the frame rate and the picture format from a device, if they are
// given.
static int Open(FormatPtr& format, std::string const& url, AVInputFormat const* device,
                base::Fraction rate, char const* form, Patience& patience) {
  AVDictionary* settings = nullptr;
  if (rate.Positive()) av_dict_set(&settings, "framerate", rate.Text().c_str(), 0);
  if (form != nullptr) av_dict_set(&settings, "input_format", form, 0);
  AVFormatContext* context = avformat_alloc_context();
  context->interrupt_callback.callback = [](void* patient) {
    return static_cast<Patience*>(patient)->Over() ? 1 : 0;
  };
  context->interrupt_callback.opaque = &patience;
  // Devices do not ask the callback while they wait.
  if (device != nullptr) context->flags |= AVFMT_FLAG_NONBLOCK;
  int const failed = avformat_open_input(&context, url.c_str(), device, &settings);
  av_dict_free(&settings);
  format.reset(context);
  return failed;
}

FormatPtr OpenFormat(std::string const& address, base::Fraction rate, Patience& patience,
                     avi::ClockAnchor::Now* opened) {
  std::string const name = Hidden(address);
  std::error_code none;
  std::string url = address == "-" ? "pipe:0" : address;
  auto const status = std::filesystem::status(address, none);
  if (std::filesystem::is_directory(status)) throw Error(kIo, name + ": is a directory");
  // A file name may look like an address.
  AVInputFormat const* device = nullptr;
  if (std::filesystem::exists(status))
    url = "file:" + address;
  else
    device = TakeDevice(url);

  // Cameras deliver raw pictures by default.
  bool const camera = device != nullptr && std::strstr(device->name, "v4l2") != nullptr;
  FormatPtr format;
  int failed = Open(format, url, device, rate, camera ? "mjpeg" : nullptr, patience);
  if (failed < 0 && camera) failed = Open(format, url, device, rate, nullptr, patience);
  if (opened != nullptr) *opened = avi::ClockAnchor::Now::Read();
  if (failed >= 0) patience.BeginProbing(kProbing_ns);
  if (failed >= 0 && !HeadersSuffice(*format))
    failed = avformat_find_stream_info(format.get(), nullptr);
  if (failed >= 0 && !patience.TimedOut()) return format;
  ExitCode const code = ExitCodeOf(failed);
  if (patience.TimedOut() && !patience.Ended()) throw Error(kIo, name + ": delivers nothing");
  throw Error(code,
              name + ": " + (code == kUnusable ? "has an unknown format" : LibavError(failed)));
}

}  // namespace kestro::tool
