#include "media/OpenGroups.h"

namespace kestro::tool {

// The type of a frame's first slice; -1 if it has none.
static int SliceType(stream::NalCodec codec, std::uint8_t const* frame, std::size_t size) {
  using Units = stream::NalUnits<stream::AllCodes>;
  for (Units unit(codec, frame, size); unit.More(); unit.Next())
    if (unit.Header().IsSlice()) return unit.Header().Type();
  return -1;
}

bool OpenGroups::Leads(std::uint8_t const* frame, std::size_t size, bool key,
                       std::int64_t time_ns) {
  constexpr int kIdr = 5, kSkippedN = 8, kSkippedR = 9;  // H.264; HEVC: RASL_N, RASL_R
  if (!_codec) return false;
  bool const hevc = *_codec == stream::NalCodec::kHevc;
  if (key) {
    _key_ns = time_ns;
    _open = hevc || SliceType(*_codec, frame, size) != kIdr;
    return false;
  }
  if (!_open || time_ns >= _key_ns) return false;
  int const type = hevc ? SliceType(*_codec, frame, size) : kSkippedN;
  return type == kSkippedN || type == kSkippedR;
}

}  // namespace kestro::tool
