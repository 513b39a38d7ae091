#include "verify/FrameConverter.h"

#include <algorithm>

namespace kestro::tool {

FrameConverter::FrameConverter(avi::AviTrack const& track) : _codec(track.codec) {
  auto const codec = stream::NalCodecOf(_codec);
  if (!codec) return;
  _converter.emplace(*codec);
  _setsDamaged = !_converter->Configure(track.extra.data(), track.extra.size());
}

bool FrameConverter::Convert(unsigned char const* data, std::size_t size, Bytes& out) {
  bool const whole = _converter->Convert(data, size, false, out);
  if (out.empty()) return whole;
  Picture const picture = PictureKind(_codec, out.data(), out.size());
  if (!_begun || picture == Picture::kKey || picture == Picture::kOpen)
    _converter->AddParameterSets(out);
  _begun = true;
  return whole;
}

std::optional<Picture> FrameConverter::KindOf(avi::RiffReader& reader,
                                              avi::IndexEntry const& entry) {
  constexpr unsigned kStart = 4096;  // enough for what precedes the first slice
  constexpr unsigned kMostBytes = 64 << 20;
  unsigned const size = std::min(entry.size, Needed() ? kMostBytes : kStart);
  if (_read.size() < size) _read.resize(size);
  unsigned const n = reader.Read(entry.offset + 8, _read.data(), size);
  if (!Needed()) return PictureKind(_codec, _read.data(), n);
  if (n != entry.size) return Picture::kUnknown;
  if (!_converter->Convert(_read.data(), n, false, _frame)) return std::nullopt;
  return PictureKind(_codec, _frame.data(), _frame.size());
}

}  // namespace kestro::tool
