#include "media/MediaModule.h"

#include <dlfcn.h>

#include <filesystem>

#include "cli/Errors.h"

namespace kestro::tool {

namespace fs = std::filesystem;

static constexpr char kModule[] = "libkestromedia.so";

// From the program's folder, as built and as installed.
static std::string Find() {
  std::error_code none;
  fs::path const folder = fs::canonical("/proc/self/exe", none).parent_path();
  for (char const* place : {KESTRO_MEDIA_BUILT, KESTRO_MEDIA_INSTALLED})
    if (fs::path const path = folder / place / kModule; fs::exists(path, none))
      return path.lexically_normal();
  throw Error(kIo, std::string(kModule) +
                       " was not found: it reads inputs and writes containers, by libavformat");
}

static Media& Load(std::string const& path) {
  // Lazily: to look up all that the libraries may call takes longer than to record a short clip.
  void* const module = dlopen(path.c_str(), RTLD_LAZY | RTLD_LOCAL);
  auto* const entry =
      module == nullptr ? nullptr : reinterpret_cast<MediaEntry*>(dlsym(module, kMediaEntry));
  if (entry == nullptr) throw Error(kIo, std::string("cannot load ") + dlerror());
  Media* const media = entry(KESTRO_VERSION);
  if (media == nullptr) throw Error(kIo, path + ": is of another version");
  return *media;
}

Media& LoadMedia() {
  static Media& media = Load(Find());
  return media;
}

}  // namespace kestro::tool
