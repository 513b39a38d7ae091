#include "ScanBench.h"

#include <cstring>
#include <memory>

#include "Mix.h"
#include "stream/NalUnits.h"

namespace kestro::bench {

namespace {

constexpr int kFrame = 34 << 10;
constexpr int kLarge = 4 << 20;
constexpr unsigned char kAbsent = 0xFF;

// Random bytes without kAbsent; `zeros` of four are zero. If `coded`, every frame begins with a
// start code, else there are none. Created by the first call of Data.
struct Noise {
  std::size_t size;
  unsigned zeros;
  bool coded;
  std::vector<unsigned char> bytes = {};

  unsigned char const* Data() {
    if (!bytes.empty()) return bytes.data();
    bytes.resize(size);
    Random random;
    int run = 0;  // number of zero bytes
    for (unsigned char& byte : bytes) {
      auto const value = static_cast<std::uint32_t>(random());
      byte = value % 4 < zeros ? 0 : static_cast<unsigned char>((value >> 8) % kAbsent);
      if (run >= 3 && byte == 1) byte = 0x80;
      run = byte == 0 ? run + 1 : 0;
    }
    for (std::size_t at = 0; coded && at + kLarge <= size; at += kFrame)
      std::memcpy(&bytes[at], "\0\0\0\1", 4);
    return bytes.data();
  }
};
using Memory = std::shared_ptr<Noise>;

bool Scan(unsigned char const* data, int size) {
  auto const end = static_cast<std::size_t>(size);
  return stream::FindStartCode<stream::LongCodes>(data, end, 0) != end;
}

bool Memchr(unsigned char const* data, int size) {
  return std::memchr(data, kAbsent, static_cast<std::size_t>(size)) != nullptr;
}

// Searches frames that begin kFrame bytes apart; longer ones overlap.
template <bool (*find)(unsigned char const*, int)>
Contender Over(char const* name, Memory const& memory, int size, bool found) {
  return {name, [memory, size, found](Stopwatch& watch) {
            std::size_t as = 0, frames = 0;
            auto const* const data = memory->Data();
            watch.Start();
            for (std::size_t at = 0; at + kLarge <= memory->size; at += kFrame, ++frames)
              as += find(data + at, size) == found;
            watch.Stop();
            Require(as == frames, "start codes were missed, or found where there are none");
          }};
}

}  // namespace

std::vector<Case> ScanCases(std::size_t bytes) {
  auto const packets = static_cast<std::int64_t>((bytes - kLarge) / kFrame + 1);
  double const perGB = 1e9 / (static_cast<double>(packets) * kFrame);
  std::vector<Case> cases;
  for (auto const& [name, zeros] : {std::pair{"scan/random", 0u}, std::pair{"scan/zeros", 3u}}) {
    Memory const memory(new Noise{bytes, zeros, false});
    cases.push_back({name,
                     "s/GB",
                     perGB,
                     packets,
                     {Over<Scan>("ours", memory, kFrame, false),
                      Over<Memchr>("memchr", memory, kFrame, false)}});
  }
  Memory const coded(new Noise{bytes, 0, true});
  cases.push_back({"scan/first",
                   "ns",
                   1e9 / static_cast<double>(packets),
                   packets,
                   {Over<Scan>("ours, 4 MiB", coded, kLarge, true),
                    Over<Scan>("34 KiB", coded, kFrame, true)}});
  return cases;
}

}  // namespace kestro::bench
