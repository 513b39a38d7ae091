// Integers in the byte order of the file format, on any machine.
#pragma once

namespace kestro::base {

inline unsigned Load32(unsigned char const* from) {
  return from[0] | from[1] << 8 | from[2] << 16 | static_cast<unsigned>(from[3]) << 24;
}

// Returns the position after the value.
inline unsigned char* Store32(unsigned char* to, unsigned value) {
  for (int i = 0; i < 4; ++i) *to++ = static_cast<unsigned char>(value >> (8 * i));
  return to;
}

}  // namespace kestro::base
