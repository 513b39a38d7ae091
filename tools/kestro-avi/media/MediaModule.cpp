#include "media/MediaModule.h"

#include <dlfcn.h>

#include <filesystem>

#include "cli/Errors.h"

namespace kestro::tool {

namespace fs = std::filesystem;

static constexpr char kModule[] = "libkestromedia.so";

// Searches relative to the program's folder, in the build tree and as installed.
static std::string Find() {
  std::error_code none;
  fs::path const folder = fs::canonical("/proc/self/exe", none).parent_path();
  for (char const* place : {KESTRO_MEDIA_BUILT, KESTRO_MEDIA_INSTALLED})
    if (fs::path const path = folder / place / kModule; fs::exists(path, none))
      return path.lexically_normal();
  throw Error(kIo, std::string(kModule) +
                       " was not found; it is needed to read inputs and to write containers "
                       "(Debian package kestro-avi)");
}

static Media& Load(std::string const& path) {
  // Lazy: resolving all symbols of the libraries takes longer than recording a short clip.
  void* const module = dlopen(path.c_str(), RTLD_LAZY | RTLD_LOCAL);
  auto* const entry =
      module == nullptr ? nullptr : reinterpret_cast<MediaEntry*>(dlsym(module, kMediaEntry));
  if (entry == nullptr) throw Error(kIo, std::string("cannot load ") + dlerror());
  Media* const media = entry(KESTRO_VERSION);
  if (media == nullptr) throw Error(kIo, path + ": has another version");
  return *media;
}

Media& LoadMedia() {
  static Media& media = Load(Find());
  return media;
}

}  // namespace kestro::tool
