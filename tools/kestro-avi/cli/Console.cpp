#include "cli/Console.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string_view>

#include "base/Console.h"
#include "cli/Errors.h"

namespace kestro::tool {

static constexpr off_t kKept = 64 << 10;  // of what is caught
static constexpr std::string_view kCaught = "kestro-avi: the plug-in printed:\n";

// A status stands on the terminal. Reports come from several threads.
static bool statusShown = false;
static std::mutex terminal;

static int standardOutput = STDOUT_FILENO;
static int caught = -1;  // a file in memory, which descriptor 1 leads to

void FillStandardStreams() {
  int file;
  do file = open("/dev/null", O_RDONLY);
  while (file >= 0 && file <= STDERR_FILENO);
  if (file >= 0) close(file);
}

// False, with errno, when it fails.
static bool WriteAll(int file, std::string_view text) {
  while (!text.empty()) {
    ssize_t const n = write(file, text.data(), text.size());
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    text.remove_prefix(static_cast<std::size_t>(n));
  }
  return true;
}

// The whole lines among the last that was caught. For signal handlers, too.
static std::string_view CaughtPrints() {
  static char text[kKept];
  struct stat file {};
  if (caught < 0 || fstat(caught, &file) != 0) return {};
  off_t const begin = std::max<off_t>(0, file.st_size - kKept);
  ssize_t const size = pread(caught, text, sizeof text, begin);
  std::string_view prints(text, static_cast<std::size_t>(std::max<ssize_t>(0, size)));
  if (begin > 0) prints.remove_prefix(prints.find('\n') + 1);  // npos + 1 is 0
  return prints;
}

// Gives memory back. Threads that print meanwhile are not disturbed, as nothing moves.
static void ForgetOldPrints() {
  struct stat file {};
  if (fstat(caught, &file) == 0 && off_t{file.st_blocks} * 512 > 4 * kKept)
    fallocate(caught, FALLOC_FL_PUNCH_HOLE | FALLOC_FL_KEEP_SIZE, 0, file.st_size - kKept);
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
    ForgetOldPrints();
  }
};

// Standard error gets what was printed before the crash, which then takes its course.
static void OnCrash(int signal) {
  if (std::string_view const prints = CaughtPrints(); !prints.empty()) {
    WriteAll(STDERR_FILENO, kCaught);
    WriteAll(STDERR_FILENO, prints);
  }
  std::raise(signal);
}

static void WatchForCrashes() {
  struct sigaction action {};
  struct sigaction now {};
  action.sa_handler = OnCrash;
  action.sa_flags = static_cast<int>(SA_RESETHAND);
  for (int const signal : {SIGABRT, SIGSEGV, SIGBUS, SIGFPE, SIGILL})  // unless a sanitizer does
    if (sigaction(signal, nullptr, &now) == 0 && now.sa_handler == SIG_DFL)
      sigaction(signal, &action, nullptr);
}

void CatchPrints() {
  std::fflush(stdout);
  std::signal(SIGXFSZ, SIG_IGN);
  standardOutput = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
  caught = memfd_create("kestro-avi prints", MFD_CLOEXEC);
  // Systems without such files have the prints among the messages.
  if (standardOutput < 0 || dup2(caught < 0 ? STDERR_FILENO : caught, STDOUT_FILENO) < 0)
    throw Error(kIo, std::string("standard output: ") + std::strerror(errno));
  std::setvbuf(stdout, nullptr, _IONBF, 0);    // a crash would lose what is buffered
  static auto* const lines = new PluginLines;  // for as long as the plug-in stays loaded
  base::cout.Redirect(lines);
  WatchForCrashes();
}

void ShowCaughtPrints() {
  std::string text(CaughtPrints());
  if (text.empty()) return;
  if (text.back() == '\n') text.pop_back();
  WriteErrorLine(std::string(kCaught) + text);
}

// Under the lock: takes the status away.
static void ClearStatus() {
  if (statusShown) std::fputs("\r\033[K", stderr);
  statusShown = false;
}

void WriteData(std::string const& text) {
  if (std::lock_guard lock(terminal); statusShown && isatty(standardOutput) == 1) ClearStatus();
  if (WriteAll(standardOutput, text)) return;
  if (errno == EPIPE) {  // as where signals are not caught
    std::signal(SIGPIPE, SIG_DFL);
    std::raise(SIGPIPE);
  }
  throw Error(kIo, std::string("standard output: ") + std::strerror(errno));
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
  ClearStatus();
  std::fputs(text.c_str(), stderr);
  std::fflush(stderr);
  statusShown = !text.empty();
}

void WriteErrorLine(std::string const& line) {
  std::lock_guard lock(terminal);
  ClearStatus();
  std::string const whole = line + "\n";
  std::fwrite(whole.data(), 1, whole.size(), stderr);
}

void Report(std::string const& text) { WriteErrorLine("kestro-avi: " + text); }

}  // namespace kestro::tool
