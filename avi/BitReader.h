// Reads coded numbers from bits, the highest of a byte first.
#pragma once

#include <algorithm>
#include <cstddef>

namespace kestro::avi {

// Beyond the end of the data all bits are 1, which ends any number.
class BitReader {
 public:
  BitReader(unsigned char const* data, std::size_t size) : _data(data), _size(size * 8) {}

  bool Good() const { return _at <= _size; }  // nothing was read beyond the end
  unsigned Bit() {
    unsigned const bit = _at < _size ? _data[_at / 8] >> (7 - _at % 8) & 1 : 1;
    ++_at;
    return bit;
  }
  unsigned Bits(int count) {  // at most 32
    unsigned value = 0;
    for (int i = 0; i < count; ++i) value = value << 1 | Bit();
    return value;
  }
  void Skip(std::size_t count) { _at += std::min(count, _size + 1); }
  // An Exp-Golomb code of at most 63 bits.
  unsigned Number() {
    int zeros = 0;
    while (zeros < 31 && Bit() == 0) ++zeros;
    return (1u << zeros) + Bits(zeros) - 1;
  }
  void SkipNumbers(unsigned count) {  // signed ones have the same length
    for (; count > 0 && Good(); --count) Number();
  }
  // A signed Exp-Golomb code.
  int Signed() {
    unsigned const code = Number();
    return code % 2 != 0 ? static_cast<int>(code / 2 + 1) : -static_cast<int>(code / 2);
  }

 private:
  unsigned char const* _data;
  std::size_t _size, _at = 0;
};

}  // namespace kestro::avi
