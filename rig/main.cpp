// kestro-rig: builds the states of a disk that a power cut could leave, from the log of its writes,
// and judges the files that are on them. Options are NAME=VALUE:
//
//   log, base    the log, and the disk as it was before
//   mode         of the recording; "callback" has a side file
//   states       how many at random, after one at every promise; "end": the log's end only,
//                where a complete file of "least" packets is expected
//   unit, seed, switches   of the states (Disk.h)
//   make, judge  makes the states only, as DIR/NUMBER.img, or judges only what was copied from them
//                to DIR/NUMBER; else does both with a shell's command, "copy", given IMAGE FOLDER
//   tool, work   kestro-avi, and a folder
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <map>

#include "rig/Judge.h"
#include "support/Quiet.h"

namespace fs = std::filesystem;

namespace kestro::rig {
namespace {

class Options {
 public:
  Options(int argc, char** argv) {
    for (int i = 1; i < argc; ++i) {
      std::string const text = argv[i];
      _values[text.substr(0, text.find('='))] = text.substr(text.find('=') + 1);
    }
  }
  bool Has(char const* name) const { return _values.count(name) != 0; }
  std::string operator[](char const* name) const { return Has(name) ? _values.at(name) : ""; }
  int Number(char const* name, int otherwise) const {
    return Has(name) ? std::atoi(_values.at(name).c_str()) : otherwise;
  }

 private:
  std::map<std::string, std::string> _values;
};

int Copy(std::string const& command, std::string const& image, std::string const& folder) {
  fs::remove_all(folder);
  fs::create_directories(folder);
  std::string const line = "( " + command + " )";
  setenv("image", image.c_str(), 1);
  setenv("folder", folder.c_str(), 1);
  return std::system(line.c_str());  // NOLINT(cert-env33-c,concurrency-mt-unsafe)
}

int Run(Options const& options, std::FILE* out) {
  WriteLog log;
  Disk base;
  if (!log.Load(options["log"]) || !base.Load(options["base"])) return 2;
  States states(log, std::move(base), options.Number("unit", 512));
  std::vector<State> list =
      states.List(options.Number("states", 0), static_cast<unsigned>(options.Number("seed", 1)),
                  options.Has("switches"));
  if (options["states"] == "end") {
    list = states.List(1, 1, false);
    list = {{log.entries.size(), State::kEverything, list.back().promise}};
    list[0].promise.packets = options.Number("least", list[0].promise.packets);
    list[0].promise.closed |= options.Has("least");
  }
  Judge judge(options["tool"], options["work"], options["mode"] == "callback");
  int good = 0, promises = 0, kept = 0, number = 0;
  std::string first;
  for (State const& state : list) {
    std::string const name = std::to_string(++number), given = options["judge"] + options["make"];
    std::string const folder =
        options.Has("judge") ? given + "/" + name : options["work"] + "/files";
    std::string const image =
        given.empty() ? options["work"] + "/state.img" : given + "/" + name + ".img";
    if (!options.Has("judge") && !states.Build(state).Save(image)) return 2;
    if (options.Has("make")) continue;
    if (!options.Has("judge")) Copy(options["copy"], image, folder);
    std::string const faults = judge.Faults(folder, state.promise, state.fresh || list.size() == 1);
    good += faults.empty();
    promises += state.fresh;
    kept += state.fresh && faults.empty();
    if (first.empty() && !faults.empty()) {
      first = "state " + name + ", " + state.Text() + ": " + faults;
      std::error_code ignored;
      fs::rename(image, options["work"] + "/fault.img", ignored);
    }
  }
  if (options.Has("make")) return 0;
  std::fprintf(out, "%d %d %d %d %s\n", good, static_cast<int>(list.size()), kept, promises,
               first.c_str());
  return good == static_cast<int>(list.size()) && good > 0 ? 0 : 1;
}

}  // namespace
}  // namespace kestro::rig

int main(int argc, char** argv) {
  kestro::rig::Options const options(argc, argv);
  std::FILE* const out = fdopen(dup(1), "w");
  if (out == nullptr || !kestro::test::Quiet()) return 2;
  int const code = kestro::rig::Run(options, out);
  if (code == 2) std::fprintf(stderr, "kestro-rig: a file cannot be read or written\n");
  std::fclose(out);
  return code;
}
