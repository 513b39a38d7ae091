#include "verify/KeyFrame.h"

namespace kestro::tool {

namespace {

// Bits from the highest on.
class Bits {
 public:
  Bits(unsigned char const* data, std::size_t size) : _data(data), _size(size * 8) {}
  unsigned One() {
    if (_at >= _size) return 1;  // ends every number
    unsigned const bit = _data[_at / 8] >> (7 - _at % 8) & 1;
    ++_at;
    return bit;
  }
  // An Exp-Golomb code.
  unsigned Number() {
    int zeros = 0;
    while (zeros < 31 && One() == 0) ++zeros;
    unsigned value = 1;
    for (int i = 0; i < zeros; ++i) value = value << 1 | One();
    return value - 1;
  }

 private:
  unsigned char const* _data;
  std::size_t _size, _at = 0;
};

// kUnknown for what is no slice.
Picture OfH264(unsigned char const* nal, std::size_t size) {
  switch (nal[0] & 0x1F) {
    case 5:
      return Picture::kKey;
    case 6:  // a recovery point
      return size > 1 && nal[1] == 6 ? Picture::kOpen : Picture::kUnknown;
    case 1:
    case 2: {
      Bits bits(nal + 1, size - 1);
      bits.Number();  // first macroblock
      unsigned const type = bits.Number() % 5;
      return type == 2 || type == 4 ? Picture::kOpen : Picture::kOther;
    }
    default:
      return Picture::kUnknown;
  }
}

Picture OfHevc(unsigned char const* nal) {
  unsigned const type = nal[0] >> 1 & 0x3F;
  if (type >= 16 && type <= 23) return Picture::kKey;
  return type < 16 ? Picture::kOther : Picture::kUnknown;
}

}  // namespace

Picture PictureKind(std::string const& codec, unsigned char const* data, std::size_t size) {
  bool const hevc = codec == "hevc";
  if (!hevc && codec != "h264") return Picture::kUnknown;
  for (std::size_t i = 0; i + 4 <= size; ++i) {
    if (data[i] != 0 || data[i + 1] != 0 || data[i + 2] != 1) continue;
    unsigned char const* nal = data + i + 3;
    Picture const picture = hevc ? OfHevc(nal) : OfH264(nal, size - i - 3);
    if (picture != Picture::kUnknown) return picture;
    i += 2;
  }
  return Picture::kUnknown;
}

}  // namespace kestro::tool
