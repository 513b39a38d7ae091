#include "cli/OpenForWriting.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <ctime>

namespace kestro::tool {

bool OpenForWriting(std::string const& path) {
  constexpr std::time_t kRecent_s = 10;
  int const file = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  if (file < 0) return false;
  // The system refuses a lease for reading while somebody writes. A writer who opens the file
  // before the lease is given back waits for that, and the signal for it must do no harm.
  fcntl(file, F_SETSIG, SIGURG);
  bool writing = false;
  if (fcntl(file, F_SETLEASE, F_RDLCK) == 0) {
    fcntl(file, F_SETLEASE, F_UNLCK);
  } else if (errno == EAGAIN) {
    writing = true;
  } else {
    struct stat state = {};
    writing = fstat(file, &state) == 0 && std::time(nullptr) - state.st_mtime < kRecent_s;
  }
  close(file);
  return writing;
}

}  // namespace kestro::tool
