#include "ScanBench.h"

#include <cstring>
#include <memory>
#include <random>

#include "common/StartCode.h"

namespace kestro::bench {

namespace {

using Memory = std::shared_ptr<std::vector<unsigned char>>;

constexpr int kFrame = 34 << 10;
constexpr int kLarge = 4 << 20;
constexpr unsigned char kAbsent = 0xFF;

// Random bytes, so many in four of them zero, without a start code and without the absent byte.
Memory Fill(std::size_t bytes, unsigned zeros) {
  auto memory = std::make_shared<std::vector<unsigned char>>(bytes);
  std::mt19937 random(1);
  int run = 0;  // of zero bytes
  for (unsigned char& byte : *memory) {
    auto const value = random();
    byte = value % 4 < zeros ? 0 : static_cast<unsigned char>((value >> 8) % kAbsent);
    if (run >= 3 && byte == 1) byte = 0x80;
    run = byte == 0 ? run + 1 : 0;
  }
  return memory;
}

bool Scan(unsigned char const* data, int size) {
  return plugin::avi::FindStartCode(data, size, 0) >= 0;
}

bool Memchr(unsigned char const* data, int size) {
  return std::memchr(data, kAbsent, static_cast<std::size_t>(size)) != nullptr;
}

// Goes over the frames that begin one behind the other, each `size` bytes long: they may overlap.
template <bool (*find)(unsigned char const*, int)>
Contender Over(char const* name, Memory const& memory, int size, bool found) {
  return {name, [memory, size, found](Stopwatch& watch) {
            std::size_t as = 0, frames = 0;
            watch.Start();
            for (std::size_t at = 0; at + kLarge <= memory->size(); at += kFrame, ++frames)
              as += find(memory->data() + at, size) == found;
            watch.Stop();
            Require(as == frames, "start codes are missed, or found where there are none");
          }};
}

}  // namespace

std::vector<Case> ScanCases(std::size_t bytes) {
  auto const packets = static_cast<std::int64_t>((bytes - kLarge) / kFrame + 1);
  double const perGB = 1e9 / (static_cast<double>(packets) * kFrame);
  std::vector<Case> cases;
  for (auto const& [name, zeros] : {std::pair{"scan/random", 0u}, std::pair{"scan/zeros", 3u}}) {
    Memory const memory = Fill(bytes, zeros);
    cases.push_back({name,
                     "s/GB",
                     perGB,
                     packets,
                     {Over<Scan>("ours", memory, kFrame, false),
                      Over<Memchr>("memchr", memory, kFrame, false)}});
  }
  Memory const coded = Fill(bytes, 0);
  for (std::size_t at = 0; at + kLarge <= bytes; at += kFrame)
    std::memcpy(coded->data() + at, "\0\0\0\1", 4);
  cases.push_back({"scan/first",
                   "ns",
                   1e9 / static_cast<double>(packets),
                   packets,
                   {Over<Scan>("ours, 4 MiB", coded, kLarge, true),
                    Over<Scan>("34 KiB", coded, kFrame, true)}});
  return cases;
}

}  // namespace kestro::bench
