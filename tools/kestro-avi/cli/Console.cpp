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
#include "cli/Escaped.h"

namespace kestro::tool {

static constexpr off_t kKept = 64 << 10;  // bytes of captured text
static constexpr std::string_view kHeading = "kestro-avi: the plug-in printed:\n";

// Reports come from several threads.
static std::mutex terminal;
static bool statusShown = false;

static int standardOutput = STDOUT_FILENO;
static int captured = -1;  // the memory file that descriptor 1 now refers to

void FillStandardStreams() {
  int file;
  do file = open("/dev/null", O_RDONLY);
  while (file >= 0 && file <= STDERR_FILENO);
  if (file >= 0) close(file);
}

// Returns false and sets errno on failure.
static bool WriteAll(int file, std::string_view text) {
  while (!text.empty()) {
    ssize_t const n = write(file, text.data(), text.size());
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    text.remove_prefix(static_cast<std::size_t>(n));
  }
  return true;
}

// The complete lines of the captured text. Safe in signal handlers.
static std::string_view CapturedPrints() {
  static char text[kKept];
  struct stat file {};
  if (captured < 0 || fstat(captured, &file) != 0) return {};
  off_t const begin = std::max<off_t>(0, file.st_size - kKept);
  ssize_t const size = pread(captured, text, sizeof text, begin);
  std::string_view prints(text, static_cast<std::size_t>(std::max<ssize_t>(0, size)));
  if (begin > 0) prints.remove_prefix(prints.find('\n') + 1);  // npos + 1 is 0
  return prints;
}

// Frees memory. Other threads may print at the same time, because the text does not move.
static void DropOldPrints() {
  struct stat file {};
  if (fstat(captured, &file) == 0 && off_t{file.st_blocks} * 512 > 4 * kKept)
    fallocate(captured, FALLOC_FL_PUNCH_HOLE | FALLOC_FL_KEEP_SIZE, 0, file.st_size - kKept);
}

// The plug-in resets the colour of its red lines at the start of the next line, which may belong to
// the tool: this moves the reset to the end of the red line.
class PluginLines : public base::ostream {
 public:
  void Write(char const* text, std::size_t size) override {
    static constexpr std::string_view kEnd = "\n\033[0m";
    std::string line(text, size);
    if (size >= kEnd.size() && line.compare(size - kEnd.size(), kEnd.size(), kEnd) == 0)
      line.replace(size - kEnd.size(), kEnd.size(), "\033[0m\n");
    std::fwrite(line.data(), 1, line.size(), stdout);
    DropOldPrints();
  }
};

// Shows what was printed before the crash, and then raises the signal again.
static void OnCrash(int signal) {
  if (std::string_view const prints = CapturedPrints(); !prints.empty()) {
    WriteAll(STDERR_FILENO, kHeading);
    WriteAll(STDERR_FILENO, prints);
  }
  std::raise(signal);
}

static void WatchForCrashes() {
  struct sigaction action {};
  struct sigaction now {};
  action.sa_handler = OnCrash;
  action.sa_flags = static_cast<int>(SA_RESETHAND);
  for (int const signal :
       {SIGABRT, SIGSEGV, SIGBUS, SIGFPE, SIGILL})  // unless a sanitizer handles it
    if (sigaction(signal, nullptr, &now) == 0 && now.sa_handler == SIG_DFL)
      sigaction(signal, &action, nullptr);
}

void CapturePrints() {
  std::fflush(stdout);
  std::signal(SIGXFSZ, SIG_IGN);
  standardOutput = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
  captured = memfd_create("kestro-avi prints", MFD_CLOEXEC);
  // Without memory files the plug-in prints to standard error.
  if (standardOutput < 0 || dup2(captured < 0 ? STDERR_FILENO : captured, STDOUT_FILENO) < 0)
    throw Error(kIo, std::string("standard output: ") + std::strerror(errno));
  std::setvbuf(stdout, nullptr, _IONBF, 0);    // a crash would lose a buffer
  static auto* const lines = new PluginLines;  // lives as long as the plug-in
  base::cout.Redirect(lines);
  WatchForCrashes();
}

void ShowCapturedPrints() {
  std::string text(CapturedPrints());
  if (text.empty()) return;
  if (text.back() == '\n') text.pop_back();
  WriteErrorLine(std::string(kHeading) + text, true);
}

// Removes the status line. Call with the lock held.
static void ClearStatus() {
  if (statusShown) std::fputs("\r\033[K", stderr);
  statusShown = false;
}

static bool IsTerminal(int file) { return isatty(file) == 1; }

bool OutputIsTerminal() { return IsTerminal(standardOutput); }

std::string Shown(std::string const& name) {
  return IsTerminal(standardOutput) ? Escaped(name, false) : name;
}

bool TryWriteData(std::string const& text) {
  bool const shown = IsTerminal(standardOutput);
  if (std::lock_guard lock(terminal); shown && statusShown) ClearStatus();
  return WriteAll(standardOutput, shown ? Escaped(text, true) : text);
}

void WriteData(std::string const& text) {
  if (TryWriteData(text)) return;
  if (errno == EPIPE) {  // die as other programs do
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
  return IsTerminal(standardOutput) && variable("NO_COLOR").empty() && variable("TERM") != "dumb";
}

void ShowStatus(std::string const& text) {
  std::lock_guard lock(terminal);
  ClearStatus();
  std::fputs(Escaped(text, false).c_str(), stderr);
  std::fflush(stderr);
  statusShown = !text.empty();
}

void WriteErrorLine(std::string const& text, bool page) {
  std::lock_guard lock(terminal);
  ClearStatus();
  std::string const whole = (IsTerminal(STDERR_FILENO) ? Escaped(text, page) : text) + "\n";
  std::fwrite(whole.data(), 1, whole.size(), stderr);
}

void Report(std::string const& text) { WriteErrorLine("kestro-avi: " + text); }

}  // namespace kestro::tool
