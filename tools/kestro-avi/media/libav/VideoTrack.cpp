#include "media/libav/VideoTrack.h"

#include <algorithm>
#include <cstdlib>
#include <utility>

#include "cli/Errors.h"
#include "cli/Text.h"
#include "media/Scaled.h"

namespace kestro::tool {

// A gap in a live source that is longer starts a new file.
static constexpr std::int64_t kLongGap_ns = 10000000000;
// How far frames are off the counted time is not mentioned below the first, and a note below the
// second.
static constexpr std::int64_t kTolerance_ns = 10000000, kNote_ns = 100000000;

static std::optional<stream::NalCodec> NalCodecOf(AVCodecID codec) {
  if (codec == AV_CODEC_ID_H264) return stream::NalCodec::kH264;
  if (codec == AV_CODEC_ID_HEVC) return stream::NalCodec::kHevc;
  return std::nullopt;
}

static std::size_t Depth(AVStream const& stream) {
  return static_cast<std::size_t>(std::clamp(stream.codecpar->video_delay, 0, 16));
}

VideoTrack::VideoTrack(AVStream const& stream, std::string name, VideoOptions const& options,
                       Timeline& timeline, InputClock& clock)
    : _timeBase(stream.time_base),
      _options(options),
      _speed(PlayedSpeed(options.rate)),
      _depth(Depth(stream)),
      _timeline(timeline),
      _clock(clock),
      _groups(NalCodecOf(stream.codecpar->codec_id)),
      _size(stream.codecpar->codec_id),
      _formats(stream.codecpar->codec_id, !options.fixedRate),
      _times(StoredRate(options.rate), _speed, _depth) {
  AVCodecParameters const& codec = *stream.codecpar;
  auto const nal = NalCodecOf(codec.codec_id);
  _info.codec = !nal                              ? TrackInfo::kMjpeg
                : *nal == stream::NalCodec::kH264 ? TrackInfo::kH264
                                                  : TrackInfo::kHevc;
  if (nal) _converter.emplace(*nal);
  auto const extra = static_cast<std::size_t>(std::max(codec.extradata_size, 0));
  if (_converter && !_converter->Configure(codec.extradata, extra))
    throw Error(kUnusable, name + ": its parameter sets are damaged");
  _info.name = std::move(name);
  _info.width = codec.width;
  _info.height = codec.height;
  _info.frameRate = StoredRate(options.rate);
}

void VideoTrack::Check(AVStream const& stream, std::string const& name) {
  AVCodecParameters const& codec = *stream.codecpar;
  if (codec.codec_id != AV_CODEC_ID_MJPEG && !NalCodecOf(codec.codec_id))
    throw Error(kUnusable, name + ": the video codec " + avcodec_get_name(codec.codec_id) +
                               " cannot be recorded (h264, hevc and mjpeg can)");
  if (codec.width <= 0 || codec.height <= 0) throw Error(kUnusable, name + ": has no picture");
}

// A packet without any time is decoded directly after the previous one. When it is shown is not
// known, but all frames together are shown as much later than decoded as the first one.
std::int64_t VideoTrack::PacketTime_ns(AVPacket const& packet) {
  bool const shown = packet.pts != AV_NOPTS_VALUE, decoded = packet.dts != AV_NOPTS_VALUE;
  std::int64_t const shown_ns = shown ? av_rescale_q(packet.pts, _timeBase, kNanoseconds) : 0;
  if (decoded)
    _decoded_ns = av_rescale_q(packet.dts, _timeBase, kNanoseconds);
  else if (shown)
    _decoded_ns = shown_ns - _delay_ns;
  else if (_taken > 0)
    _decoded_ns += FrameTime_ns(_options.rate, 1);
  if (shown && _taken == 0) _delay_ns = shown_ns - _decoded_ns;
  ++_taken;
  return shown ? shown_ns : _decoded_ns + _delay_ns;
}

void VideoTrack::Configure(Bytes const& sets) {
  if (_converter) _converter->Configure(sets.data(), sets.size());
}

bool VideoTrack::Take(AVPacket& packet) {
  std::size_t extra = 0;
  auto const* sets = av_packet_get_side_data(&packet, AV_PKT_DATA_NEW_EXTRADATA, &extra);
  if (_converter && sets != nullptr) _converter->Configure(sets, extra);
  std::int64_t const time_ns = PacketTime_ns(packet);
  _latest_ns = std::max(_latest_ns, time_ns);  // frames may be reordered
  bool const key = !_converter || (packet.flags & AV_PKT_FLAG_KEY) != 0;
  if (!_clock.known) _clock = {time_ns, true};
  if (!_started && !KeepBeforeStart(time_ns, key)) return true;

  Unit unit = Convert(packet, time_ns, key);
  if (_options.live) _rates.Add(_decoded_ns);
  if (key && _options.sameFormat && NeedsNewTrack(unit)) return false;
  _firstGroup = _firstGroup && (!key || _units.empty());
  if (unit.leading && _firstGroup) {
    ++_undecodable;
    return true;
  }
  _bytes += unit.data.size();
  _units.push_back(std::move(unit));
  if (_started)
    AddTime(_units.back());
  else if (time_ns - _clock.origin_ns >= _timeline.selection.start_ns)
    Start();
  return true;
}

// Whether a key frame has another format, or comes at another rate than the track's. Sources do not
// always announce their rate.
bool VideoTrack::NeedsNewTrack(Unit const& key) {
  if (_formats.Differs(key.data)) return true;
  if (!_options.live || !_options.checkTimes || _options.fixedRate) return false;
  base::Fraction const rate = _rates.Other(_options.rate);
  if (!rate.Positive()) return false;
  _formats.SetRates(_options.rate, rate);
  return true;
}

// Most frames of files can be recorded from libavformat's memory, without a copy. Devices lend
// buffers of their own, which are gone when they are closed.
SharedBytes VideoTrack::FrameData(AVPacket& packet, bool key) {
  auto const size = static_cast<std::size_t>(std::max(packet.size, 0));
  bool const owned =
      !_options.live && packet.buf != nullptr && av_buffer_is_writable(packet.buf) != 0;
  if (owned && (!_converter || _converter->ConvertInPlace(packet.data, size, key))) {
    std::shared_ptr<AVBufferRef> owner(av_buffer_ref(packet.buf),
                                       [](AVBufferRef* buffer) { av_buffer_unref(&buffer); });
    if (owner) return {packet.data, size, std::move(owner)};
  }
  if (!_converter) return SharedBytes(Bytes(packet.data, packet.data + size));
  Bytes converted;
  if (!_converter->Convert(packet.data, size, key, converted)) ++_damaged;
  return SharedBytes(std::move(converted));
}

VideoTrack::Unit VideoTrack::Convert(AVPacket& packet, std::int64_t time_ns, bool key) {
  Unit unit{FrameData(packet, key), key, false, time_ns};
  unit.leading = packet.pts != AV_NOPTS_VALUE &&
                 _groups.Leads(unit.data.data(), unit.data.size(), key, time_ns);
  if (key && !_options.sameFormat)
    _size.Check(unit.data,
                _timeline.selection.recorded_ns + std::max<std::int64_t>(0, time_ns - _begin_ns));
  _discarded += (packet.flags & AV_PKT_FLAG_DISCARD) != 0;
  return unit;
}

// Before the start: keeps a packet that may belong to the first group of pictures.
bool VideoTrack::KeepBeforeStart(std::int64_t time_ns, bool key) {
  bool const early = time_ns - _clock.origin_ns <= _timeline.selection.start_ns;
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
  for (Unit const& unit : _units) AddTime(unit);
}

void VideoTrack::DropUnits() {
  _units.clear();
  _bytes = 0;
  _firstGroup = true;
  _undecodable = _discarded = 0;
}

void VideoTrack::AddTime(Unit const& unit) {
  std::int64_t const counted_ns = FrameTime_ns(_options.rate, _timed++);
  _times.Add(_options.checkTimes ? unit.time_ns - _clock.origin_ns - _timeline.offset_ns
                                 : counted_ns);
}

void VideoTrack::End() {
  _ended = true;
  std::int64_t const end_ns = _latest_ns - _clock.origin_ns + Time_ns(1);
  if (!_started && !_units.empty() && _timeline.selection.start_ns < end_ns)
    Start();
  else if (!_started)
    DropUnits();
  _times.End();
  FetchTimes();
}

// Determines the times of frames as far as possible. The leading track settles the recording's.
void VideoTrack::FetchTimes() {
  std::int64_t const frame_ns = Time_ns(1);
  while (_times.Ready() && (_lead || _timeline.Settled(_times.NextTime_ns()))) {
    FrameClock::Frame const frame = _times.Take();
    auto const late_ns = [&] {
      std::int64_t const cut_ns = _timeline.CutBefore_ns(frame.time_ns);
      return frame.off_ns - Scaled(cut_ns, _speed.num, _speed.den);
    };
    std::int64_t const gap_ns = late_ns() - _late_ns;
    bool const newFile = frame.gap && gap_ns * 2 >= frame_ns && CloseGap(frame.time_ns, gap_ns);
    _late_ns = late_ns();
    if (frame.gap) _reported_ns = std::max(_reported_ns, std::abs(_late_ns));
    if (std::abs(_late_ns) > std::max(std::abs(_worst_ns), _reported_ns + kTolerance_ns)) {
      _worst_ns = _late_ns;
      _worstPlace_ns = Place_ns();
    }
    _due.push_back({_late_ns, newFile});
    if (_lead) _timeline.Settle(frame.time_ns + FrameTime_ns(_options.rate, 1));
  }
  if (_lead && ((_ended && _times.Empty()) || Full())) _timeline.Settle(INT64_MAX);
}

// Takes the missing time out of all tracks. Returns whether a new file is to start.
bool VideoTrack::CloseGap(std::int64_t time_ns, std::int64_t gap_ns) {
  std::int64_t const place_ns = Place_ns();
  if (!_lead) {
    _gaps.Add({Gap::kShift, place_ns, gap_ns});
    return false;
  }
  std::int64_t const length_ns = Scaled(gap_ns, _speed.den, _speed.num);
  std::int64_t const cut_ns = _timeline.Cut(time_ns - length_ns, time_ns);
  bool const all = cut_ns + kTolerance_ns >= length_ns;
  bool const newFile = _options.newFileAtGap || (_options.live && gap_ns > kLongGap_ns);
  _gaps.Add({newFile ? Gap::kSegment : Gap::kCut, place_ns, gap_ns, all ? -1 : cut_ns});
  return newFile;
}

bool VideoTrack::Ready() {
  FetchTimes();
  return !_due.empty() && !Full();
}

bool VideoTrack::Done() {
  bool const ready = Ready();
  return Full() || (_ended && !ready);
}

bool VideoTrack::WaitsForLead() const {
  return !_lead && _due.empty() && !_times.Empty() && !_timeline.Settled(_times.NextTime_ns());
}

std::int64_t VideoTrack::NextTime_ns() const {
  return Time_ns(_frames) + (_due.empty() ? _late_ns : _due.front().late_ns);
}

TimedPacket VideoTrack::Pop() {
  Unit& unit = _units.front();
  _newFile |= _due.front().newFile;
  TimedPacket packet;
  packet.data = std::move(unit.data);
  packet.key = unit.key;
  packet.leading = unit.leading;
  packet.startsFile = unit.key && std::exchange(_newFile, false);
  packet.time_ns = NextTime_ns();
  packet.duration_ns = Time_ns(_frames + 1) - Time_ns(_frames);
  _due.pop_front();
  _units.pop_front();
  _bytes -= packet.data.size();
  ++_frames;
  return packet;
}

std::int64_t VideoTrack::Waiting_ns() const {
  return Time_ns(static_cast<std::int64_t>(_due.size()));
}

// How far frames are off the times at which they are played.
Notice VideoTrack::Unevenness() const {
  std::string const uneven = std::to_string(_times.Uneven()) + " of " +
                             Quantity(_times.Intervals(), "interval") + " differ";
  return {"its frames do not keep to " + RateText(_options.rate) + " fps" +
              (_times.Uneven() != 0 ? " (" + uneven + ")" : "") +
              ": played at that rate they come up to " + Seconds_ns(std::abs(_worst_ns)) +
              (_worst_ns > 0 ? " earlier" : " later") + " than in the input, most at " +
              Seconds_ns(_worstPlace_ns),
          "skew",
          {{"at_ms", Ms(_worstPlace_ns)}, {"skew_ms", Ms(_worst_ns)}}};
}

static void AddLoss(Notices& to, unsigned count, char const* reason, std::string const& text) {
  if (count != 0) to.push_back({text, "loss", {{"reason", reason}, {"count", count}}});
}

// What came before the first picture that can be recorded.
Notices VideoTrack::LeftOut() const {
  Notices all;
  AddLoss(all, _skipped, "before_key_frame",
          "left out: " + Quantity(_skipped, "packet") + " before the first key frame");
  AddLoss(all, _undecodable, "leading",
          "left out: " + Quantity(_undecodable, "frame") +
              " after the first key frame, with references to frames before it");
  return all;
}

Notices VideoTrack::Findings() const {
  Notices findings = _gaps.Lines();
  if (!_options.live) Append(findings, LeftOut());
  AddLoss(findings, _damaged, "damaged",
          "recorded in part: " + Quantity(_damaged, "damaged packet"));
  if (std::abs(_worst_ns) > kNote_ns) findings.push_back(Unevenness());
  Append(findings, _size.Changes());
  return findings;
}

Notices VideoTrack::Notes() const {
  Notices notes;
  if (_options.live) Append(notes, LeftOut());  // a stream is hardly ever joined at a key frame
  if (_worst_ns != 0 && std::abs(_worst_ns) <= kNote_ns) notes.push_back(Unevenness());
  if (_discarded != 0)
    notes.emplace_back("recorded although its edit list hides them: " +
                       Quantity(_discarded, "frame"));
  if (_depth != 0)
    notes.emplace_back(
        "its frames are not in the order in which they are shown: some players show "
        "them " +
        Seconds_ns(Time_ns(static_cast<std::int64_t>(_depth))) + " later than the audio");
  return notes;
}

Notices VideoTrack::TakeEvents() {
  Notices events = _gaps.Take();
  Append(events, _size.Take());
  return events;
}

}  // namespace kestro::tool
