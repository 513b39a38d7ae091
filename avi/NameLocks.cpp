#include "avi/NameLocks.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <string_view>

namespace kestro::avi {

namespace fs = std::filesystem;

static bool IsLocked(fs::path const& path) {
  int const file = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  if (file < 0) return false;
  bool const locked = flock(file, LOCK_SH | LOCK_NB) != 0 && errno == EWOULDBLOCK;
  close(file);
  return locked;
}

bool LockHeld(std::string const& folder,
              std::function<bool(std::string const& pattern)> const& concerns) {
  constexpr std::string_view kEnding = kLockEnding;
  std::error_code none;
  for (fs::directory_iterator at(folder.empty() ? "." : folder, none), end; !none && at != end;
       at.increment(none)) {
    std::string const name = at->path().filename();
    if (name.size() <= 1 + kEnding.size() || name[0] != '.' ||
        name.substr(name.size() - kEnding.size()) != kEnding)
      continue;
    std::string const pattern = name.substr(1, name.size() - 1 - kEnding.size());
    if (concerns(pattern) && IsLocked(at->path())) return true;
  }
  return false;
}

}  // namespace kestro::avi
