// Start codes of Annex B byte streams.
#pragma once

#include <cstddef>
#include <cstring>

namespace kestro::plugin::avi {

// Whether a start code 00 00 00 01 begins at one of the next kStartCodeBlock bytes; three bytes
// behind them are read too. A code leaves a zero byte in `off`. One loop over words without
// branches: the same speed whatever the bytes are, and compilers make vector code of it.
constexpr int kStartCodeBlock = 256;
inline bool HasStartCode(unsigned char const* block) {
  using Word = std::size_t;
  constexpr Word ones = ~Word{0} / 0xFF, highs = ones << 7;
  auto const load = [](unsigned char const* from) {
    Word word;
    std::memcpy(&word, from, sizeof word);
    return word;
  };
  Word zeros = 0;
  for (int i = 0; i < kStartCodeBlock; i += static_cast<int>(sizeof(Word))) {
    auto const* at = block + i;
    Word const off = load(at) | load(at + 1) | load(at + 2) | (load(at + 3) ^ ones);
    zeros |= (off - ones) & ~off;
  }
  return (zeros & highs) != 0;
}

// The first position of [from, end) where a start code begins, or its end.
inline int PassToStartCode(unsigned char const* data, int from, int end) {
  while (from < end && std::memcmp(data + from, "\0\0\0\1", 4) != 0) ++from;
  return from;
}

// The position of the first start code at or behind `from`, -1 when fewer than six bytes are left
// at it: four of the code, and two so that a NAL header can be looked at.
inline int FindStartCode(unsigned char const* data, int size, int from) {
  int const end = size - 5;
  // Most are near: at the beginning of a packet, or behind a unit of a few bytes.
  int const near = end - from > 8 ? from + 8 : end;
  from = PassToStartCode(data, from, near);
  if (from < near) return from;
  while (end - from >= kStartCodeBlock && !HasStartCode(data + from)) from += kStartCodeBlock;
  from = PassToStartCode(data, from, end);
  return from < end ? from : -1;
}

// The position of the first start code whose NAL header byte satisfies the predicate, 0 for none.
template <class Predicate>
int FindNal(unsigned char const* data, int size, Predicate wanted) {
  for (int at = 0; (at = FindStartCode(data, size, at)) >= 0; at += 4)
    if (wanted(data[at + 4])) return at;
  return 0;
}

}  // namespace kestro::plugin::avi
