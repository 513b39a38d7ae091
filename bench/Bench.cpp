#include "Bench.h"

#include <benchmark/benchmark.h>
#include <time.h>

#include <algorithm>
#include <fstream>
#include <nlohmann/json.hpp>

namespace kestro::bench {

namespace {

// The seconds of all repetitions, by contender.
class Collector : public benchmark::BenchmarkReporter {
 public:
  bool ReportContext(Context const&) override { return true; }

  void ReportRuns(std::vector<Run> const& runs) override {
    for (Run const& run : runs) {
      if (run.error_occurred) _error = run.benchmark_name() + ": " + run.error_message;
      if (run.run_type == Run::RT_Iteration && !run.error_occurred)
        _seconds[run.run_name.function_name].push_back(run.real_accumulated_time / run.iterations);
    }
  }

  // Sorted; empty for a contender that did not run.
  std::vector<double> Seconds(std::string const& name) const {
    auto const found = _seconds.find(name);
    if (found == _seconds.end()) return {};
    auto seconds = found->second;
    std::sort(seconds.begin(), seconds.end());
    return seconds;
  }
  std::string const& Error() const { return _error; }

 private:
  std::map<std::string, std::vector<double>> _seconds;
  std::string _error;
};

std::string FullName(Case const& c, Contender const& contender) {
  return c.name + "/" + contender.name;
}

void Register(Case const& c, Contender const& contender) {
  auto const once = [&contender](benchmark::State& state) {
    for (auto _ : state) {
      Stopwatch watch;
      try {
        contender.run(watch);
      } catch (std::exception const& e) {
        state.SkipWithError(e.what());
        break;
      }
      state.SetIterationTime(watch.Seconds());
    }
  };
  auto* const entry = benchmark::RegisterBenchmark(FullName(c, contender).c_str(), once);
  entry->UseManualTime()->Iterations(1);
  if (c.repetitions > 0) entry->Repetitions(c.repetitions);
}

double Quantile(std::vector<double> const& sorted, double q) {
  double const at = q * static_cast<double>(sorted.size() - 1);
  auto const below = static_cast<std::size_t>(at);
  auto const above = std::min(below + 1, sorted.size() - 1);
  return sorted[below] + (at - static_cast<double>(below)) * (sorted[above] - sorted[below]);
}

// Prints the rows of a case and adds its result.
void Report(Case const& c, Collector const& collector, std::FILE* out,
            std::vector<Result>& results) {
  double ours = 0;
  for (Contender const& contender : c.contenders) {
    auto const seconds = collector.Seconds(FullName(c, contender));
    if (seconds.empty()) continue;
    double const median = Quantile(seconds, 0.5);
    double const spread = (Quantile(seconds, 0.75) - Quantile(seconds, 0.25)) / median;
    bool const first = &contender == &c.contenders.front();
    std::fprintf(out, "%-19s %-12s %10.4f %-6s %10.1f %8.1f %%", first ? c.name.c_str() : "",
                 contender.name.c_str(), median * c.scale, c.unit.c_str(),
                 median * 1e9 / static_cast<double>(c.packets), spread * 100);
    if (first) {
      ours = median;
      results.push_back({c.name, median * c.scale, c.unit, {}});
    } else if (ours > 0) {
      results.back().ratios[contender.name] = ours / median;
      std::fprintf(out, " %10.3f", ours / median);
    }
    std::fprintf(out, "\n");
  }
}

}  // namespace

double Stopwatch::Now() const {
  timespec now;
  clock_gettime(_wall ? CLOCK_MONOTONIC : CLOCK_PROCESS_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

std::vector<Result> Measure(std::vector<Case> const& cases, std::FILE* out) {
  for (Case const& c : cases)
    for (Contender const& contender : c.contenders) Register(c, contender);
  Collector collector;
  benchmark::RunSpecifiedBenchmarks(&collector);
  if (!collector.Error().empty()) throw std::runtime_error(collector.Error());

  std::fprintf(out, "%-19s %-12s %17s %10s %10s %10s\n", "case", "", "CPU time", "ns/packet",
               "spread", "ours/it");
  std::vector<Result> results;
  for (Case const& c : cases) Report(c, collector, out, results);
  return results;
}

void WriteJson(std::string const& path, std::vector<Result> const& results) {
  auto list = nlohmann::ordered_json::array();
  for (Result const& result : results) {
    nlohmann::ordered_json entry{
        {"name", result.name}, {"value", result.value}, {"unit", result.unit}};
    entry["ratios"] = nlohmann::ordered_json::object();
    for (auto const& [baseline, ratio] : result.ratios) entry["ratios"][baseline] = ratio;
    list.push_back(std::move(entry));
  }
  std::ofstream file(path);
  file << nlohmann::ordered_json{{"schema", 1}, {"results", std::move(list)}}.dump(2) << "\n";
  file.close();
  if (!file) throw std::runtime_error("cannot write " + path);
}

}  // namespace kestro::bench
