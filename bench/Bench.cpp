#include "Bench.h"

#include <benchmark/benchmark.h>
#include <time.h>

#include <algorithm>

namespace kestro::bench {

namespace {

// Collects the times of all repetitions, by contender.
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

  // Sorted; empty if the contender did not run.
  std::vector<double> Seconds(std::string const& name) const {
    auto const found = _seconds.find(name);
    if (found == _seconds.end()) return {};
    auto seconds = found->second;
    std::sort(seconds.begin(), seconds.end());
    return seconds;
  }
  std::string const& Error() const { return _error; }

  void Add(std::string const& name, std::vector<Figure> const& figures) {
    for (std::size_t i = 0; i < figures.size(); ++i) {
      auto& all = _figures[name];
      if (all.size() <= i) all.push_back({figures[i], {}});
      all[i].second.push_back(figures[i].value);
    }
  }
  // The medians of a contender's figures.
  std::vector<Figure> Figures(std::string const& name) const {
    std::vector<Figure> medians;
    auto const found = _figures.find(name);
    if (found == _figures.end()) return medians;
    for (auto [figure, values] : found->second) {
      std::sort(values.begin(), values.end());
      medians.push_back({figure.name, Quantile(values, 0.5), figure.unit});
    }
    return medians;
  }

 private:
  std::map<std::string, std::vector<std::pair<Figure, std::vector<double>>>> _figures;
  std::map<std::string, std::vector<double>> _seconds;
  std::string _error;
};

std::string FullName(Case const& c, Contender const& contender) {
  return c.name + "/" + contender.name;
}

void Register(Case const& c, Contender const& contender, Collector& collector) {
  auto const once = [&collector, &c, &contender](benchmark::State& state) {
    for (auto _ : state) {
      Stopwatch watch;
      try {
        contender.run(watch);
      } catch (std::exception const& e) {
        state.SkipWithError(e.what());
        break;
      }
      state.SetIterationTime(watch.Seconds());
      collector.Add(FullName(c, contender), watch.Figures());
    }
  };
  auto* const entry = benchmark::RegisterBenchmark(FullName(c, contender).c_str(), once);
  entry->UseManualTime()->Iterations(1);
  if (c.repetitions > 0) entry->Repetitions(c.repetitions);
}

// Prints a line with the figures of a contender, and adds them to the results of the case, which
// are the last ones.
void ReportFigures(Case const& c, std::vector<Figure> const& figures, bool ours,
                   std::string const& contender, std::FILE* out, std::vector<Result>& results) {
  if (figures.empty()) return;
  std::fprintf(out, "%-33s", "");
  for (std::size_t i = 0; i < figures.size(); ++i) {
    auto const& [name, value, unit] = figures[i];
    std::fprintf(out, "%s%s %.*f %s", i > 0 ? ", " : "", name.c_str(), value < 100 ? 2 : 0, value,
                 unit.c_str());
    if (ours) {
      results.push_back({c.name + "/" + name, value, unit});
    } else if (value > 0) {
      Result& result = results[results.size() - figures.size() + i];
      result.baselines.push_back({contender, value});
    }
  }
  std::fprintf(out, "\n");
}

// Prints the rows of a case and adds its result.
void Report(Case const& c, Collector const& collector, std::FILE* out,
            std::vector<Result>& results) {
  double ours = 0;
  std::size_t const place = results.size();
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
      results.push_back({c.name, median * c.scale, c.unit, {}, spread});
    } else if (ours > 0) {
      results[place].baselines.push_back({contender.name, median * c.scale, spread});
      std::fprintf(out, " %10.3f", ours / median);
    }
    std::fprintf(out, "\n");
    ReportFigures(c, collector.Figures(FullName(c, contender)), first, contender.name, out,
                  results);
  }
}

}  // namespace

double Quantile(std::vector<double> const& sorted, double q) {
  double const at = q * static_cast<double>(sorted.size() - 1);
  auto const below = static_cast<std::size_t>(at);
  auto const above = std::min(below + 1, sorted.size() - 1);
  return sorted[below] + (at - static_cast<double>(below)) * (sorted[above] - sorted[below]);
}

double Laps::Quantile(double q) {
  std::sort(_seconds.begin(), _seconds.end());
  return bench::Quantile(_seconds, q);
}

std::int64_t Laps::Above(double seconds) const {
  return std::count_if(_seconds.begin(), _seconds.end(), [=](double lap) { return lap > seconds; });
}

void Laps::AddFigures(Stopwatch& watch) {
  for (auto const& [name, q] :
       {std::pair{"p50", 0.5}, {"p99", 0.99}, {"p999", 0.999}, {"max", 1.0}})
    watch.AddFigure({name, Quantile(q) * 1e6, "us"});
}

double Stopwatch::Now() const {
  timespec now;
  clock_gettime(_wall ? CLOCK_MONOTONIC : CLOCK_PROCESS_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

std::vector<Result> Measure(std::vector<Case> const& cases, std::FILE* out) {
  Collector collector;
  for (Case const& c : cases)
    for (Contender const& contender : c.contenders) Register(c, contender, collector);
  benchmark::RunSpecifiedBenchmarks(&collector);
  if (!collector.Error().empty()) throw std::runtime_error(collector.Error());

  std::fprintf(out, "%-19s %-12s %17s %10s %10s %10s\n", "case", "", "CPU time", "ns/packet",
               "spread", "ours/it");
  std::vector<Result> results;
  for (Case const& c : cases) Report(c, collector, out, results);
  return results;
}

}  // namespace kestro::bench
