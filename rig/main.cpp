// kestro-rig: builds the states of a disk that a power cut could leave, from the log of its writes,
// and judges the files that are on them. Prints how many states are good, of how many; how many
// promises were kept just when they were made, of how many; and the first fault. Options:
//
//   log, base    the log, and the disk as it was before
//   mode         of the recording; "callback" has a side file
//   states       how many at random, after one at every promise; "end": the log's end only, or,
//                where that is given, a complete file of "least" packets there
//   unit, seed, switches   of the states (Disk.h)
//   make, judge  only makes the states, as DIR/NUMBER.img, or only judges what was copied from them
//                to DIR/NUMBER; else does both with a shell's command, "copy", which is given the
//                variables "image" and "folder"
//   tool, work   kestro-avi, and a folder
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>

#include "rig/Judge.h"
#include "rig/Options.h"
#include "support/Quiet.h"

namespace fs = std::filesystem;

namespace kestro::rig {
namespace {

void Copy(std::string const& command, std::string const& image, std::string const& folder) {
  fs::remove_all(folder);
  fs::create_directories(folder);
  setenv("image", image.c_str(), 1);
  setenv("folder", folder.c_str(), 1);
  // What could not be copied is missed by the judge.
  (void)!std::system(command.c_str());  // NOLINT(cert-env33-c,concurrency-mt-unsafe)
}

std::vector<State> List(Options const& options, WriteLog const& log, States const& states) {
  if (options.Text("states") != "end")
    return states.List(options.Count("states", 0), static_cast<unsigned>(options.Count("seed", 1)),
                       options.Has("switches"));
  std::vector<State> const all = states.List(1, 1, false);
  if (all.empty()) return all;
  State end{log.entries.size(), State::kEverything, all.back().promise};
  end.promise.packets = options.Count("least", end.promise.packets);
  end.promise.closed |= options.Has("least");
  return {end};
}

int Run(Options const& options, std::FILE* out) {
  WriteLog log;
  Disk base;
  if (!log.Load(options.Text("log")) || !base.Load(options.Text("base"))) return 2;
  States states(log, std::move(base), options.Count("unit", 512));
  std::string const work = options.Text("work"), made = options.Text("make");
  std::vector<State> const list = List(options, log, states);
  constexpr int kUnsynced = 1000;  // packets, at the most, after the last promise
  int const longest = list.empty() ? 0 : list.back().promise.packets + kUnsynced;
  Judge judge(options.Text("tool"), work, options.Text("mode") == "callback", longest);
  int good = 0, all = 0, promises = 0, kept = 0;
  std::string first;
  for (State const& state : list) {
    std::string const number = "/" + std::to_string(++all);
    std::string image = made + number + ".img", folder = options.Text("judge") + number;
    if (!options.Has("judge")) {
      if (made.empty()) image = work + "/state.img", folder = work + "/files";
      if (!states.Build(state).Save(image)) return 2;
      if (!made.empty()) continue;
      Copy(options.Text("copy"), image, folder);
    }
    std::string const faults =
        judge.Faults(folder, state.promise, state.fresh || options.Text("states") == "end");
    good += faults.empty();
    promises += state.fresh;
    kept += state.fresh && faults.empty();
    if (faults.empty() || !first.empty()) continue;
    first = "state " + std::to_string(all) + ", " + state.Text() + ": " + faults;
    std::error_code ignored;
    fs::rename(image, work + "/fault.img", ignored);
  }
  if (made.empty()) std::fprintf(out, "%d %d %d %d %s\n", good, all, kept, promises, first.c_str());
  return all == 0 ? 2 : 0;
}

}  // namespace
}  // namespace kestro::rig

int main(int argc, char** argv) {
  std::FILE* const out = fdopen(dup(1), "w");
  if (out == nullptr || !kestro::test::Quiet()) return 2;
  int const code = kestro::rig::Run({argc, argv}, out);
  if (code == 2) std::fprintf(stderr, "kestro-rig: no states, or a file cannot be used\n");
  std::fclose(out);
  return code;
}
