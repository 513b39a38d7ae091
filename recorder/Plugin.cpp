#include "recorder/Plugin.h"

#include <dlfcn.h>

#include <cstdlib>
#include <filesystem>

#include "base/IClass.h"
#include "base/Module.h"

namespace kestro::record {

namespace fs = std::filesystem;

static constexpr char kModule[] = "libpluginavi.so";

static Result Load(fs::path path) {
  std::error_code none;
  if (fs::is_directory(path, none)) path /= kModule;
  // Absolute: a bare name would be searched in the system's library folders.
  path = fs::absolute(path).lexically_normal();
  std::string why;
  if (base::LoadPlugin(path.c_str(), &why)) return {};
  return {Code::kPlugin, "cannot load the plug-in " + path.string() + ": " + why};
}

Result LoadAviPlugin(std::string const& path) {
  if (!path.empty()) return Load(path);
  if (base::IClass::Find("AviMuxer-avi-muxer", true) != nullptr) return {};
  char const* variable = std::getenv("KESTRO_PLUGIN_PATH");
  if (variable != nullptr && *variable != '\0') return Load(variable);

  Dl_info here;
  static int const anchor = 0;
  if (dladdr(&anchor, &here) != 0) {
    std::error_code none;
    fs::path const folder = fs::canonical(here.dli_fname, none).parent_path();
    for (char const* place : {".", "kestro", KESTRO_PLUGIN_BUILT})
      if (fs::exists(folder / place / kModule, none)) return Load(folder / place);
  }
  return {Code::kPlugin,
          std::string(kModule) + " was not found; set KESTRO_PLUGIN_PATH to its path"};
}

}  // namespace kestro::record
