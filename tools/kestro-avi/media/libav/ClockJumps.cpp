#include "media/libav/ClockJumps.h"

#include <algorithm>
#include <cstdlib>

#include "cli/Text.h"

namespace kestro::tool {

static constexpr std::int64_t kSecond_ns = 1000000000;
static constexpr std::int64_t kFarAhead_ns = 3600 * kSecond_ns, kBack_ns = kSecond_ns;
// A stream that begins further away from the others has another clock.
static constexpr std::int64_t kOtherClock_ns = 24 * 3600 * kSecond_ns;
// How far packets of several streams may be apart around a jump.
static constexpr std::int64_t kInterleaving_ns = 10 * kSecond_ns;

// The shift that makes the packet follow the stream's last one.
std::int64_t ClockJumps::ShiftFor(Stream const& stream, std::int64_t time_ns) {
  std::int64_t const expected_ns = stream.expected_ns;
  if (expected_ns > _jump_ns + kInterleaving_ns) _shifts_ns = {_shifts_ns.back()};
  auto const off_ns = [=](std::int64_t shift_ns) { return time_ns + shift_ns - expected_ns; };
  std::int64_t const best_ns =
      *std::min_element(_shifts_ns.begin(), _shifts_ns.end(),
                        [&](auto a, auto b) { return std::abs(off_ns(a)) < std::abs(off_ns(b)); });
  if (off_ns(best_ns) >= -kBack_ns && off_ns(best_ns) <= kFarAhead_ns) return best_ns;
  Note(expected_ns, off_ns(_shifts_ns.back()));
  _jump_ns = expected_ns;
  _shifts_ns = {_shifts_ns.back(), expected_ns - time_ns};
  return _shifts_ns.back();
}

// Begins a stream. Returns the shift of its first packet.
std::int64_t ClockJumps::Begin(Stream& stream, std::int64_t time_ns) {
  std::int64_t const off_ns = time_ns + _shifts_ns.back() - _last_ns;
  if (_streams.size() > 1 && std::abs(off_ns) > kOtherClock_ns) {
    Note(_last_ns, off_ns);
    stream.offset_ns = -off_ns;
  }
  return _shifts_ns.back() + stream.offset_ns;
}

static std::string JumpText(std::int64_t time_ns, std::int64_t length_ns) {
  return std::string("its clock jumps ") + (length_ns < 0 ? "back" : "ahead") + " by " +
         Seconds_ns(std::abs(length_ns)) + " at " + Seconds_ns(time_ns);
}

void ClockJumps::Note(std::int64_t time_ns, std::int64_t length_ns) {
  std::int64_t const place_ns = time_ns - _begin_ns;
  _fresh.push_back({JumpText(place_ns, length_ns),
                    "jump",
                    {{"at_ms", Ms(place_ns)}, {"length_ms", Ms(length_ns)}}});
  if (_count++ != 0) return;
  _first_ns = time_ns - _begin_ns;
  _length_ns = length_ns;
}

std::string ClockJumps::Describe() const {
  return JumpText(_first_ns, _length_ns) +
         (_count > 1 ? ", and " + Quantity(_count - 1, "more time") : "");
}

void ClockJumps::Correct(AVPacket& packet, AVRational timeBase) {
  std::int64_t const stamp = packet.dts != AV_NOPTS_VALUE ? packet.dts : packet.pts;
  if (stamp == AV_NOPTS_VALUE) return;
  std::int64_t const time_ns = av_rescale_q(stamp, timeBase, kNanoseconds);
  if (_streams.empty()) _begin_ns = time_ns;
  auto const [place, begins] = _streams.try_emplace(packet.stream_index);
  Stream& stream = place->second;
  // The times at which frames are shown go back and forth.
  bool const ordered = begins || packet.dts != AV_NOPTS_VALUE;
  std::int64_t const shift_ns =
      begins    ? Begin(stream, time_ns)
      : ordered ? stream.offset_ns + ShiftFor(stream, time_ns + stream.offset_ns)
                : stream.offset_ns + _shifts_ns.back();
  _last_ns = time_ns + shift_ns;
  if (ordered)
    stream.expected_ns = _last_ns + av_rescale_q(packet.duration, timeBase, kNanoseconds);
  std::int64_t const shift = av_rescale_q(shift_ns, kNanoseconds, timeBase);
  if (packet.dts != AV_NOPTS_VALUE) packet.dts += shift;
  if (packet.pts != AV_NOPTS_VALUE) packet.pts += shift;
}

}  // namespace kestro::tool
