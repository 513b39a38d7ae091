#include "media/libav/ClockJumps.h"

#include <algorithm>
#include <cstdlib>

namespace kestro::tool {

static constexpr std::int64_t kSecond_ns = 1000000000;
static constexpr std::int64_t kFarAhead_ns = 3600 * kSecond_ns, kBack_ns = kSecond_ns;
// How far packets of several streams may be apart around a jump.
static constexpr std::int64_t kInterleaving_ns = 10 * kSecond_ns;

// The shift that makes the packet follow the stream's last one.
std::int64_t ClockJumps::ShiftFor(int stream, std::int64_t time_ns) {
  auto const known = _expected_ns.find(stream);
  if (known == _expected_ns.end()) return _shifts_ns.back();
  std::int64_t const expected_ns = known->second;
  if (expected_ns > _jump_ns + kInterleaving_ns) _shifts_ns = {_shifts_ns.back()};
  auto const off_ns = [=](std::int64_t shift_ns) { return time_ns + shift_ns - expected_ns; };
  std::int64_t const best_ns =
      *std::min_element(_shifts_ns.begin(), _shifts_ns.end(),
                        [&](auto a, auto b) { return std::abs(off_ns(a)) < std::abs(off_ns(b)); });
  if (off_ns(best_ns) >= -kBack_ns && off_ns(best_ns) <= kFarAhead_ns) return best_ns;
  ++_count;
  _jump_ns = expected_ns;
  _shifts_ns = {_shifts_ns.back(), expected_ns - time_ns};
  return _shifts_ns.back();
}

void ClockJumps::Correct(AVPacket& packet, AVRational timeBase) {
  std::int64_t const stamp = packet.dts != AV_NOPTS_VALUE ? packet.dts : packet.pts;
  if (stamp == AV_NOPTS_VALUE) return;
  std::int64_t const time_ns = av_rescale_q(stamp, timeBase, kNanoseconds);
  std::int64_t const shift_ns = ShiftFor(packet.stream_index, time_ns);
  _expected_ns[packet.stream_index] =
      time_ns + shift_ns + av_rescale_q(packet.duration, timeBase, kNanoseconds);
  std::int64_t const shift = av_rescale_q(shift_ns, kNanoseconds, timeBase);
  if (packet.dts != AV_NOPTS_VALUE) packet.dts += shift;
  if (packet.pts != AV_NOPTS_VALUE) packet.pts += shift;
}

}  // namespace kestro::tool
