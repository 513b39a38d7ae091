#include "media/libav/VideoTrack.h"

#include <algorithm>

#include "cli/Errors.h"

namespace kestro::tool {

VideoTrack::VideoTrack(AVStream const& stream, std::string name, Timeline& timeline,
                       InputClock& clock, bool lead, bool checkRate)
    : _timeBase(stream.time_base),
      _timeline(timeline),
      _clock(clock),
      _lead(lead),
      _checkRate(checkRate) {
  AVCodecParameters const& codec = *stream.codecpar;
  switch (codec.codec_id) {
    case AV_CODEC_ID_H264:
      _info.codec = TrackInfo::kH264;
      _converter.emplace(stream::NalCodec::kH264);
      break;
    case AV_CODEC_ID_HEVC:
      _info.codec = TrackInfo::kHevc;
      _converter.emplace(stream::NalCodec::kHevc);
      break;
    case AV_CODEC_ID_MJPEG:
      _info.codec = TrackInfo::kMjpeg;
      break;
    default:
      throw Error(kUnusable, name + ": the video codec " + avcodec_get_name(codec.codec_id) +
                                 " cannot be recorded (h264, hevc and mjpeg can)");
  }
  if (codec.width <= 0 || codec.height <= 0) throw Error(kUnusable, name + ": has no picture");
  auto const extra = static_cast<std::size_t>(std::max(codec.extradata_size, 0));
  if (_converter && !_converter->Configure(codec.extradata, extra))
    throw Error(kUnusable, name + ": its parameter sets are damaged");
  _info.name = std::move(name);
  _info.width = codec.width;
  _info.height = codec.height;
}

bool VideoTrack::Full() const {
  return _timeline.duration_ns >= 0 && NextTime_ns() >= _timeline.duration_ns;
}

// A packet without a time directly follows the previous one.
std::int64_t VideoTrack::PacketTime_ns(AVPacket const& packet) {
  std::int64_t const stamp = packet.pts != AV_NOPTS_VALUE ? packet.pts : packet.dts;
  if (stamp != AV_NOPTS_VALUE)
    _last_ns = av_rescale_q(stamp, _timeBase, kNanoseconds);
  else if (_taken > 0)
    _last_ns += Time_ns(1);
  ++_taken;
  return _last_ns;
}

void VideoTrack::Take(AVPacket const& packet) {
  std::size_t extra = 0;
  auto const* sets = av_packet_get_side_data(&packet, AV_PKT_DATA_NEW_EXTRADATA, &extra);
  if (_converter && sets != nullptr) _converter->Configure(sets, extra);
  std::int64_t const time_ns = PacketTime_ns(packet);
  _latest_ns = std::max(_latest_ns, time_ns);  // frames may be reordered
  bool const key = !_converter || (packet.flags & AV_PKT_FLAG_KEY) != 0;
  if (!_clock.known) _clock = {time_ns, true};
  if (!_started && !KeepBeforeStart(time_ns, key)) return;

  Unit unit{{}, key};
  auto const size = static_cast<std::size_t>(std::max(packet.size, 0));
  if (!_converter)
    unit.data.assign(packet.data, packet.data + size);
  else if (!_converter->Convert(packet.data, size, key, unit.data))
    ++_damaged;
  _bytes += unit.data.size();
  _units.push_back(std::move(unit));

  if (!_started && time_ns - _clock.origin_ns >= _timeline.start_ns) Start();
  // Reordering moves a frame by a few frames; more means another rate.
  auto const frame = _frames + static_cast<std::int64_t>(_units.size()) - 1;
  auto const off_ns = Time_ns(frame) - (time_ns - _begin_ns);
  if (_started && _checkRate && std::abs(off_ns) > std::max<std::int64_t>(500000000, Time_ns(16)))
    _drifts = true;
}

// Before the start: keeps a packet that may belong to the first group of pictures.
bool VideoTrack::KeepBeforeStart(std::int64_t time_ns, bool key) {
  bool const early = time_ns - _clock.origin_ns <= _timeline.start_ns;
  if (key && (early || _units.empty())) {
    DropUnits();
    _begin_ns = time_ns;
    if (_lead) _timeline.offset_ns = time_ns - _clock.origin_ns;
  }
  if (key || !_units.empty()) return true;
  ++_skipped;
  return false;
}

void VideoTrack::Start() {
  _started = true;
  if (_lead) _timeline.known = true;
}

void VideoTrack::DropUnits() {
  _units.clear();
  _bytes = 0;
}

void VideoTrack::End() {
  _ended = true;
  std::int64_t const end_ns = _latest_ns - _clock.origin_ns + Time_ns(1);
  if (!_started && !_units.empty() && _timeline.start_ns < end_ns)
    Start();
  else if (!_started)
    DropUnits();
}

TimedPacket VideoTrack::Pop() {
  TimedPacket packet;
  packet.data = std::move(_units.front().data);
  packet.key = _units.front().key;
  packet.time_ns = NextTime_ns();
  packet.duration_ns = Time_ns(_frames + 1) - packet.time_ns;
  _units.pop_front();
  _bytes -= packet.data.size();
  ++_frames;
  return packet;
}

std::int64_t VideoTrack::Waiting_ns() const {
  return _started ? Time_ns(static_cast<std::int64_t>(_units.size())) : 0;
}

std::string VideoTrack::Findings() const {
  std::string text;
  auto add = [&text](std::string const& finding) {
    if (!text.empty()) text += "; ";
    text += finding;
  };
  if (_skipped != 0)
    add(std::to_string(_skipped) + " packets before the first key frame are left out");
  if (_damaged != 0) add(std::to_string(_damaged) + " damaged packets are recorded partly");
  if (_drifts)
    add("its frames do not keep to " + _info.frameRate.Text() + " fps; audio may get out of sync");
  return text;
}

}  // namespace kestro::tool
