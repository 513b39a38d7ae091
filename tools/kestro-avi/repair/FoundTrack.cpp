#include "repair/FoundTrack.h"

namespace kestro::tool {

std::int64_t FoundTrack::Time_ns() const {
  bool const sound = _info.kind == TrackInfo::kSound;
  base::Fraction const rate = sound ? base::Fraction(_info.rate, 1) : _info.frameRate;
  if (!rate.Positive()) return 0;
  std::int64_t const time = FrameTime_ns(rate, _position);
  return time < 0 ? INT64_MAX : time;  // beyond what can be told
}

void FoundTrack::Put(Bytes data, bool key) {
  bool const sound = _info.kind == TrackInfo::kSound;
  _packet.time_ns = Time_ns();
  _position +=
      sound ? static_cast<std::int64_t>(data.size()) / (_info.channels * _info.bits / 8) : 1;
  _packet.duration_ns = Time_ns() - _packet.time_ns;
  _packet.data = std::move(data);
  _packet.key = key;
  _ready = true;
}

}  // namespace kestro::tool
