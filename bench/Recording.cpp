#include "Recording.h"

#include <unistd.h>

#include <array>
#include <filesystem>
#include <fstream>

#include "Bench.h"
#include "Recorder.h"

namespace kestro::bench {

namespace {

// The next little-endian integers of a file.
template <std::size_t count>
std::array<std::uint32_t, count> Words(std::istream& file) {
  unsigned char bytes[4 * count];
  file.read(reinterpret_cast<char*>(bytes), sizeof bytes);
  std::array<std::uint32_t, count> words{};
  for (std::size_t i = 0; i < sizeof bytes; ++i)
    words[i / 4] |= static_cast<std::uint32_t>(bytes[i]) << (i % 4 * 8);
  return words;
}

}  // namespace

static std::string PathIn(char const* folder, char const* name) {
  std::string const found =
      access(folder, W_OK) == 0 ? folder : std::filesystem::temp_directory_path().string();
  return found + "/kestro-bench-" + std::to_string(getpid()) + "-" + name + ".avi";
}

std::string TmpfsPath(char const* name) { return PathIn("/dev/shm", name); }

std::string DiskPath(char const* name) { return PathIn("/var/tmp", name); }

Recording::~Recording() {
  if (_recorded) unlink(_path.c_str());
}

std::string const& Recording::Path() {
  if (_recorded || _packets == 0) return _path;
  _recorded = true;
  Mix const mix(1, _sizes);
  Recorder recorder(mix, _path.c_str());
  recorder.Start();
  mix.Play(_packets, [&](Mix::Unit const& unit, std::size_t, std::int64_t number) {
    recorder.Push(unit, number);
  });
  recorder.Close();
  return _path;
}

std::vector<Recording::Chunk> Recording::Chunks() {
  constexpr std::uint32_t kIndex = 'i' | 'd' << 8 | 'x' << 16 | '1' << 24;
  std::ifstream file(Path(), std::ios::binary);
  file.seekg(12);  // after RIFF, its size and AVI
  auto head = Words<2>(file);
  for (; file && head[0] != kIndex; head = Words<2>(file))
    file.seekg(head[1] + head[1] % 2, std::ios::cur);
  std::vector<Chunk> chunks;
  for (std::uint32_t left = file ? head[1] / 16 : 0; left > 0; --left) {
    auto const [id, flags, at, bytes] = Words<4>(file);
    if (id == 0) break;  // unused reserved space
    chunks.push_back({std::int64_t{at} + 8, bytes});
  }
  bool const whole = _packets == 0 || static_cast<std::int64_t>(chunks.size()) == _packets;
  Require(file && whole, "the index is incomplete");
  return chunks;
}

}  // namespace kestro::bench
