#include "cli/OpenForWriting.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>

namespace kestro::tool {

std::optional<bool> OpenForWriting(std::string const& path) {
  int const file = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  if (file < 0) return std::nullopt;
  // The system refuses a lease for reading while somebody can write. A writer who opens the file
  // before the lease is given back waits for that, and the signal for it must do no harm.
  fcntl(file, F_SETSIG, SIGURG);
  std::optional<bool> writing;
  if (fcntl(file, F_SETLEASE, F_RDLCK) == 0) {
    fcntl(file, F_SETLEASE, F_UNLCK);
    writing = false;
  } else if (errno == EAGAIN) {
    writing = true;
  }
  close(file);
  return writing;
}

}  // namespace kestro::tool
