#include "repair/Busy.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>

#include "avi/NamePattern.h"
#include "cli/OpenForWriting.h"

namespace kestro::tool {

namespace fs = std::filesystem;

static bool IsLocked(fs::path const& path) {
  int const file = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  if (file < 0) return false;
  bool const locked = flock(file, LOCK_SH | LOCK_NB) != 0 && errno == EWOULDBLOCK;
  close(file);
  return locked;
}

bool IsBeingRecorded(std::string const& path) {
  if (OpenForWriting(path).value_or(false)) return true;
  constexpr std::string_view kEnding = ".lock";
  fs::path const file(path);
  std::error_code none;
  for (fs::directory_iterator at(file.parent_path(), none), end; !none && at != end;
       at.increment(none)) {
    std::string const name = at->path().filename();
    if (name.size() <= 1 + kEnding.size() || name[0] != '.' ||
        name.substr(name.size() - kEnding.size()) != kEnding)
      continue;
    avi::NamePattern const pattern(name.substr(1, name.size() - 1 - kEnding.size()));
    if (pattern.Valid() && pattern.Match(file.filename().string()) && IsLocked(at->path()))
      return true;
  }
  return false;
}

}  // namespace kestro::tool
