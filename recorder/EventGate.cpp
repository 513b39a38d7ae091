#include "recorder/EventGate.h"

#include <algorithm>
#include <utility>

#include "avi/Text.h"
#include "recorder/CutAudio.h"
#include "recorder/Refusal.h"

namespace kestro::record {

using stream::Packet;

static constexpr std::int64_t kRounding_ns = 1000;       // of packet times, as in Segments
static constexpr std::int64_t kMaxLag_ns = 10000000000;  // tracks that lag more are not waited for
static constexpr std::int64_t kMostReorder_ns = 1000000000;

static std::int64_t End_ns(Packet const& packet) { return packet.Pts() + packet.Duration(); }

EventGate::EventGate(RecorderOptions const& options, Tracks const& tracks, Packets const& packets,
                     Events const& events, Segments& segments, Segments::Report report)
    : ISink("EventGate"),
      _options(options),
      _info(tracks),
      _events(events),
      _segments(segments),
      _report(std::move(report)),
      _ring(tracks.size(), segments.Lead(), options.events.maxBytes,
            [&segments](std::size_t track, Packet const& key) {
              segments.TakeParameterSets(track, key);
            }),
      _lead(segments.Lead()) {
  for (std::size_t i = 0; i < tracks.size(); ++i) {
    _tracks.emplace_back().input = AddInput();
    if (!_tracks[i].input->Offer(packets.Media(i)))
      throw Refusal(Code::kUnsupported, tracks[i].name + ": the track is refused");
  }
  _wake = AddInput();
  static_cast<void>(_wake->Offer(packets.Media(_lead)));
  static_cast<void>(ISink::StatusChange(kRunning));  // a sink without steps of its own
}

EventGate::~EventGate() { Detach(); }

void EventGate::Wake() {
  auto const packet = Packet::New(0);
  static_cast<void>(_wake->Push(*packet));
}

// The host does not expect exceptions.
bool EventGate::ReceivePacket(Packet& packet, void* context) {
  auto const track = std::find_if(_tracks.begin(), _tracks.end(),
                                  [context](State const& state) { return state.input == context; });
  try {
    if (_writing) Extend();
    if (!_over && track == _tracks.end())
      _over = !Advance();
    else if (!_over)
      _over = !Receive(static_cast<std::size_t>(track - _tracks.begin()), packet.Share());
  } catch (std::bad_alloc const&) {
    _over = true;
  }
  return !_over;
}

bool EventGate::Receive(std::size_t track, PacketRing::PacketRef packet) {
  bool const lead = track == _lead;
  NoteTimes(track, *packet);
  if (lead && !_begun && !packet->IsKey()) {
    ++_skipped;
    return true;
  }
  if (lead) _begun = true;
  if (_writing && !PassHeld()) return false;
  if (_writing && lead) CutAt(*packet);
  bool const whole = _writing && _ring.Front(track) == nullptr && Belongs(track, *packet) &&
                     End_ns(*packet) - kRounding_ns <= _cut_ns;
  if (whole && !Pass(track, *packet)) return false;
  _ring.Add(track, std::move(packet), whole);
  if (_ring.Overflowed() && !_writing) CheckRoom();
  return Advance();
}

// Warns when events will lack packets because there is too little memory.
void EventGate::CheckRoom() {
  std::string const most = avi::ByteCount(_options.events.maxBytes) + " of memory";
  std::int64_t const held_ns = _ring.Empty() ? 0 : _tracks[_lead].end_ns - _ring.Begin_ns();
  bool& reported = _ring.Empty() ? _tooShort : _short;
  if (reported || held_ns >= _options.events.before_ns) return;
  reported = true;
  _report({Event::kWarning, _options.path,
           _options.path + ": " +
               (_ring.Empty() ? "a group of pictures does not fit into " + most +
                                    ": events lack the pictures up to the next key frame"
                              : "only " + avi::Seconds(held_ns / 1000000) +
                                    " before an event are kept: more does not fit into " + most)});
}

void EventGate::NoteTimes(std::size_t track, Packet const& packet) {
  std::int64_t& end_ns = _tracks[track].end_ns;
  end_ns = std::max<std::int64_t>(end_ns, End_ns(packet));
  if (track != _lead) return;
  std::int64_t const back_ns = _latest_ns == INT64_MIN ? 0 : _latest_ns - packet.Pts();
  _reorder_ns = std::clamp(back_ns, _reorder_ns, kMostReorder_ns);
  _latest_ns = std::max<std::int64_t>(_latest_ns, packet.Pts());
}

// Passes on what belongs to events, ends their files, and drops what is too old.
bool EventGate::Advance() {
  while (_writing || Begin()) {
    if (!PassHeld()) return false;
    if (!Complete()) break;
    if (!EndFile()) return false;
  }
  std::int64_t const end_ns = _tracks[_lead].end_ns, before_ns = _options.events.before_ns;
  if (!_writing)
    _ring.DropBefore(end_ns < INT64_MIN + before_ns ? INT64_MIN : end_ns - before_ns);
  else if (_cut_ns == INT64_MAX)
    _ring.DropBefore(_passed_ns);  // the last group remains, for an event after the end
  return true;
}

// Begins a file if an event needs one.
bool EventGate::Begin() {
  if (_ring.Empty()) return false;
  auto const span = _events.After(std::max(_done_ns, _ring.Begin_ns()));
  if (!span || std::max(span->from_ns, _done_ns) + kRounding_ns >= _tracks[_lead].end_ns)
    return false;
  _ring.DropBefore(std::max(span->from_ns, _done_ns));
  if (_ring.Begin_ns() >= span->to_ns) return false;
  _ring.Rewind();
  _begin_ns = _passed_ns = _ring.Begin_ns();
  _to_ns = span->to_ns;
  _cut_ns = INT64_MAX;
  _writing = _recording = true;
  Extend();
  return true;
}

// Events that overlap extend the file; if its end has passed, only while nothing was dropped.
void EventGate::Extend() {
  if (_cut_ns != INT64_MAX && _ring.Lost()) return;
  std::int64_t const from_ns = std::max(_to_ns, _cut_ns != INT64_MAX ? _cut_ns : _to_ns);
  std::int64_t const to_ns = _events.Extend(from_ns);
  if (to_ns > from_ns) _cut_ns = INT64_MAX;
  _to_ns = std::max(_to_ns, to_ns);
}

// The file ends with the first packet of the leading track that is after the event's time, and
// after all those before it if pictures are reordered.
void EventGate::CutAt(Packet const& leading) {
  if (_cut_ns == INT64_MAX && leading.Pts() + kRounding_ns >= _to_ns + _reorder_ns)
    _cut_ns = _passed_ns;
}

bool EventGate::Belongs(std::size_t track, Packet const& packet) const {
  if (track == _lead) return _cut_ns == INT64_MAX;
  return _cut_ns == INT64_MAX ? End_ns(packet) <= _to_ns : packet.Pts() + kRounding_ns < _cut_ns;
}

// Passes on the packets in memory that belong to the file, in the order in which they came.
bool EventGate::PassHeld() {
  for (;;) {
    if (Packet const* const leading = _ring.Front(_lead)) CutAt(*leading);
    std::size_t first = _tracks.size();
    for (std::size_t i = 0; i < _tracks.size(); ++i) {
      Packet const* const front = _ring.Front(i);
      if (front == nullptr || !Belongs(i, *front)) continue;
      if (first == _tracks.size() || _ring.Order(i) < _ring.Order(first)) first = i;
    }
    if (first == _tracks.size()) return true;
    if (!PassFirst(first)) return false;
  }
}

bool EventGate::PassFirst(std::size_t track) {
  Packet& packet = *_ring.Front(track);
  if (track != _lead && _cut_ns != INT64_MAX)
    if (auto const before = CutAudio(_info[track], packet, _cut_ns)) return Pass(track, *before);
  _ring.Pass(track);
  return Pass(track, packet);
}

bool EventGate::Pass(std::size_t track, Packet& packet) {
  if (track == _lead) _passed_ns = std::max(_passed_ns, End_ns(packet));
  return _segments.Input(track).Push(packet);
}

// Whether the file has everything: other tracks may lag.
bool EventGate::Complete() const {
  if (_cut_ns == INT64_MAX) return false;
  if (_tracks[_lead].end_ns >= _cut_ns + kMaxLag_ns) return true;
  for (std::size_t i = 0; i < _tracks.size(); ++i) {
    std::int64_t const end_ns = std::max(_tracks[i].end_ns, _begin_ns);
    if (i == _lead || _info[i].IsText()) continue;
    if (end_ns + kRounding_ns < _cut_ns && end_ns + kMaxLag_ns > _cut_ns) return false;
  }
  return true;
}

bool EventGate::EndFile() {
  _writing = _recording = false;
  _done_ns = std::max(_cut_ns, _to_ns);  // frames may be missing in between
  return _segments.Suspend();
}

bool EventGate::End() {
  static_cast<void>(ISink::StatusChange(kClosed));
  bool passed = true;
  try {
    if (_writing) Extend();
    passed = Advance();
    while (passed && _writing) {
      _cut_ns = std::min(_cut_ns, _passed_ns);
      passed = PassHeld() && EndFile() && Advance();
    }
  } catch (std::bad_alloc const&) {
    passed = false;
  }
  return passed;
}

void EventGate::AddTo(record::Status& status) const {
  status.skipped += _skipped;
  if (status.state == record::Status::kFailed) return;
  status.state = _recording ? record::Status::kRecording
                 : _begun   ? record::Status::kIdle
                            : record::Status::kWaiting;
}

}  // namespace kestro::record
