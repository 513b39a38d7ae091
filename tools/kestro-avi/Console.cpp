#include "Console.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string_view>

#include "Errors.h"
#include "base/Console.h"

namespace kestro::tool {

// A status stands on the terminal. Reports come from several threads.
static bool statusShown = false;
static std::mutex terminal;

static int standardOutput = STDOUT_FILENO;

void FillStandardStreams() {
  int file;
  do file = open("/dev/null", O_RDONLY);
  while (file >= 0 && file <= STDERR_FILENO);
  if (file >= 0) close(file);
}

// The plug-in's red lines go back to plain at the beginning of the next line, which may be one of
// the tool's: they do so at their own end instead.
class PluginLines : public base::ostream {
 public:
  void Write(char const* text, std::size_t size) override {
    static constexpr std::string_view kEnd = "\n\033[0m";
    std::string line(text, size);
    if (size >= kEnd.size() && line.compare(size - kEnd.size(), kEnd.size(), kEnd) == 0)
      line.replace(size - kEnd.size(), kEnd.size(), "\033[0m\n");
    std::fwrite(line.data(), 1, line.size(), stdout);
  }
};

void ReserveStandardOutput() {
  if (standardOutput != STDOUT_FILENO) return;
  std::fflush(stdout);
  int const saved = dup(STDOUT_FILENO);
  if (saved < 0) return;
  standardOutput = saved;
  dup2(STDERR_FILENO, STDOUT_FILENO);
  static auto* const lines = new PluginLines;  // for as long as the plug-in stays loaded
  base::cout.Redirect(lines);
}

// Under the lock: takes the status away, and lets what was printed meanwhile come in its place.
static void ClearStatus() {
  if (statusShown) std::fputs("\r\033[K", stderr);
  statusShown = false;
  std::fflush(stdout);
}

void WriteData(std::string const& text) {
  if (std::lock_guard lock(terminal); statusShown && isatty(standardOutput) == 1) ClearStatus();
  for (std::size_t done = 0; done < text.size();) {
    ssize_t const n = write(standardOutput, text.data() + done, text.size() - done);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0 && errno == EPIPE) {  // as where signals are not caught
      std::signal(SIGPIPE, SIG_DFL);
      std::raise(SIGPIPE);
    }
    if (n <= 0) throw Error(kIo, std::string("standard output: ") + std::strerror(errno));
    done += static_cast<std::size_t>(n);
  }
}

bool ColouredOutput() {
  auto const variable = [](char const* name) {
    char const* const value = std::getenv(name);
    return std::string(value == nullptr ? "" : value);
  };
  return isatty(standardOutput) == 1 && variable("NO_COLOR").empty() && variable("TERM") != "dumb";
}

void ShowStatus(std::string const& text) {
  std::lock_guard lock(terminal);
  static char held[1 << 16];
  [[maybe_unused]] static int const holding = std::setvbuf(stdout, held, _IOFBF, sizeof held);
  ClearStatus();
  std::fputs(text.c_str(), stderr);
  std::fflush(stderr);
  statusShown = !text.empty();
}

void WriteErrorLine(std::string const& line) {
  std::lock_guard lock(terminal);
  ClearStatus();  // what the plug-in printed comes first
  std::string const whole = line + "\n";
  std::fwrite(whole.data(), 1, whole.size(), stderr);
}

void Report(std::string const& text) { WriteErrorLine("kestro-avi: " + text); }

}  // namespace kestro::tool
