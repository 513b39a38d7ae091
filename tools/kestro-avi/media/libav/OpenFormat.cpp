#include "media/libav/OpenFormat.h"

#include <cstring>
#include <filesystem>

namespace kestro::tool {

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
static int Open(FormatPtr& format, std::string const& url, AVInputFormat const* device,
                base::Fraction rate, char const* form, bool (*interrupted)()) {
  AVDictionary* settings = nullptr;
  if (rate.Positive()) av_dict_set(&settings, "framerate", rate.Text().c_str(), 0);
  if (form != nullptr) av_dict_set(&settings, "input_format", form, 0);
  AVFormatContext* context = avformat_alloc_context();
  context->interrupt_callback.callback = [](void* function) {
    return reinterpret_cast<bool (*)()>(function)() ? 1 : 0;
  };
  context->interrupt_callback.opaque = reinterpret_cast<void*>(interrupted);
  int const failed = avformat_open_input(&context, url.c_str(), device, &settings);
  av_dict_free(&settings);
  format.reset(context);
  return failed;
}

FormatPtr OpenFormat(std::string const& address, base::Fraction rate, bool (*interrupted)(),
                     avi::ClockAnchor::Now* opened) {
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
  FormatPtr format;
  int failed = Open(format, url, device, rate, camera ? "mjpeg" : nullptr, interrupted);
  if (failed < 0 && camera) failed = Open(format, url, device, rate, nullptr, interrupted);
  if (opened != nullptr) *opened = avi::ClockAnchor::Now::Read();
  if (failed >= 0) failed = avformat_find_stream_info(format.get(), nullptr);
  ExitCode const code = ExitCodeOf(failed);
  if (failed < 0)
    throw Error(
        code, address + ": " + (code == kUnusable ? "has an unknown format" : LibavError(failed)));
  return format;
}

}  // namespace kestro::tool
