#include "stream/NalUnits.h"

#include <cstring>

namespace kestro::stream {

// The offset of the next 00 00 01 at or after `from`; `size` if there is none.
static std::size_t NextCode(std::uint8_t const* data, std::size_t size, std::size_t from) {
  for (std::size_t i = from + 2; i < size; ++i) {
    auto const* one = static_cast<std::uint8_t const*>(std::memchr(data + i, 1, size - i));
    if (one == nullptr) break;
    i = static_cast<std::size_t>(one - data);
    if (data[i - 1] == 0 && data[i - 2] == 0) return i - 2;
  }
  return size;
}

std::vector<std::uint8_t> ParameterSets(bool hevc, std::uint8_t const* data, std::size_t size) {
  std::vector<std::uint8_t> sets;
  unsigned missing = hevc ? 7 : 3;
  for (std::size_t at = NextCode(data, size, 0), next; at + 3 < size; at = next) {
    next = NextCode(data, size, at + 3);
    int const type = hevc ? data[at + 3] >> 1 & 0x3F : data[at + 3] & 0x1F;
    bool const slice = hevc ? type < 32 : type >= 1 && type <= 5;
    if (slice) break;
    int const kind = hevc ? type - 32 : type - 7;
    if (kind < 0 || kind > (hevc ? 2 : 1)) continue;
    missing &= ~(1u << kind);
    std::size_t end = next;
    while (next < size && end > at + 4 && data[end - 1] == 0) --end;
    sets.insert(sets.end(), {0, 0, 0, 1});
    sets.insert(sets.end(), data + at + 3, data + end);
  }
  if (missing != 0) sets.clear();
  return sets;
}

}  // namespace kestro::stream
