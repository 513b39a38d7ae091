#include "verify/KeyFrame.h"

#include "avi/BitReader.h"
#include "stream/NalUnits.h"

namespace kestro::tool {

namespace {

using stream::NalHeader;

// kUnknown if it is not a slice.
Picture PictureOfH264(NalHeader header, unsigned char const* nal, std::size_t size) {
  if (header.IsKeySlice()) return Picture::kKey;
  switch (header.Type()) {
    case 6:  // a recovery point
      return size > 1 && nal[1] == 6 ? Picture::kOpen : Picture::kUnknown;
    case 1:
    case 2: {
      avi::BitReader bits(nal + 1, size - 1);
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
