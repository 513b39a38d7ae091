#include "avi/HeadCopy.h"

#include <algorithm>
#include <cstring>

#include "avi/SlotFile.h"
#include "base/LittleEndian.h"

namespace kestro::avi {

static constexpr char kMagic[] = "kestroHC";
static constexpr unsigned kLargest = 1 << 20;

std::string Words(std::initializer_list<std::uint64_t> values) {
  std::string bytes(values.size() * 4, '\0');
  auto* at = reinterpret_cast<unsigned char*>(bytes.data());
  for (std::uint64_t value : values) at = base::Store32(at, static_cast<unsigned>(value));
  return bytes;
}

std::string HeadCopy::Compose(std::string const& head, HeadPlaces const& places) {
  std::string const rest = Words({places.data, places.entries, places.reserve, places.junk}) + head;
  return std::string(kMagic) + Words({16 + rest.size(), Crc32(rest.data(), rest.size())}) + rest;
}

std::optional<HeadCopy> HeadCopy::Find(RiffReader& file, int64 from, int64 to) {
  to = std::min(std::min(to, file.Size()), int64{32} << 20);
  unsigned char front[16];
  for (int64 at = (from + kSector - 1) / kSector * kSector; at < to; at += kSector) {
    if (file.Read(at, front, 16) != 16 || std::memcmp(front, kMagic, 8) != 0) continue;
    unsigned const size = base::Load32(front + 8);
    if (size < kFront || size > kLargest || size > file.Size() - at) continue;
    std::string rest(size - 16, '\0');
    if (file.Read(at + 16, rest.data(), size - 16) != size - 16 ||
        Crc32(rest.data(), rest.size()) != base::Load32(front + 12))
      continue;
    auto const word = [&rest](std::size_t i) {
      return base::Load32(reinterpret_cast<unsigned char const*>(rest.data()) + i * 4);
    };
    if (word(3) > file.Size()) continue;
    return HeadCopy{{word(0), word(1), word(2), word(3)}, at, rest.substr(kFront - 16)};
  }
  return std::nullopt;
}

}  // namespace kestro::avi
