// kestro-bench: measures the plug-in.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>

#include "DemuxBench.h"
#include "GstBench.h"
#include "MemoryBench.h"
#include "MuxBench.h"
#include "RecordBench.h"
#include "Report.h"
#include "ScanBench.h"
#include "ToolBench.h"
#include "base/Module.h"

namespace kestro::bench {
namespace {

constexpr char kUsage[] =
    "usage: kestro-bench [OPTION...]\n"
    "\n"
    "  --json FILE        also write the results to FILE\n"
    "  --out DIR          also write results.json, results.md and results.svg to DIR\n"
    "  --memory           measure only memory; with a filter, memory is not measured without it\n"
    "  --repetitions N    repetitions of each contender [21]\n"
    "  --plugin PATH      measure this plug-in\n"
    "  --benchmark_...    options of Google Benchmark, such as --benchmark_filter=mux/null\n";

struct Options {
  std::string json, out, plugin, repetitions = "21";
  bool memoryOnly = false, filtered = false, help = false;
  std::int64_t childPackets = 0;  // not 0: child process that measures memory
  int childSpill = -1;
  int childBlocks = 0;    // not 0: child process that measures the caching writer
  std::string childPath;  // not empty: child process that opens a file
  std::size_t childOpener = 0;
  std::vector<char*> forwarded;  // to Google Benchmark
};

// False for an unknown option or a missing value.
bool Parse(int argc, char** argv, Options& options) {
  for (int i = 1; i < argc; ++i) {
    std::string const name = argv[i];
    int const left = argc - 1 - i;
    if (name == "--json" && left >= 1) {
      options.json = argv[++i];
    } else if (name == "--out" && left >= 1) {
      options.out = argv[++i];
    } else if (name == "--plugin" && left >= 1) {
      options.plugin = argv[++i];
    } else if (name == "--repetitions" && left >= 1) {
      options.repetitions = argv[++i];
    } else if (name == "--memory-child" && left >= 2) {
      options.childPackets = std::atoll(argv[++i]);
      options.childSpill = std::atoi(argv[++i]);
    } else if (name == "--writer-child" && left >= 1) {
      options.childBlocks = std::atoi(argv[++i]);
    } else if (name == "--open-child" && left >= 2) {
      options.childPath = argv[++i];
      options.childOpener = static_cast<std::size_t>(std::atoi(argv[++i]));
    } else if (name == "--memory") {
      options.memoryOnly = true;
    } else if (name == "--help" || name == "-h") {
      options.help = true;
    } else if (name.rfind("--benchmark_", 0) == 0) {
      options.filtered |= name.rfind("--benchmark_filter=", 0) == 0;
      options.forwarded.push_back(argv[i]);
    } else {
      return false;
    }
  }
  return true;
}

// More bytes than the caches of this machine can hold. The system may report the last-level cache
// of many processors, hence the limit.
std::size_t ColdBytes() {
  long const cache = std::max(sysconf(_SC_LEVEL3_CACHE_SIZE), sysconf(_SC_LEVEL2_CACHE_SIZE));
  return static_cast<std::size_t>(std::clamp(2 * cache, 128L << 20, 512L << 20));
}

std::vector<Result> MeasureTime(Options& options, char* program, std::FILE* out) {
  std::string interleave = "--benchmark_enable_random_interleaving=true";
  std::string repetitions = "--benchmark_repetitions=" + options.repetitions;
  std::vector<char*> argv{program, interleave.data(), repetitions.data()};
  argv.insert(argv.end(), options.forwarded.begin(), options.forwarded.end());
  int argc = static_cast<int>(argv.size());
  argv.push_back(nullptr);
  benchmark::Initialize(&argc, argv.data());

  Mix const mix(ColdBytes(), {});
  std::size_t const rounds = std::max<std::size_t>((400 << 20) / mix.Bytes(), 1);
  auto const packets = static_cast<std::int64_t>(rounds * mix.Count());
  std::fprintf(out,
               "%s interleaved repetitions; mux and read: %lld packets, %zu MB; medians of CPU "
               "time, slow: of wall-clock time\n",
               options.repetitions.c_str(), static_cast<long long>(packets),
               rounds * mix.Bytes() / 1000000);
  std::fflush(out);
  auto cases = MuxCases(mix, packets);
  for (Case& c : DemuxCases(packets)) cases.push_back(std::move(c));
  for (Case& c : SlowCases()) cases.push_back(std::move(c));
  for (Case& c : StallCases()) cases.push_back(std::move(c));
  for (Case& c : SyncCases()) cases.push_back(std::move(c));
  for (Case& c : ScanCases(ColdBytes())) cases.push_back(std::move(c));
  for (Case& c : GstCases()) cases.push_back(std::move(c));
  for (Case& c : ToolCases()) cases.push_back(std::move(c));
  return Measure(cases, out);
}

void Run(Options& options, char* program, std::FILE* out) {
  if (options.plugin.empty()) {
    auto const folder = std::filesystem::canonical("/proc/self/exe").parent_path();
    options.plugin = folder / KESTRO_PLUGIN_BUILT / "libpluginavi.so";
  }
  std::string error;
  if (!base::LoadPlugin(options.plugin.c_str(), &error)) throw std::runtime_error(error);
  if (options.childPackets > 0) return MemoryChild(options.childPackets, options.childSpill, out);
  if (options.childBlocks > 0) return WriterChild(options.childBlocks, out);
  if (!options.childPath.empty()) return OpenChild(options.childPath, options.childOpener, out);

  std::vector<Result> results;
  if (!options.memoryOnly) {
    results = MeasureTime(options, program, out);
    std::fprintf(out, "\n");
  }
  if (options.memoryOnly || !options.filtered) {
    auto const memory = MeasureMemory(options.plugin, out);
    results.insert(results.end(), memory.begin(), memory.end());
  }
  if (!options.json.empty()) WriteJson(options.json, results);
  if (!options.out.empty()) WriteReport(options.out, results);
}

}  // namespace
}  // namespace kestro::bench

int main(int argc, char** argv) {
  using namespace kestro::bench;
  Options options;
  if (!Parse(argc, argv, options) || options.help) {
    std::fputs(kUsage, options.help ? stdout : stderr);
    return options.help ? 0 : 2;
  }
  // Hides the plug-in's output, which goes to standard output.
  std::FILE* out = fdopen(dup(STDOUT_FILENO), "w");
  if (out == nullptr || std::freopen("/dev/null", "w", stdout) == nullptr) return 3;
  try {
    Run(options, argv[0], out);
  } catch (std::exception const& e) {
    std::fprintf(stderr, "kestro-bench: %s\n", e.what());
    return 3;
  }
  return std::fclose(out) == 0 ? 0 : 3;
}
