// Computes the times of packets that are recorded again.
#pragma once

#include <cstdint>

#include "media/FrameRate.h"
#include "recorder/TrackInfo.h"

namespace kestro::tool {

// Each frame or sample follows the one before without a gap.
class TrackClock {
 public:
  explicit TrackClock(record::TrackInfo const& info) : _info(info) {}

  std::int64_t Now_ns() const {  // when the next packet begins
    base::Fraction const rate = _info.IsAudio() ? base::Fraction(_info.rate, 1) : _info.frameRate;
    if (!rate.Positive()) return 0;
    std::int64_t const time = FrameTime_ns(rate, _position);
    return time < 0 ? INT64_MAX / 4 : time;  // overflow
  }
  void Advance(std::size_t bytes) {
    _position += _info.IsAudio() ? static_cast<std::int64_t>(bytes) / _info.FrameBytes() : 1;
  }

 private:
  record::TrackInfo const& _info;
  std::int64_t _position = 0;  // frames, or samples of each channel
};

}  // namespace kestro::tool
