#include "recorder/RecordingLock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <ctime>
#include <filesystem>

#include "avi/NameLocks.h"
#include "avi/NamePattern.h"

namespace kestro::record {

namespace fs = std::filesystem;

// The own lock first: of two that start at the same time, at most one goes on.
bool RecordingLock::Take(std::string const& pattern) {
  fs::path const path(pattern);
  std::string const name = path.filename();
  _path = path.parent_path() / ("." + name + avi::kLockEnding);
  if (!TakeOwn()) return false;
  avi::NamePattern const own(name);
  std::time_t const seconds = std::time(nullptr);
  std::tm now = {};
  localtime_r(&seconds, &now);
  bool const taken = own.Valid() && avi::LockHeld(path.parent_path(), [&](std::string const& text) {
                       avi::NamePattern const other(text);
                       return text != name && other.Valid() && own.Overlaps(other, now);
                     });
  if (taken) Release();
  return !taken;
}

bool RecordingLock::TakeOwn() {
  for (;;) {
    _file = open(_path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666);
    if (_file < 0) return true;
    if (flock(_file, LOCK_EX | LOCK_NB) != 0) {
      bool const taken = errno == EWOULDBLOCK;
      close(_file);
      _file = -1;
      return !taken;
    }
    // The previous holder may have removed the file in the meantime: then try again.
    struct stat state;
    if (fstat(_file, &state) != 0 || state.st_nlink > 0) return true;
    close(_file);
  }
}

void RecordingLock::Release() {
  if (_file < 0) return;
  unlink(_path.c_str());
  close(_file);
  _file = -1;
}

}  // namespace kestro::record
