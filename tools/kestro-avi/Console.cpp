#include "Console.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "Errors.h"

namespace kestro::tool {

static int standardOutput = STDOUT_FILENO;

void ReserveStandardOutput() {
  if (standardOutput != STDOUT_FILENO) return;
  std::fflush(stdout);
  int const saved = dup(STDOUT_FILENO);
  if (saved < 0) return;  // closed by the caller: there is nothing to keep apart
  standardOutput = saved;
  dup2(STDERR_FILENO, STDOUT_FILENO);
}

void WriteData(std::string const& text) {
  for (std::size_t done = 0; done < text.size();) {
    ssize_t const n = write(standardOutput, text.data() + done, text.size() - done);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) throw Error(kIo, std::string("standard output: ") + std::strerror(errno));
    done += static_cast<std::size_t>(n);
  }
}

void Report(std::string const& text) {
  std::fflush(stdout);  // what the plug-in printed comes first
  std::string const line = "kestro-avi: " + text + "\n";
  std::fwrite(line.data(), 1, line.size(), stderr);
}

Progress::Progress() : _terminal(isatty(STDERR_FILENO) == 1) {}

void Progress::Show(std::string const& text) {
  if (!_terminal) return;
  std::fprintf(stderr, "\r%s\033[K", text.c_str());
  std::fflush(stderr);
  _shown = true;
}

void Progress::Clear() {
  if (_shown) std::fputs("\r\033[K", stderr);
  _shown = false;
}

}  // namespace kestro::tool
