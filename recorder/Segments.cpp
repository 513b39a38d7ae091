#include "recorder/Segments.h"

#include <algorithm>
#include <utility>

#include "avi/Text.h"
#include "recorder/CutAudio.h"
#include "recorder/Refusal.h"

namespace kestro::record {

using stream::Packet;

// Times that differ by less are equal: applications round them.
static constexpr std::int64_t kRounding_ns = 1000;
// Tracks that are further apart are mentioned.
static constexpr std::int64_t kMentionedSkew_ns = 40000000;
// How far another track may run ahead of the leading one before its packets are written anyway.
static constexpr std::int64_t kMaxWait_ns = 1000000000;
// A key frame that starts a file waits for tracks that lag by less than this, ...
static constexpr std::int64_t kMaxLag_ns = 10000000000;
static constexpr std::uint64_t kMaxWaitingBytes = 64 << 20;  // ... with at most this much data

static std::int64_t End_ns(Packet const& packet) { return packet.Pts() + packet.Duration(); }

static bool StartsBefore(Packet const& packet, std::int64_t time_ns) {
  return packet.Pts() + kRounding_ns < time_ns;
}

static bool EndsBefore(Packet const& packet, std::int64_t time_ns) {
  return StartsBefore(packet, time_ns) && End_ns(packet) <= time_ns + kRounding_ns;
}

Segments::Segments(RecorderOptions const& options, Tracks const& tracks, Packets const& packets,
                   FileStarts& starts, SegmentNames& names, Retention* retention, Report report,
                   Finish finish)
    : ISink("Segments"),
      _options(options),
      _info(tracks),
      _packets(packets),
      _starts(starts),
      _report(std::move(report)),
      _finish(std::move(finish)),
      _names(names),
      _retention(retention),
      _formatter(tracks, packets,
                 [this](std::size_t track, Packet& packet) { return Store(track, packet); }) {
  for (std::size_t i = 0; i < tracks.size(); ++i) {
    _tracks.emplace_back().input = AddInput();
    if (!_tracks[i].input->Offer(packets.Media(i)))
      throw Refusal(Code::kUnsupported, tracks[i].name + ": the track is refused");
  }
  auto const first = [&tracks](bool (TrackInfo::*is)() const) {
    return std::find_if(tracks.begin(), tracks.end(),
                        [is](TrackInfo const& info) { return (info.*is)(); });
  };
  auto lead = first(&TrackInfo::IsVideo);
  if (lead == tracks.end()) lead = first(&TrackInfo::IsAudio);
  _lead = static_cast<std::size_t>(lead - tracks.begin());
  BeginFile({options.tags.isft, std::nullopt});
  static_cast<void>(ISink::StatusChange(kRunning));  // a sink without steps of its own
}

Segments::~Segments() {
  Detach();
  End();
}

Segments::Progress Segments::GetProgress() const {
  std::lock_guard lock(_mutex);
  return _progress;
}

// The host does not expect exceptions.
bool Segments::ReceivePacket(Packet& packet, void* context) {
  if (!_file) return false;
  auto const track = std::find_if(_tracks.begin(), _tracks.end(),
                                  [context](State const& state) { return state.input == context; });
  bool received = false;
  bool const full = _retention != nullptr && _retention->Full();
  if (full) EndFile(false);
  try {
    received = !full && Receive(static_cast<std::size_t>(track - _tracks.begin()), packet.Share());
  } catch (std::exception const& error) {
    _complete = false;
    _report({Event::kError, _file ? _file->Path() : "", error.what()});
  }
  return received || Fail();
}

bool Segments::Fail() {
  if (_file)
    for (std::string const& text : _file->Errors()) _report({Event::kError, _file->Path(), text});
  std::lock_guard lock(_mutex);
  _progress.failed = true;
  return false;
}

bool Segments::Receive(std::size_t track, PacketRef packet) {
  State& state = _tracks[track];
  state.end_ns = std::max(state.end_ns, End_ns(*packet));
  if (track != _lead) return ReceiveOther(track, std::move(packet)) && WriteWaiting(false);
  if (!_begun && !packet->IsKey() && _info[track].IsVideo()) {
    std::lock_guard lock(_mutex);
    ++_progress.skipped;
    return true;
  }
  if (!_begun) BeginRecording(packet->Pts());
  _waitingBytes += static_cast<std::uint64_t>(packet->Size());
  _waiting.push_back(std::move(packet));
  return WriteWaiting(false);
}

// Drops the packets of other tracks that come before this time.
void Segments::BeginRecording(std::int64_t time_ns) {
  _begun = true;
  _start_ns = _begin_ns = _end_ns = _next_ns = time_ns;
  // The first file exists to find out whether it can be written; now its start is known.
  auto const start = _starts.At(time_ns);
  std::string const path = _names.Current(NameTime_ns(start));
  if (start.isft != _options.tags.isft || path != _file->Path())
    _file = std::make_unique<FileWriter>(_options, path, start.isft, _info, _packets);
  DropSplits(time_ns);
  _formatter.BeginFile(time_ns);
  std::size_t const all = _held.size();
  for (Held& held : _held) CutAudio(_info[held.track], *held.packet, time_ns);
  _held.erase(
      std::remove_if(_held.begin(), _held.end(),
                     [time_ns](Held const& held) { return StartsBefore(*held.packet, time_ns); }),
      _held.end());
  std::lock_guard lock(_mutex);
  _progress.file = path;
  _progress.begun = true;
  _progress.file = _file->Path();
  _progress.skipped += all - _held.size();
}

// Writes packets of the leading track. Unless `all`, a packet that starts a file waits until the
// other tracks have caught up.
bool Segments::WriteWaiting(bool all) {
  while (!_waiting.empty()) {
    Packet const& first = *_waiting.front();
    std::int64_t const time_ns = first.Pts();
    bool const startsFile = first.IsKey() && StartsFile(first);
    bool const canWait = !all && _waitingBytes <= kMaxWaitingBytes &&
                         End_ns(*_waiting.back()) < time_ns + kMaxLag_ns;
    if (startsFile && canWait && !OthersCaughtUp(time_ns)) return true;
    PacketRef const packet = std::move(_waiting.front());
    _waiting.pop_front();
    _waitingBytes -= static_cast<std::uint64_t>(packet->Size());
    if (!WriteLeading(packet, startsFile)) return false;
  }
  return true;
}

bool Segments::WriteLeading(PacketRef const& packet, bool startsFile) {
  std::int64_t const time_ns = packet->Pts(), next_ns = End_ns(*packet);
  if (packet->IsKey()) {
    _largest = std::max(_largest, _file->Written() - _atKey);
    _atKey = _file->Written();
    if (_retention != nullptr && !startsFile) _retention->Expect(_file->Path(), _file->Size());
    if (startsFile && !StartNextFile(time_ns)) return false;
  }
  // A text precedes its frame.
  if (!WriteHeld(next_ns, EndsBefore) || !Write(_lead, *packet)) return false;
  _leadWritten = true;
  _next_ns = next_ns;
  return true;
}

// Takes a packet of another track than the leading one.
bool Segments::ReceiveOther(std::size_t track, PacketRef packet) {
  if (_begun && StartsBefore(*packet, _start_ns)) CutAudio(_info[track], *packet, _start_ns);
  std::int64_t const time_ns = packet->Pts();
  if (_begun && StartsBefore(*packet, _start_ns)) {
    std::lock_guard lock(_mutex);
    ++_progress.skipped;
    return true;
  }
  if (_begun && EndsBefore(*packet, _next_ns)) {
    _others_ns = std::max(_others_ns, End_ns(*packet));
    return Write(track, *packet);
  }
  _held.push_back({track, std::move(packet)});
  if (_begun)
    return time_ns <= _next_ns + kMaxWait_ns || !_waiting.empty() ||
           WriteHeld(INT64_MAX, StartsBefore);
  std::lock_guard lock(_mutex);
  for (; _held.front().packet->Pts() + kMaxLag_ns < time_ns; _held.pop_front()) ++_progress.skipped;
  return true;
}

// Writes the held packets for which `isDue` is true: those that start, or end, before a time.
bool Segments::WriteHeld(std::int64_t time_ns, bool (*isDue)(stream::Packet const&, std::int64_t)) {
  if (_held.empty()) return true;
  auto const rest = std::stable_partition(
      _held.begin(), _held.end(), [=](Held const& held) { return isDue(*held.packet, time_ns); });
  std::deque<Held> ready(std::make_move_iterator(_held.begin()), std::make_move_iterator(rest));
  _held.erase(_held.begin(), rest);
  for (Held& held : ready) {
    _others_ns = std::max(_others_ns, End_ns(*held.packet));
    if (!Write(held.track, *held.packet)) return false;
  }
  return true;
}

// Whether a key frame of the leading track starts a new file.
bool Segments::StartsFile(Packet const& key) const {
  std::int64_t const time_ns = key.Pts();
  if (!_leadWritten || _others_ns > time_ns + kRounding_ns) return false;
  SegmentOptions const& options = _options.segments;
  if (SplitRequested(time_ns) || TooSkewed()) return true;
  if (options.time_ns >= 0 && time_ns + kRounding_ns >= _begin_ns + options.time_ns) return true;
  std::uint64_t waiting = 0;
  for (Held const& held : _held) waiting += static_cast<std::uint64_t>(held.packet->Size()) + 32;
  std::uint64_t const largest = std::max(_largest, _file->Written() - _atKey);
  std::uint64_t const ahead = waiting + largest / 4 * 5;
  // Without the reserved index, which may be larger than this.
  if (_retention != nullptr && _file->Written() + ahead > _retention->SegmentSize()) return true;
  return _file->Size() + ahead > options.size;
}

bool Segments::SplitRequested(std::int64_t time_ns) const {
  std::lock_guard lock(_mutex);
  return !_splits.empty() && *_splits.begin() <= time_ns + kRounding_ns;
}

bool Segments::TooSkewed() const {
  std::int64_t const most_ns = _options.segments.maxSkew_ns;
  return most_ns > 0 && _formatter.Skew_ns() > most_ns;
}

void Segments::SplitAt(std::int64_t time_ns) {
  std::lock_guard lock(_mutex);
  _splits.insert(time_ns);
}

// Forgets the requests that a file which starts at this time meets.
void Segments::DropSplits(std::int64_t time_ns) {
  std::lock_guard lock(_mutex);
  _splits.erase(_splits.begin(), _splits.upper_bound(time_ns + kRounding_ns));
}

// Whether the other tracks have packets up to a time. Ignores tracks that lag too far.
bool Segments::OthersCaughtUp(std::int64_t time_ns) const {
  for (std::size_t i = 0; i < _tracks.size(); ++i) {
    std::int64_t const end_ns = std::max(_tracks[i].end_ns, _start_ns);
    if (i == _lead || _info[i].IsText()) continue;
    if (end_ns + kRounding_ns < time_ns && end_ns + kMaxLag_ns > time_ns) return false;
  }
  return true;
}

// Ends the current file at a time and starts the next one; audio that spans the time is cut there.
bool Segments::StartNextFile(std::int64_t time_ns) {
  for (Held& held : _held) {
    PacketRef const first = CutAudio(_info[held.track], *held.packet, time_ns);
    if (first && !Write(held.track, *first)) return false;
  }
  if (!WriteHeld(time_ns, StartsBefore) || !EndFile(true)) return false;
  DropSplits(time_ns);
  BeginFile(_starts.At(time_ns));
  _begin_ns = _end_ns = time_ns;
  _formatter.BeginFile(time_ns);
  return true;
}

bool Segments::Write(std::size_t track, Packet& packet) {
  bool const written = _formatter.Write(track, packet);
  std::lock_guard lock(_mutex);
  _progress.skew_ns = _formatter.Skew_ns();
  return written;
}

// Times start at 0 in each file.
bool Segments::Store(std::size_t track, Packet& packet) {
  _end_ns = std::max(_end_ns, End_ns(packet));
  packet.Pts(packet.Pts() - _begin_ns);
  auto const size = static_cast<std::uint64_t>(packet.Size());
  if (!_file->Push(track, packet)) return false;
  bool const first = _file->Pushed() == 1;
  {
    std::lock_guard lock(_mutex);
    _progress.files += first;
    ++_progress.packets;
    _progress.bytes += size;
    _progress.duration_ns = _before_ns + _end_ns - _begin_ns;
    _progress.end_ns = _end_ns;
  }
  if (first) {
    Event opened{Event::kOpened, _file->Path(), {}};
    opened.time_ns = _begin_ns;
    _report(std::move(opened));
  }
  return true;
}

// The time for a file's name, since 1970-01-01 UTC.
std::int64_t Segments::NameTime_ns(FileStarts::Start const& start) const {
  return start.wall_ns ? *start.wall_ns : _names.Dated() ? _starts.Wall_ns() : 0;
}

void Segments::BeginFile(FileStarts::Start const& start) {
  _file = std::make_unique<FileWriter>(_options, _names.Next(NameTime_ns(start)), start.isft, _info,
                                       _packets);
  _atKey = 0;
  _leadWritten = false;
  std::lock_guard lock(_mutex);
  _progress.file = _file->Path();
  _progress.skew_ns = 0;
}

// Closes the current file and reports the outcome. `splits`: another one follows.
bool Segments::EndFile(bool splits) {
  bool const written = _formatter.EndFile();
  bool const complete = _file->Close() && written;
  FinishedFile finished{_file->Path(),   _file->Pushed(),   _end_ns - _begin_ns, complete,
                        _file->Errors(), _file->Warnings(), _file->Index(),      {}};
  if (auto const skew = _formatter.Worst(); skew.length_ns > kMentionedSkew_ns) {
    Event& warning = finished.skew.emplace();
    warning = {Event::kWarning, finished.path,
               finished.path + ": its tracks are up to " + avi::Seconds(skew.length_ns / 1000000) +
                   " apart, most at " + avi::Seconds(skew.time_ns / 1000000) +
                   (splits ? "; the next file is in sync again" : "")};
    warning.duration_ns = skew.length_ns;
    warning.time_ns = skew.time_ns;
  }
  _complete = _complete && complete;
  if (_file->Pushed() == 0) _names.GiveBack();
  _file.reset();
  _finish(std::move(finished));
  std::lock_guard lock(_mutex);
  _before_ns += _end_ns - _begin_ns;
  return complete;
}

bool Segments::Suspend() {
  bool suspended = false;
  try {
    suspended = _file && SuspendFile();
  } catch (std::exception const& error) {
    _complete = false;
    _report({Event::kError, "", error.what()});
  }
  return suspended || Fail();
}

bool Segments::SuspendFile() {
  std::string const path = _file->Path();
  if (!WriteWaiting(true) || !WriteHeld(INT64_MAX, StartsBefore) || !EndFile(false)) return false;
  _begun = false;
  _others_ns = INT64_MIN;
  for (State& state : _tracks) state.end_ns = INT64_MIN;
  _formatter.Suspend();
  BeginFile({_options.tags.isft, std::nullopt});
  std::lock_guard lock(_mutex);
  _progress.begun = false;
  _progress.file = path;
  return true;
}

bool Segments::End() {
  static_cast<void>(ISink::StatusChange(kClosed));
  if (!_file) return _complete;
  bool written = false;
  try {
    written = WriteWaiting(true) && (!_begun || WriteHeld(INT64_MAX, StartsBefore));
  } catch (std::exception const& error) {
    _report({Event::kError, "", error.what()});
  }
  if (_file) EndFile(false);
  return written && _complete;
}

}  // namespace kestro::record
