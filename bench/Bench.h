// The benchmark harness: cases, their measurement, and the report.
//
// One source file per family of cases (MuxBench.cpp ...) makes Cases; main() collects them:
//
//   std::vector<Case> cases = MuxCases(mix);
//   std::vector<Result> results = Measure(cases, repetitions, out);   // prints the table
//   WriteReport("build/bench", results);                          // Report.h
#pragma once

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

namespace kestro::bench {

// A further figure of a run, beside its time: a result "case/name" of its own.
struct Figure {
  std::string name;
  double value;
  std::string unit;
};

// Collects the CPU time, of user and kernel, that the process spends between Start and Stop; after
// Wall, the time that passes.
class Stopwatch {
 public:
  void Wall() { _wall = true; }
  void Start() { _since = Now(); }
  void Stop() { _seconds += Now() - _since; }
  double Seconds() const { return _seconds; }
  // Makes this what the run reports.
  void Seconds(double seconds) { _seconds = seconds; }
  // Every run of a case tells the same figures in the same order.
  void Tell(Figure figure) { _figures.push_back(std::move(figure)); }
  std::vector<Figure> const& Figures() const { return _figures; }

 private:
  double Now() const;
  bool _wall = false;
  double _since = 0, _seconds = 0;
  std::vector<Figure> _figures;
};

// The times of many steps that are alike, by the clock on the wall.
class Laps {
 public:
  template <class Step>
  void Time(Step step) {
    auto const begin = std::chrono::steady_clock::now();
    step();
    std::chrono::duration<double> const passed = std::chrono::steady_clock::now() - begin;
    _seconds.push_back(passed.count());
  }
  double Quantile(double q);
  std::int64_t Above(double seconds) const;
  // Tells median, 99th and 99.9th percentile, and the longest.
  void Tell(Stopwatch& watch);

 private:
  std::vector<double> _seconds;
};

// One way of doing the work of a case. `run` does it once, with the stopwatch running for the part
// that counts; it throws when the work did not succeed.
struct Contender {
  std::string name;
  std::function<void(Stopwatch&)> run;
};

struct Case {
  std::string name;                   // "family/case"
  std::string unit;                   // of the reported value
  double scale;                       // the value is CPU seconds of one run × scale
  int64_t packets;                    // in one run
  std::vector<Contender> contenders;  // ours, then the baselines
  int repetitions = 0;                // 0: as many as are asked for
};

// What ours is measured against, in the unit of ours.
struct Baseline {
  std::string name;
  double value;
  double spread = 0;  // between the quartiles, as a fraction of the median; 0: not known
};

struct Result {
  std::string name;
  double value;  // ours, the median
  std::string unit;
  std::vector<Baseline> baselines = {};
  double spread = 0;

  double Ratio(Baseline const& baseline) const { return value / baseline.value; }
};

// Throws unless the work has succeeded.
inline void Require(bool ok, char const* what) {
  if (!ok) throw std::runtime_error(what);
}

// At a fraction of the way through sorted values.
double Quantile(std::vector<double> const& sorted, double q);

// Runs every contender of every case so many times, in random order so that a disturbance of the
// machine meets all alike, and prints the medians. Cases that the filter of Google Benchmark leaves
// out have no result. Throws when a run failed.
std::vector<Result> Measure(std::vector<Case> const& cases, std::FILE* out);

}  // namespace kestro::bench
