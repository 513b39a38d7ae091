#include "Console.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <mutex>

#include "Errors.h"

namespace kestro::tool {

// A line of progress stands on the terminal. Reports come from several threads.
static bool progressShown = false;
static std::mutex terminal;

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
  std::lock_guard lock(terminal);
  std::string const line = (progressShown ? "\r\033[K" : "") + ("kestro-avi: " + text + "\n");
  progressShown = false;
  std::fwrite(line.data(), 1, line.size(), stderr);
}

Progress::Progress() : _terminal(isatty(STDERR_FILENO) == 1) {}

void Progress::Show(std::string const& text) {
  if (!_terminal) return;
  std::lock_guard lock(terminal);
  std::fprintf(stderr, "\r%s\033[K", text.c_str());
  std::fflush(stderr);
  progressShown = true;
}

void Progress::Clear() {
  std::lock_guard lock(terminal);
  if (progressShown) std::fputs("\r\033[K", stderr);
  progressShown = false;
}

}  // namespace kestro::tool
