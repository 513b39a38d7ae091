#include "Plugin.h"

#include <cstdlib>
#include <filesystem>
#include <vector>

#include "Errors.h"
#include "base/IClass.h"
#include "base/Module.h"

namespace kestro::tool {

namespace fs = std::filesystem;

static constexpr char kModule[] = "libpluginavi.so";

static void Load(fs::path path) {
  std::error_code none;
  if (fs::is_directory(path, none)) path /= kModule;
  // Absolute: a bare name would be looked up in the system's library folders.
  path = fs::absolute(path).lexically_normal();
  std::string why;
  if (!base::LoadPlugin(path.c_str(), &why))
    throw Error(kIo, "cannot load the plug-in " + path.string() + ": " + why);
}

void LoadAviPlugin(std::string const& path) {
  if (!path.empty()) return Load(path);
  char const* variable = std::getenv("KESTRO_PLUGIN_PATH");
  if (variable != nullptr && *variable != '\0') return Load(variable);

  std::error_code none;
  fs::path const folder = fs::read_symlink("/proc/self/exe", none).parent_path();
  for (char const* place : {".", KESTRO_PLUGIN_INSTALLED, KESTRO_PLUGIN_BUILT})
    if (fs::exists(folder / place / kModule, none)) return Load(folder / place);
  throw Error(kIo,
              std::string(kModule) + " was not found; name it with --plugin or KESTRO_PLUGIN_PATH");
}

std::unique_ptr<stream::IDemuxer> NewDemuxer(char const* alias) {
  base::AttrSet attrs;
  attrs.Add("Register", alias);
  std::unique_ptr<stream::IDemuxer> demuxer(base::IClass::New<stream::IDemuxer>(attrs));
  if (demuxer == nullptr || !demuxer->Configure(attrs))
    throw Error(kIo, std::string("the plug-in has no ") + alias);
  return demuxer;
}

}  // namespace kestro::tool
