#include "verify/KeyFrame.h"

#include "stream/NalUnits.h"

namespace kestro::tool {

namespace {

using stream::NalHeader;

// Reads bits, the highest first.
class BitReader {
 public:
  BitReader(unsigned char const* data, std::size_t size) : _data(data), _size(size * 8) {}
  unsigned One() {
    if (_at >= _size) return 1;  // ends any number
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

// kUnknown if it is not a slice.
Picture PictureOfH264(NalHeader header, unsigned char const* nal, std::size_t size) {
  if (header.IsKeySlice()) return Picture::kKey;
  switch (header.Type()) {
    case 6:  // a recovery point
      return size > 1 && nal[1] == 6 ? Picture::kOpen : Picture::kUnknown;
    case 1:
    case 2: {
      BitReader bits(nal + 1, size - 1);
      bits.Number();  // first macroblock
      unsigned const type = bits.Number() % 5;
      return type == 2 || type == 4 ? Picture::kOpen : Picture::kOther;
    }
    default:
      return Picture::kUnknown;
  }
}

Picture PictureOfHevc(NalHeader header) {
  if (header.IsKeySlice()) return Picture::kKey;
  return header.Type() < 16 ? Picture::kOther : Picture::kUnknown;
}

}  // namespace

Picture PictureKind(std::string const& codec, unsigned char const* data, std::size_t size) {
  auto const known = stream::NalCodecOf(codec);
  if (!known) return Picture::kUnknown;
  for (stream::NalUnits<stream::AllCodes> unit(*known, data, size); unit.More(); unit.Next()) {
    Picture const picture =
        *known == stream::NalCodec::kHevc
            ? PictureOfHevc(unit.Header())
            : PictureOfH264(unit.Header(), data + unit.Begin(), size - unit.Begin());
    if (picture != Picture::kUnknown) return picture;
  }
  return Picture::kUnknown;
}

}  // namespace kestro::tool
