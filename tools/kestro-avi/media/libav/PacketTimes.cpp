#include "media/libav/PacketTimes.h"

#include <cstdlib>

namespace kestro::tool {

static constexpr std::int64_t kHour_ns = 3600 * std::int64_t{1000000000};
static constexpr std::int64_t kLongest_ns = 24 * kHour_ns;     // of a text
static constexpr std::int64_t kLatest_ns = 876600 * kHour_ns;  // clocks may count from 1970

void DropWildTimes(AVPacket& packet, AVRational timeBase) {
  auto const ns = [timeBase](std::int64_t time) {
    return av_rescale_q(time, timeBase, kNanoseconds);
  };
  auto const inRange = [](std::int64_t time_ns) {  // overflow gives INT64_MIN
    return time_ns >= -kLatest_ns && time_ns <= kLatest_ns;
  };
  if (!inRange(ns(packet.dts))) packet.dts = AV_NOPTS_VALUE;
  if (!inRange(ns(packet.pts))) packet.pts = AV_NOPTS_VALUE;
  bool const both = packet.pts != AV_NOPTS_VALUE && packet.dts != AV_NOPTS_VALUE;
  if (both && std::abs(ns(packet.pts) - ns(packet.dts)) > kHour_ns) packet.pts = AV_NOPTS_VALUE;
  std::int64_t const duration_ns = ns(packet.duration);
  if (duration_ns < 0 || duration_ns > kLongest_ns) packet.duration = 0;
}

}  // namespace kestro::tool
