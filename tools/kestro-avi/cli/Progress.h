// Shows the progress of a command on standard error.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

#include "cli/Options.h"

namespace kestro::tool {

// The option --progress. "auto" is a bar on a terminal, and nothing otherwise.
class ProgressOption {
 public:
  void AddTo(Options& options);  // the object must outlive the command
  enum Kind { kNone, kBar, kJson };
  Kind Chosen() const;

 private:
  std::string _text = "auto";
};

// A bar, or one JSON object per line, at most ten times a second and once at the end:
//
//   Progress progress(option, "verify", Progress::kBytes, size);
//   while (...) progress.Update(position);
//   progress.End();   // done; without it the last line shows the last position
class Progress {
 public:
  enum Unit { kBytes, kTime_ms };
  // `total` may be an estimate; 0: unknown.
  Progress(ProgressOption const& option, char const* verb, Unit unit, std::uint64_t total);
  ~Progress();
  Progress(Progress const&) = delete;
  Progress& operator=(Progress const&) = delete;

  void Update(std::uint64_t done) {
    _done = done;
    if (Due()) Show(done);
  }
  // Whether it is time to call Show; for callers whose values are expensive to compute.
  bool Due();
  // `more`: additional text for the bar.
  void Show(std::uint64_t done, std::string const& more = "");
  void End();
  // The size of a file as a total; 0 when unknown.
  static std::uint64_t SizeOf(std::string const& path);
  Unit CountedUnit() const { return _unit; }
  double Seconds() const { return std::chrono::duration<double>(Clock::now() - _begin).count(); }

 private:
  using Clock = std::chrono::steady_clock;
  static constexpr std::chrono::milliseconds kPause{100};
  void Write(bool last);
  std::string Bar() const;
  std::string Amount(std::uint64_t amount) const;

  ProgressOption::Kind const _kind;
  char const* const _verb;
  Unit const _unit;
  std::uint64_t _total, _done = 0;
  std::string _more;
  Clock::time_point const _begin = Clock::now();
  Clock::time_point _next = _begin + kPause;
  bool _ended = false;
};

}  // namespace kestro::tool
