// How far a verb has come, on standard error.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

namespace CLI {
class App;
}

namespace kestro::tool {

// What people ask for with --progress: "auto" is a bar on a terminal and nothing elsewhere.
class ProgressOption {
 public:
  void AddTo(CLI::App& app);  // the object outlives the app's use
  enum Kind { kNone, kBar, kJson };
  Kind Chosen() const;

 private:
  std::string _text = "auto";
};

// A bar, or a JSON object a line, ten times a second at most, and once more at the end:
//
//   Progress progress(option, "verify", Progress::kBytes, size);
//   while (...) progress.At(position);
//   progress.End();   // all is done; without it the last line tells how far it came
class Progress {
 public:
  enum Unit { kBytes, kTime_ms };
  // `total` is what will be done, 0 where that is unknown. It may be an estimate.
  Progress(ProgressOption const& option, char const* verb, Unit unit, std::uint64_t total);
  ~Progress();
  Progress(Progress const&) = delete;
  Progress& operator=(Progress const&) = delete;

  void At(std::uint64_t done) {
    _done = done;
    if (Due()) Show(done);
  }
  // For those whose numbers cost something: whether Show shows anything now.
  bool Due();
  // `more`: further text for the bar.
  void Show(std::uint64_t done, std::string const& more = "");
  void End();
  // Of a file, as a total: 0 when it cannot be told.
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
