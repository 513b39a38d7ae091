// Start codes of Annex B byte streams.
#pragma once

namespace kestro::plugin::avi {

// The position of the first start code 00 00 00 01 at or behind `from`, -1 when fewer than six
// bytes are left at it: four of the code, and two so that a NAL header can be looked at. One pass
// that looks at every fourth byte where nothing is near.
inline int FindStartCode(unsigned char const* data, int size, int from) {
  for (int last = from + 3; last <= size - 3;) {
    unsigned char const byte = data[last];
    if (byte == 0) {
      ++last;
    } else if (byte == 1 && data[last - 1] == 0 && data[last - 2] == 0 && data[last - 3] == 0) {
      return last - 3;
    } else {
      last += 4;
    }
  }
  return -1;
}

// The position of the first start code whose NAL header byte satisfies the predicate, 0 for none.
template <class Predicate>
int FindNal(unsigned char const* data, int size, Predicate wanted) {
  for (int at = 0; (at = FindStartCode(data, size, at)) >= 0; at += 4)
    if (wanted(data[at + 4])) return at;
  return 0;
}

}  // namespace kestro::plugin::avi
