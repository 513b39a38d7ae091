// What the fuzz targets share. A promise that does not hold is a failed KESTRO_ASSERT: it ends the
// process, in every build type.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <string>

#include "base/Console.h"
#include "support/Quiet.h"

namespace kestro::fuzz {

using test::Quiet;

// Takes an input apart. After its end everything is 0.
class Input {
 public:
  Input(std::uint8_t const* data, std::size_t size) : _at(data), _end(data + size) {}

  bool Empty() const { return _at == _end; }
  unsigned U8() { return Empty() ? 0 : *_at++; }
  unsigned U16() {
    unsigned const low = U8();
    return low | U8() << 8;
  }

  // Takes off the tail, whose size is in the last `lengthBytes`; so an ordinary file is an input.
  Input TakeTail(unsigned lengthBytes, std::size_t most) {
    if (Size() < lengthBytes) return {_end, 0};
    _end -= lengthBytes;
    std::size_t const size = std::min({Input(_end, lengthBytes).U16(), unsigned(most)});
    if (size > Size()) return {_end, 0};
    _end -= size;
    return {_end, size};
  }
  std::size_t Size() const { return static_cast<std::size_t>(_end - _at); }
  std::string Text() const { return {_at, _end}; }

 private:
  std::uint8_t const *_at, *_end;
};

}  // namespace kestro::fuzz

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size);
