#include "cli/Progress.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <filesystem>

#include "cli/Console.h"
#include "cli/Documents.h"
#include "cli/Text.h"

namespace kestro::tool {

void ProgressOption::AddTo(Options& options) {
  options
      .Text("--progress", _text, "FORM",
            "Show progress on standard error: a bar, or one JSON object per line; auto: a bar "
            "on a terminal")
      .OneOf({"auto", "bar", "json", "none"});
}

ProgressOption::Kind ProgressOption::Chosen() const {
  if (_text == "json") return kJson;
  return _text == "bar" || (_text == "auto" && isatty(STDERR_FILENO) == 1) ? kBar : kNone;
}

Progress::Progress(ProgressOption const& option, char const* verb, Unit unit, std::uint64_t total)
    : _kind(option.Chosen()), _verb(verb), _unit(unit), _total(total) {}

Progress::~Progress() {
  if (!_ended) Write(true);
}

bool Progress::Due() {
  if (_kind == ProgressOption::kNone) return false;
  auto const now = Clock::now();
  if (now < _next) return false;
  _next = now + kPause;
  return true;
}

void Progress::Show(std::uint64_t done, std::string const& more) {
  _done = done;
  _more = more;
  if (_total != 0) _total = std::max(_total, done);
  Write(false);
}

void Progress::End() {
  _total = _done = std::max(_total, _done);
  _ended = true;
  Write(true);
}

std::uint64_t Progress::SizeOf(std::string const& path) {
  std::error_code failed;
  std::uint64_t const size = std::filesystem::file_size(path, failed);
  return failed ? 0 : size;
}

void Progress::Write(bool last) {
  if (_kind == ProgressOption::kBar) ShowStatus(last ? "" : Bar());
  if (_kind != ProgressOption::kJson) return;
  bool const known = _total != 0 || _ended;
  WriteErrorLine(Json{{"verb", _verb},
                      {"done", _done},
                      {"total", known ? Json(_total) : Json()},
                      {"unit", _unit == kBytes ? "bytes" : "ms"},
                      {"seconds", std::round(Seconds() * 1000) / 1000}}
                     .dump());
}

std::string Progress::Amount(std::uint64_t amount) const {
  return _unit == kBytes ? ByteCount(amount) : tool::Seconds(static_cast<std::int64_t>(amount));
}

// At most as wide as the terminal, because a longer line could not be removed.
std::string Progress::Bar() const {
  constexpr std::size_t kCells = 20;
  std::string text = _verb;
  if (_total != 0) {
    double const share = static_cast<double>(_done) / static_cast<double>(_total);
    auto const full = static_cast<std::size_t>(share * kCells);
    char percent[16];
    std::snprintf(percent, sizeof percent, "] %3.0f %%  ", std::floor(share * 100));
    text += " [" + std::string(full, '#') + std::string(kCells - full, '.') + percent;
    text += Amount(_done) + " of " + Amount(_total);
  } else {
    text += ": " + Amount(_done);
  }
  if (!_more.empty()) text += ", " + _more;
  winsize size{};
  bool const known = ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 1;
  return text.substr(0, known ? size.ws_col - 1u : 79);
}

}  // namespace kestro::tool
