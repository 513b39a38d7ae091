#include "recorder/RecordingLock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>

namespace kestro::record {

bool RecordingLock::Take(std::string const& pattern) {
  std::filesystem::path const path(pattern);
  _path = path.parent_path() / ("." + path.filename().string() + ".lock");
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

RecordingLock::~RecordingLock() {
  if (_file < 0) return;
  unlink(_path.c_str());
  close(_file);
}

}  // namespace kestro::record
