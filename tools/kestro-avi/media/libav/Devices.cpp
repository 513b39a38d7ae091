#include "media/libav/Devices.h"

#include <dlfcn.h>

#ifdef KESTRO_DEVICES
#include <libavdevice/version.h>
#endif

namespace kestro::tool {

// Makes the devices known to libavformat, if there are any.
static void RegisterDevices() {
#ifdef KESTRO_DEVICES
  static constexpr char kLibrary[] = "libavdevice.so." AV_STRINGIFY(LIBAVDEVICE_VERSION_MAJOR);
  void* const library = dlopen(kLibrary, RTLD_LAZY | RTLD_LOCAL);
  if (library == nullptr) return;
  auto* const registers = reinterpret_cast<void (*)()>(dlsym(library, "avdevice_register_all"));
  if (registers != nullptr) registers();
#endif
}

AVInputFormat const* TakeDevice(std::string& url) {
  auto const colon = url.find(':');
  if (colon == url.npos || avio_find_protocol_name(url.c_str()) != nullptr) return nullptr;
  static bool const registered = (RegisterDevices(), true);
  static_cast<void>(registered);
  AVInputFormat const* kind = av_find_input_format(url.substr(0, colon).c_str());
  if (kind == nullptr || kind->priv_class == nullptr ||
      !AV_IS_INPUT_DEVICE(kind->priv_class->category))
    return nullptr;
  url.erase(0, colon + 1);
  return kind;
}

}  // namespace kestro::tool
