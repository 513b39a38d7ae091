#include "MemoryBench.h"

#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "Recorder.h"
#include "base/File.h"

namespace kestro::bench {

namespace {

constexpr int kSpillSeconds = 10;

// A folder that goes away with the object.
struct ScratchFolder {
  std::string path = (std::filesystem::temp_directory_path() / "kestro-bench-XXXXXX").string();
  ScratchFolder() { Require(mkdtemp(path.data()) != nullptr, "cannot make a temporary folder"); }
  ~ScratchFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path, ignored);
  }
};

std::int64_t ResidentKiB() {
  std::int64_t total = 0, resident = 0;
  std::ifstream("/proc/self/statm") >> total >> resident;
  Require(resident > 0, "cannot read the resident memory");
  return resident * sysconf(_SC_PAGESIZE) / 1024;
}

// What this program prints when it is run with these arguments.
std::string OutputOfSelf(std::vector<std::string> arguments) {
  arguments.insert(arguments.begin(), "/proc/self/exe");
  std::vector<char*> argv;
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
  return text;
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
  std::fprintf(out, "%lld\n", static_cast<long long>(ResidentKiB()));
  recorder.Close();
}

std::vector<Result> MeasureMemory(std::string const& plugin, std::FILE* out) {
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
      double const kib =
          std::stod(OutputOfSelf({"--plugin", plugin, "--memory-child",
                                  std::to_string(column.packets), std::to_string(row.spill)}));
      results.push_back({std::string("memory/") + row.name + "_" + column.name, kib, "KiB", {}});
      std::fprintf(out, " %12.0f", kib);
    }
    std::fprintf(out, "\n");
  }
  return results;
}

}  // namespace kestro::bench
