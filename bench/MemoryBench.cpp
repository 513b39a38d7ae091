#include "MemoryBench.h"

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <thread>

#include "DemuxBench.h"
#include "Recorder.h"
#include "base/File.h"
#include "base/IOCacheWriter.h"

namespace kestro::bench {

namespace {

constexpr int kSpillSeconds = 10;
constexpr int kBlock = 512 << 10;  // as the muxer's

// Slower than the caller, so that all blocks are in use.
struct BusyIO : NullIO {
  unsigned Write(void const* data, unsigned size) override {
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
    return NullIO::Write(data, size);
  }
};

// A temporary folder, which the destructor removes.
struct ScratchFolder {
  std::string path = (std::filesystem::temp_directory_path() / "kestro-bench-XXXXXX").string();
  ScratchFolder() { Require(mkdtemp(path.data()) != nullptr, "cannot make a temporary folder"); }
  ~ScratchFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path, ignored);
  }
};

// A value of the process's status, such as "VmHWM:", in KiB.
std::int64_t StatusKiB(std::string const& field, char const* file = "/proc/self/status") {
  std::ifstream status(file);
  std::string name;
  std::int64_t kib = 0;
  while (status >> name && name != field) status.ignore(1024, '\n');
  status >> kib;
  Require(kib > 0, "cannot read the process's status");
  return kib;
}

// Runs this program with the arguments and returns the number that it prints.
double RunSelf(std::vector<std::string> arguments) {
  arguments.insert(arguments.begin(), "/proc/self/exe");
  std::vector<char*> argv;
  argv.reserve(arguments.size() + 1);
  for (std::string& argument : arguments) argv.push_back(argument.data());
  argv.push_back(nullptr);
  int ends[2];
  Require(pipe(ends) == 0, "no pipe");
  pid_t const child = fork();
  Require(child >= 0, "no process");
  if (child == 0) {
    dup2(ends[1], STDOUT_FILENO);
    close(ends[0]);
    close(ends[1]);
    execv(argv[0], argv.data());
    _exit(127);
  }
  close(ends[1]);
  std::string text;
  char part[256];
  for (ssize_t n; (n = read(ends[0], part, sizeof part)) > 0;)
    text.append(part, static_cast<std::size_t>(n));
  close(ends[0]);
  int status = 0;
  waitpid(child, &status, 0);
  Require(WIFEXITED(status) && WEXITSTATUS(status) == 0, "the memory measurement failed");
  return std::stod(text);
}

}  // namespace

void MemoryChild(std::int64_t packets, int spillSeconds, std::FILE* out) {
  ScratchFolder folder;
  base::File::TemporaryFolder(folder.path.c_str());
  Mix const mix(1, {64, 64, 64});
  NullIO null;
  Recorder recorder(mix, null);
  if (spillSeconds >= 0) recorder.Set("listfile", spillSeconds);
  recorder.Start();
  mix.Play(packets, [&](Mix::Unit const& unit, std::size_t, std::int64_t number) {
    recorder.Push(unit, number);
  });
  std::fprintf(out, "%lld\n", static_cast<long long>(StatusKiB("VmRSS:")));
  recorder.Close();
}

void WriterChild(int blocks, std::FILE* out) {
  // Exact, while "status" is delayed; and without the pages of the program itself.
  auto const resident = [] { return StatusKiB("Anonymous:", "/proc/self/smaps_rollup"); };
  constexpr int kPiece = 32 << 10;
  std::vector<char> const piece(kPiece, 'x');
  BusyIO target;
  base::IOCacheWriter writer(&target, kBlock, blocks);
  std::int64_t const before = resident();
  for (int i = 0; i < 8 * kBlock / kPiece * blocks; ++i)
    Require(writer.Write(piece.data(), kPiece) == kPiece, "the writer fails");
  std::int64_t most = resident();
  for (int i = 0; i < 2; ++i) {  // the most patches that it collects
    writer.Seek(std::int64_t{2} * i * kPiece, base::IO::kBegin);
    Require(writer.Write(piece.data(), kPiece) == kPiece, "the writer fails");
    most = std::max(most, resident());
  }
  std::fprintf(out, "%lld\n", static_cast<long long>(most - before));
}

void OpenChild(std::string const& path, std::size_t opener, std::FILE* out) {
  auto const openers = Openers(std::make_shared<Recording>(path));
  Stopwatch watch;
  std::int64_t const before = StatusKiB("VmRSS:");
  openers.at(opener).run(watch);
  std::fprintf(out, "%lld\n", static_cast<long long>(StatusKiB("VmHWM:") - before));
}

namespace {

std::vector<Result> MeasureRecording(std::string const& plugin, std::FILE* out) {
  struct Row {
    char const *name, *text;
    int spill;
  };
  struct Column {
    char const* name;
    std::int64_t packets;
  };
  Column const columns[] = {{"1e5", 100000}, {"2e6", 2000000}};
  std::fprintf(out, "%-34s %12s %12s\n", "memory before close, KiB", "1e5 packets", "2e6 packets");
  std::vector<Result> results;
  for (Row const& row : {Row{"spill", "index spilled every 10 s", kSpillSeconds},
                         Row{"plain", "index in memory", -1}}) {
    std::fprintf(out, "%-34s", row.text);
    for (Column const& column : columns) {
      double const kib = RunSelf({"--plugin", plugin, "--memory-child",
                                  std::to_string(column.packets), std::to_string(row.spill)});
      results.push_back({std::string("memory/") + row.name + "_" + column.name, kib, "KiB"});
      std::fprintf(out, " %12.0f", kib);
    }
    std::fprintf(out, "\n");
  }
  // Compare the rows: each has two columns.
  for (std::size_t i = 0; i < 4; ++i)
    results[i].baselines = {{i < 2 ? "plain" : "spill", results[(i + 2) % 4].value}};
  return results;
}

Result MeasureOpening(std::string const& plugin, std::FILE* out) {
  auto const file = OpenRecording();
  auto const openers = Openers(file);
  Result result{"demux/open_memory", 0, "KiB"};
  std::fprintf(out, "%-34s %12s %12s\n", "peak of opening 1e6 packets, KiB", "", "ours/it");
  for (std::size_t i = 0; i < openers.size(); ++i) {
    double const kib =
        RunSelf({"--plugin", plugin, "--open-child", file->Path(), std::to_string(i)});
    std::fprintf(out, "%-34s %12.0f", openers[i].name.c_str(), kib);
    if (i == 0) {
      result.value = kib;
    } else {
      result.baselines.push_back({openers[i].name, kib});
      std::fprintf(out, " %12.3f", result.value / kib);
    }
    std::fprintf(out, "\n");
  }
  return result;
}

std::vector<Result> MeasureWriter(std::string const& plugin, std::FILE* out) {
  std::fprintf(out, "%-34s %12s %12s\n", "caching writer at most, KiB", "used", "allowed");
  std::vector<Result> results;
  for (int blocks : {3, 8}) {
    std::string const count = std::to_string(blocks);
    double const kib = RunSelf({"--plugin", plugin, "--writer-child", count});
    double const allowed = blocks * (kBlock >> 10) + 64;
    std::fprintf(out, "%-34s %12.0f %12.0f\n", (count + " blocks of 512 KiB").c_str(), kib,
                 allowed);
    results.push_back({"memory/writer_" + count, kib, "KiB", {{"allowed", allowed}}});
  }
  return results;
}

}  // namespace

std::vector<Result> MeasureMemory(std::string const& plugin, std::FILE* out) {
  auto results = MeasureRecording(plugin, out);
  std::fprintf(out, "\n");
  for (Result& result : MeasureWriter(plugin, out)) results.push_back(std::move(result));
  std::fprintf(out, "\n");
  results.push_back(MeasureOpening(plugin, out));
  return results;
}

}  // namespace kestro::bench
