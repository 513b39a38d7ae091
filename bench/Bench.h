// The benchmark harness: cases, their measurement, and the report.
//
// One source file per group of cases (MuxBench.cpp ...) creates Cases; main() collects them:
//
//   std::vector<Case> cases = MuxCases(mix, packets);
//   std::vector<Result> results = Measure(cases, out);   // prints the table
//   WriteReport("build/bench", results);                 // Report.h
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

// An additional value of a run, reported as a separate result "case/name".
struct Figure {
  std::string name;
  double value;
  std::string unit;
};

// Measures the CPU time, user and kernel, that the process uses between Start and Stop or, after
// UseWallTime, the wall-clock time.
class Stopwatch {
 public:
  void UseWallTime() { _wall = true; }
  void Start() { _since = Now(); }
  void Stop() { _seconds += Now() - _since; }
  double Seconds() const { return _seconds; }
  // Overrides the result of the run.
  void Seconds(double seconds) { _seconds = seconds; }
  // Every run of a case must add the same figures in the same order.
  void AddFigure(Figure figure) { _figures.push_back(std::move(figure)); }
  std::vector<Figure> const& Figures() const { return _figures; }

 private:
  double Now() const;
  bool _wall = false;
  double _since = 0, _seconds = 0;
  std::vector<Figure> _figures;
};

// The wall-clock times of many similar steps.
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
  // Adds the median, the 99th and 99.9th percentile, and the maximum.
  void AddFigures(Stopwatch& watch);

 private:
  std::vector<double> _seconds;
};

// One implementation that a case measures. `run` does the work once, with the stopwatch running for
// the part to measure; it throws on failure.
struct Contender {
  std::string name;
  std::function<void(Stopwatch&)> run;
};

struct Case {
  std::string name;                   // "family/case"
  std::string unit;                   // of the reported value
  double scale;                       // the value is the CPU seconds of one run × scale
  int64_t packets;                    // in one run
  std::vector<Contender> contenders;  // ours, then the baselines
  int repetitions = 0;                // 0: the number from the command line
};

// A result to compare with, in the same unit.
struct Baseline {
  std::string name;
  double value;
  double spread = 0;  // between the quartiles, as a fraction of the median; 0: unknown
};

struct Result {
  std::string name;
  double value;  // ours, the median
  std::string unit;
  std::vector<Baseline> baselines = {};
  double spread = 0;

  double Ratio(Baseline const& baseline) const { return value / baseline.value; }
};

// Throws if `ok` is false.
inline void Require(bool ok, char const* what) {
  if (!ok) throw std::runtime_error(what);
}

// The quantile `q`, from 0 to 1, of sorted values.
double Quantile(std::vector<double> const& sorted, double q);

// Runs every contender of every case several times, in random order so that disturbances of the
// machine affect all equally, and prints the medians. Cases that the filter of Google Benchmark
// excludes have no result. Throws when a run fails.
std::vector<Result> Measure(std::vector<Case> const& cases, std::FILE* out);

}  // namespace kestro::bench
