// Four-character codes: unsigned 32-bit, first character in the lowest byte ("strh" = 0x68727473).
#pragma once

namespace kestro::base {

// Packs up to n - i characters of s, at most four, into value; stops early at a NUL. The first
// character goes into the lowest byte, whatever i is.
constexpr unsigned Convert32(unsigned value, char const* s, int i, int n) {
  for (int bit = 0; i < n && bit < 32 && *s != '\0'; ++i, ++s, bit += 8)
    value |= static_cast<unsigned>(static_cast<unsigned char>(*s)) << bit;
  return value;
}

// Returns the code of the first four characters of s. The high bytes are 0 if the text is shorter;
// null gives 0.
constexpr unsigned Convert4(char const* s) { return s == nullptr ? 0 : Convert32(0, s, 0, 4); }

}  // namespace kestro::base
