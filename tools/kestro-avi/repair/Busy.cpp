#include "repair/Busy.h"

#include <filesystem>

#include "avi/NameLocks.h"
#include "avi/NamePattern.h"
#include "cli/OpenForWriting.h"

namespace kestro::tool {

bool IsBeingRecorded(std::string const& path) {
  if (OpenForWriting(path).value_or(false)) return true;
  std::filesystem::path const file(path);
  return avi::LockHeld(file.parent_path(), [&](std::string const& name) {
    avi::NamePattern const pattern(name);
    return pattern.Valid() && pattern.Match(file.filename().string());
  });
}

}  // namespace kestro::tool
