#include "repair/Busy.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <filesystem>

#include "avi/NumberedName.h"
#include "cli/OpenForWriting.h"

namespace kestro::tool {

namespace fs = std::filesystem;

// Whether a recorder with this file name, which may be a pattern, writes files of that name.
static bool Writes(std::string const& pattern, std::string const& name) {
  fs::path const path(pattern);
  std::string const later = path.stem().string() + "-%05d" + path.extension().string();
  if (avi::NumberedName(pattern, 1) == name) return true;
  for (std::size_t i = 0; i < name.size(); ++i) {
    if (!std::isdigit(static_cast<unsigned char>(name[i]))) continue;
    auto const number = std::strtoull(name.c_str() + i, nullptr, 10);
    if (avi::NumberedName(avi::Numbered(pattern) ? pattern : later, number) == name) return true;
  }
  return false;
}

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
    std::string const pattern = name.substr(1, name.size() - 1 - kEnding.size());
    if (Writes(pattern, file.filename()) && IsLocked(at->path())) return true;
  }
  return false;
}

}  // namespace kestro::tool
