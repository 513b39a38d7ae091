#include "rig/Judge.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>

namespace kestro::rig {

namespace {

constexpr int kLongest = 12000;  // packets of a file

// A copied file, whose end could perhaps not be read.
class CopiedIO : public test::MemoryIO {
 public:
  CopiedIO(std::string const& path, int64 readable) : _readable(readable) {
    std::ifstream file(path, std::ios::binary);
    bytes.assign(std::istreambuf_iterator<char>(file), {});
  }
  unsigned Read(void* data, unsigned size) override {
    if (position + size <= _readable || position >= Size()) return MemoryIO::Read(data, size);
    if (position >= _readable) return kFailed;
    return MemoryIO::Read(data, static_cast<unsigned>(_readable - position));
  }
  int Error() override { return position >= _readable ? EIO : 0; }

 private:
  int64 const _readable;
};

int64 Readable(std::string const& path) {
  std::ifstream file(path + ".readable");
  int64 bytes = LLONG_MAX;
  file >> bytes;
  return bytes;
}

}  // namespace

std::string Judge::Faults(std::string const& folder, Promise const& promise) {
  int const perFile = promise.perFile != 0 ? promise.perFile : kLongest;
  std::string faults;
  for (int begin = 0; begin < promise.packets; begin += perFile) {
    auto const key = std::make_pair(begin, promise.scale);
    if (_expected.count(key) == 0)
      _expected[key] = Film{promise.scale}.Expected(begin, begin + perFile);
    bool const closed = begin + perFile <= promise.packets ||
                        (begin + perFile > promise.packets && promise.closed != 0);
    faults += File(folder + "/a" +
                       (promise.perFile != 0 ? "-" + std::to_string(begin / perFile) : "") + ".avi",
                   _expected[key], promise.packets, closed || !_callback);
  }
  return faults;
}

std::string Judge::File(std::string const& path, crash::Recorded const& expected, int64 promised,
                        bool plays) {
  int64 const readable = Readable(path);
  std::size_t here = 0;  // promised packets
  for (auto const& track : expected.tracks)
    for (auto const& sample : track) here += sample.number < promised;
  std::string faults;
  if (plays) {
    faults = Play(path, readable, expected, promised, false);
    if (!faults.empty()) faults = "; play: " + faults;
    faults += ToolPlays(path, readable, here);
  }
  std::string const whole = _scratch + "/whole.avi";
  std::filesystem::remove(whole);
  std::string const command =
      _tool + " repair --force " + path + " -o " + whole + " >" + _scratch + "/repair.txt 2>&1";
  int const code = std::system(command.c_str());  // NOLINT(cert-env33-c,concurrency-mt-unsafe)
  std::string const repaired = Play(whole, LLONG_MAX, expected, promised, true);
  if (!repaired.empty()) faults += "; repair (" + std::to_string(code / 256) + "): " + repaired;
  if (!plays) {
    // Without it a repair may find all the same what is promised.
    std::ifstream file(_scratch + "/repair.txt");
    std::string const report{std::istreambuf_iterator<char>(file), {}};
    std::size_t const at = report.find("\"indexed\": ");
    bool const used = report.find("\"source\": \"image\"") != report.npos && at != report.npos;
    if (!used || std::strtoull(report.c_str() + at + 11, nullptr, 10) < here)
      faults += "; the side file does not have all that was promised";
  }
  return faults.empty() ? "" : std::filesystem::path(path).filename().string() + faults + " ";
}

std::string Judge::Play(std::string const& path, int64 readable, crash::Recorded const& expected,
                        int64 promised, bool repaired) {
  CopiedIO io(path, readable);
  crash::Verdict const verdict = crash::Judge(expected).Play(io, nullptr, promised);
  // A repair also finds packets whose content never was stored.
  if (verdict.opened && verdict.lost == 0 && (repaired || verdict.Good())) return {};
  return (verdict.opened ? "lost " : "not opened, lost ") + std::to_string(verdict.lost) +
         ", alien " + std::to_string(verdict.alien) + ", late " + std::to_string(verdict.late);
}

// The tool's own verb lists all that was promised.
std::string Judge::ToolPlays(std::string const& path, int64 readable, std::size_t packets) const {
  std::string command = _tool + " play --json " + path + " 2>" + _scratch + "/play.txt | wc -l";
  if (readable != LLONG_MAX)
    command = "RIG_READABLE=" + path + ":" + std::to_string(readable) +
              " LD_PRELOAD=${0%/*}/libkestro-rig-unreadable.so " + command;
  std::FILE* const lines = popen(command.c_str(), "r");  // NOLINT(cert-env33-c)
  std::size_t count = 0;
  if (lines == nullptr || std::fscanf(lines, "%zu", &count) != 1) count = 0;
  if (lines != nullptr) pclose(lines);
  if (count >= packets) return {};
  return "; the tool plays " + std::to_string(count) + " of " + std::to_string(packets);
}

}  // namespace kestro::rig
