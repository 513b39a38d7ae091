#include "rig/Judge.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "base/File.h"
#include "repair/Repair.h"

namespace fs = std::filesystem;

namespace kestro::rig {

std::string Judge::Faults(std::string const& folder, Promise const& promise, bool withTool) {
  int const perFile = promise.perFile != 0 ? promise.perFile : _longest;
  std::string faults;
  for (int begin = 0; begin < promise.packets; begin += perFile) {
    auto const key = std::make_pair(begin, promise.scale);
    auto const [expected, missing] = _expected.try_emplace(key);
    if (missing) expected->second = Film{promise.scale}.Expected(begin, begin + perFile);
    bool const closed = begin + perFile <= promise.packets || promise.closed != 0;
    std::string const number = promise.perFile != 0 ? "-" + std::to_string(begin / perFile) : "";
    faults += File(folder + "/a" + number + ".avi", expected->second, promise.packets,
                   closed || !_callback, withTool);
  }
  return faults;
}

std::string Judge::File(std::string const& path, crash::Recorded const& expected, int64 promised,
                        bool plays, bool withTool) {
  std::size_t here = 0;  // promised packets
  for (auto const& track : expected.tracks)
    for (auto const& sample : track) here += sample.number < promised;
  std::string readable;
  if (std::getline(std::ifstream(path + ".readable"), readable))
    setenv("RIG_READABLE", (path + ":" + readable).c_str(), 1);
  std::string const played = Play(path, expected, promised, false);
  std::string faults = plays ? played : "";
  if (plays && (withTool || !readable.empty())) faults += ToolPlays(path, here);
  // A complete file needs no side file.
  faults += Repair(path, expected, promised, plays || played.empty() ? 0 : here);
  unsetenv("RIG_READABLE");
  return faults.empty() ? "" : fs::path(path).filename().string() + faults + " ";
}

std::string Judge::Play(std::string const& path, crash::Recorded const& expected, int64 promised,
                        bool repaired) {
  base::FileIO io(path.c_str(), "rb");
  if (!io.Opened()) return "; cannot be opened";
  crash::Verdict const verdict = crash::Judge(expected).Deliver(io, promised);
  // A repair also finds packets whose content was never stored.
  if (verdict.opened && verdict.lost == 0 && (repaired || verdict.Good())) return {};
  return std::string(repaired ? "; repaired: " : "; played: ") +
         (verdict.opened ? "" : "not opened, ") + std::to_string(verdict.lost) + " lost, " +
         std::to_string(verdict.alien) + " alien, " + std::to_string(verdict.late) + " late";
}

// `indexed`: how many packets the index must name, that of the side file or of a file being closed.
std::string Judge::Repair(std::string const& path, crash::Recorded const& expected, int64 promised,
                          std::size_t indexed) try {
  tool::RepairJob job;
  job.input = path;
  job.output = _scratch + "/whole.avi";
  job.force = true;
  tool::RepairReport const report = tool::Repair(job);
  std::string faults = Play(job.output, expected, promised, true);
  if (report.counts.indexed < indexed) faults += "; no index has all that was promised";
  return faults;
} catch (std::exception const& error) {
  return std::string("; repair: ") + error.what();
}

// The tool must play all that was promised.
std::string Judge::ToolPlays(std::string const& path, std::size_t packets) const {
  std::string const command = "LD_PRELOAD=" RIG_UNREADABLE " " + _tool + " play --json " + path +
                              " 2>" + _scratch + "/play.txt | wc -l";
  std::FILE* const lines = popen(command.c_str(), "r");  // NOLINT(cert-env33-c)
  std::size_t count = 0;
  if (lines == nullptr || std::fscanf(lines, "%zu", &count) != 1) count = 0;
  if (lines != nullptr) pclose(lines);
  if (count >= packets) return {};
  return "; the tool plays " + std::to_string(count) + " of " + std::to_string(packets);
}

}  // namespace kestro::rig
