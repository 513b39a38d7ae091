#include "recorder/Segments.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "recorder/Refusal.h"
#include "stream/NalUnits.h"

namespace kestro::record {

using stream::Packet;

// Times are rounded to nanoseconds.
static constexpr std::int64_t kRounding_ns = 1000;
// Other tracks wait so long for the leading one.
static constexpr std::int64_t kPatience_ns = 1000000000;
// What begins a file waits for the others as long as these are no further behind, ...
static constexpr std::int64_t kFarBehind_ns = 10000000000;
static constexpr std::uint64_t kMostWaiting = 64 << 20;  // ... and so many bytes wait at most
// Audio that begins later than the recording by more than this is preceded by silence.
static constexpr std::int64_t kTolerance_ns = 40000000;

static std::int64_t End_ns(Packet const& packet) { return packet.Pts() + packet.Duration(); }

// Whether all of a packet lies before a time.
static bool Before(Packet const& packet, std::int64_t time_ns) {
  return packet.Pts() + kRounding_ns < time_ns && End_ns(packet) <= time_ns + kRounding_ns;
}

static bool Begins(Packet const& packet, std::int64_t time_ns) {
  return packet.Pts() + kRounding_ns < time_ns;
}

Segments::Segments(RecorderOptions const& options, Tracks const& tracks, Packets const& packets,
                   Report report, Finish finish)
    : ISink("Segments"),
      _options(options),
      _info(tracks),
      _packets(packets),
      _report(std::move(report)),
      _finish(std::move(finish)),
      _names(options) {
  for (std::size_t i = 0; i < tracks.size(); ++i) {
    _tracks.emplace_back().input = AddInput();
    if (!_tracks[i].input->Offer(packets.Media(i)))
      throw Refusal(Code::kUnsupported, tracks[i].name + ": the track is refused");
    std::string const& sets = tracks[i].parameterSets;
    _tracks[i].sets.assign(sets.begin(), sets.end());
  }
  auto const first = [&tracks](bool (TrackInfo::*is)() const) {
    return std::find_if(tracks.begin(), tracks.end(),
                        [is](TrackInfo const& info) { return (info.*is)(); });
  };
  auto lead = first(&TrackInfo::IsVideo);
  if (lead == tracks.end()) lead = first(&TrackInfo::IsAudio);
  _lead = static_cast<std::size_t>(lead - tracks.begin());
  BeginFile();
  static_cast<void>(ISink::StatusChange(kRunning));  // a sink without steps of its own
}

Segments::~Segments() {
  Detach();
  End();
}

Segments::Progress Segments::Now() const {
  std::lock_guard lock(_mutex);
  return _progress;
}

// An exception must not pass through the host.
bool Segments::ReceivePacket(Packet& packet, void* context) {
  if (!_file) return false;
  auto const track = std::find_if(_tracks.begin(), _tracks.end(),
                                  [context](State const& state) { return state.input == context; });
  bool good = false;
  try {
    good = Receive(static_cast<std::size_t>(track - _tracks.begin()), packet.Share());
  } catch (std::exception const& error) {
    _whole = false;
    _report({Event::kError, _file ? _file->Path() : "", error.what()});
  }
  if (good) return true;
  if (_file)
    for (std::string const& text : _file->Errors()) _report({Event::kError, _file->Path(), text});
  std::lock_guard lock(_mutex);
  _progress.failed = true;
  return false;
}

bool Segments::Receive(std::size_t track, PacketRef packet) {
  State& state = _tracks[track];
  state.reach_ns = std::max(state.reach_ns, End_ns(*packet));
  if (track != _lead) return Follow(track, std::move(packet)) && Advance(false);
  if (!_begun && !packet->IsKey() && _info[track].IsVideo()) {
    std::lock_guard lock(_mutex);
    ++_progress.skipped;
    return true;
  }
  if (!_begun) Begin(packet->Pts());
  _waitingBytes += static_cast<std::uint64_t>(packet->Size());
  _waiting.push_back(std::move(packet));
  return Advance(false);
}

// The recording begins: what the other tracks have before this is left out.
void Segments::Begin(std::int64_t time_ns) {
  _begun = true;
  _start_ns = _begin_ns = _end_ns = _next_ns = time_ns;
  std::size_t const all = _held.size();
  for (Held& held : _held) Cut(held, time_ns);
  _held.erase(std::remove_if(_held.begin(), _held.end(),
                             [time_ns](Held const& held) { return Begins(*held.packet, time_ns); }),
              _held.end());
  std::lock_guard lock(_mutex);
  _progress.begun = true;
  _progress.skipped += all - _held.size();
}

// Writes the leading track's packets. One that begins a file waits until the other tracks have come
// as far.
bool Segments::Advance(bool all) {
  while (!_waiting.empty()) {
    Packet const& first = *_waiting.front();
    std::int64_t const time_ns = first.Pts();
    bool const due = first.IsKey() && Due(first);
    bool const patient =
        !all && _waitingBytes <= kMostWaiting && End_ns(*_waiting.back()) < time_ns + kFarBehind_ns;
    if (due && patient && !OthersReach(time_ns)) return true;
    PacketRef const packet = std::move(_waiting.front());
    _waiting.pop_front();
    _waitingBytes -= static_cast<std::uint64_t>(packet->Size());
    if (!Lead(packet, due)) return false;
  }
  return true;
}

bool Segments::Lead(PacketRef const& packet, bool due) {
  std::int64_t const time_ns = packet->Pts(), next_ns = End_ns(*packet);
  if (packet->IsKey()) {
    _largest = std::max(_largest, _file->Written() - _atKey);
    _atKey = _file->Written();
    if (due && !Switch(time_ns)) return false;
  }
  // A text precedes its frame.
  if (!Release(next_ns, Before) || !Write(_lead, *packet)) return false;
  _led = true;
  _next_ns = next_ns;
  return true;
}

bool Segments::Follow(std::size_t track, PacketRef packet) {
  std::int64_t const time_ns = packet->Pts();
  if (_begun && Before(*packet, _next_ns)) {
    _others_ns = std::max(_others_ns, End_ns(*packet));
    return Write(track, *packet);
  }
  _held.push_back({track, std::move(packet)});
  if (_begun)
    return time_ns <= _next_ns + kPatience_ns || !_waiting.empty() || Release(INT64_MAX, Begins);
  std::lock_guard lock(_mutex);
  for (; _held.front().packet->Pts() + kFarBehind_ns < time_ns; _held.pop_front())
    ++_progress.skipped;
  return true;
}

// Writes of what waits the packets that lie, or begin, before a time.
bool Segments::Release(std::int64_t time_ns, bool (*goes)(stream::Packet const&, std::int64_t)) {
  if (_held.empty()) return true;
  auto const stays = std::stable_partition(
      _held.begin(), _held.end(), [=](Held const& held) { return goes(*held.packet, time_ns); });
  std::deque<Held> ready(std::make_move_iterator(_held.begin()), std::make_move_iterator(stays));
  _held.erase(_held.begin(), stays);
  for (Held& held : ready) {
    _others_ns = std::max(_others_ns, End_ns(*held.packet));
    if (!Write(held.track, *held.packet)) return false;
  }
  return true;
}

// Whether a key frame of the leading track begins a new file.
bool Segments::Due(Packet const& key) const {
  std::int64_t const time_ns = key.Pts();
  if (!_led || _others_ns > time_ns + kRounding_ns) return false;
  SegmentOptions const& options = _options.segments;
  if (_split) return true;
  if (options.time_ns >= 0 && time_ns + kRounding_ns >= _begin_ns + options.time_ns) return true;
  std::uint64_t waiting = 0;
  for (Held const& held : _held) waiting += static_cast<std::uint64_t>(held.packet->Size()) + 32;
  std::uint64_t const largest = std::max(_largest, _file->Written() - _atKey);
  return _file->Size() + waiting + largest / 4 * 5 > options.size;
}

// Whether the other tracks have come as far; those that are far behind are not waited for.
bool Segments::OthersReach(std::int64_t time_ns) const {
  for (std::size_t i = 0; i < _tracks.size(); ++i) {
    std::int64_t const reach_ns = std::max(_tracks[i].reach_ns, _start_ns);
    if (i == _lead || _info[i].IsText()) continue;
    if (reach_ns + kRounding_ns < time_ns && reach_ns + kFarBehind_ns > time_ns) return false;
  }
  return true;
}

// Cuts audio that reaches beyond a time: returns what precedes it, and keeps the rest. Null where
// nothing is to be cut.
Segments::PacketRef Segments::Cut(Held& held, std::int64_t time_ns) {
  TrackInfo const& info = _info[held.track];
  std::int64_t const ahead_ns = time_ns - held.packet->Pts();
  if (!info.IsAudio() || ahead_ns <= kRounding_ns || Before(*held.packet, time_ns)) return {};
  auto const samples = std::llround(static_cast<double>(ahead_ns) * info.rate / 1e9);
  int const bytes =
      static_cast<int>(std::min<long long>(held.packet->Size(), samples * info.FrameBytes()));
  PacketRef first = held.packet->Share();
  first->Size(bytes);
  first->Duration(ahead_ns);
  held.packet->Duration(End_ns(*held.packet) - time_ns);
  held.packet->Pts(time_ns);
  held.packet->Offset(held.packet->Offset() + bytes);
  return first;
}

// Ends the file before a time; what goes on beyond it is cut there.
bool Segments::Switch(std::int64_t time_ns) {
  for (Held& held : _held)
    if (PacketRef const first = Cut(held, time_ns); first && !Write(held.track, *first))
      return false;
  if (!Release(time_ns, Begins) || !EndFile()) return false;
  BeginFile();
  _begin_ns = _end_ns = time_ns;
  return true;
}

bool Segments::Write(std::size_t track, Packet& packet) {
  if (_info[track].IsAudio()) return WriteAudio(track, packet);
  return _info[track].TakesParameterSets() ? WriteVideo(track, packet) : Store(track, packet);
}

// Readers take all blocks to be as long as the first one.
bool Segments::WriteAudio(std::size_t track, Packet& packet) {
  State& state = _tracks[track];
  TrackInfo const& info = _info[track];
  auto const frame = static_cast<std::size_t>(info.FrameBytes());
  std::size_t const block = static_cast<std::size_t>(info.samples) * frame;
  if (!std::exchange(state.begun, true) && packet.Pts() - _begin_ns > kTolerance_ns) {
    auto late = static_cast<std::size_t>(
        std::llround(static_cast<double>(packet.Pts() - _begin_ns) * info.rate / 1e9));
    state.stored_ns = packet.Pts() - _begin_ns;
    for (state.rest_ns = _begin_ns; late > 0;) {
      std::size_t const some = std::min(late, static_cast<std::size_t>(info.samples));
      state.rest.resize(state.rest.size() + some * frame);
      late -= some;
      if (!WriteBlocks(track, false)) return false;
    }
  }
  Measure(state, packet, packet.Duration());
  bool const whole = static_cast<std::size_t>(packet.Size()) == block;
  if (state.rest.empty() && whole) return Store(track, packet);
  if (state.rest.empty()) state.rest_ns = packet.Pts();
  state.rest.insert(state.rest.end(), packet.Data(), packet.Data() + packet.Size());
  return WriteBlocks(track, false);
}

// Writes the audio that fills blocks, and the last one as it is.
bool Segments::WriteBlocks(std::size_t track, bool last) {
  State& state = _tracks[track];
  TrackInfo const& info = _info[track];
  auto const frame = static_cast<std::size_t>(info.FrameBytes());
  std::size_t const block = static_cast<std::size_t>(info.samples) * frame;
  std::size_t done = 0;
  while (done < state.rest.size() && (last || state.rest.size() - done >= block)) {
    Payload piece;
    piece.data = state.rest.data() + done;
    piece.size = std::min(block, state.rest.size() - done);
    piece.key = true;
    auto const packet = _packets.New(track, piece);
    packet->Pts(state.rest_ns);
    packet->Duration(static_cast<std::int64_t>(piece.size / frame) * 1000000000 / info.rate);
    state.rest_ns += packet->Duration();
    done += piece.size;
    if (!Store(track, *packet)) return false;
  }
  state.rest.erase(state.rest.begin(), state.rest.begin() + static_cast<std::ptrdiff_t>(done));
  return true;
}

// A file's first key frame has parameter sets.
bool Segments::WriteVideo(std::size_t track, Packet& packet) {
  State& state = _tracks[track];
  Measure(state, packet, packet.Duration());
  if (!packet.IsKey()) return Store(track, packet);
  bool const hevc = _info[track].codec == TrackInfo::kHevc;
  auto const own = stream::ParameterSets(hevc, packet.Data(), packet.Size());
  if (!own.empty()) state.sets = own;
  if (!std::exchange(state.fresh, false) || !own.empty() || state.sets.empty())
    return Store(track, packet);
  Payload whole;
  Bytes bytes = state.sets;
  bytes.insert(bytes.end(), packet.Data(), packet.Data() + packet.Size());
  whole.data = bytes.data();
  whole.size = bytes.size();
  whole.key = true;
  auto const longer = _packets.New(track, whole);
  longer->Pts(packet.Pts());
  longer->Duration(packet.Duration());
  return Store(track, *longer);
}

// What is stored has no times but those that follow from counting.
void Segments::Measure(State& state, Packet const& packet, std::int64_t length_ns) {
  state.lag_ns = packet.Pts() - _begin_ns - state.stored_ns;
  state.stored_ns += length_ns;
  std::int64_t least = INT64_MAX, most = INT64_MIN;
  for (std::size_t i = 0; i < _tracks.size(); ++i) {
    if (_info[i].IsText() || _tracks[i].stored_ns == 0) continue;
    least = std::min(least, _tracks[i].lag_ns);
    most = std::max(most, _tracks[i].lag_ns);
  }
  std::lock_guard lock(_mutex);
  _progress.skew_ns = most - least;
}

// Each file's times begin at 0.
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
  }
  if (first) _report({Event::kOpened, _file->Path(), {}});
  return true;
}

void Segments::BeginFile() {
  _file = std::make_unique<FileWriter>(_options, _names.Next(), _info, _packets);
  _atKey = 0;
  _led = false;
  _split = false;
  for (State& state : _tracks) {
    state.stored_ns = state.lag_ns = 0;
    state.fresh = true;
  }
  std::lock_guard lock(_mutex);
  _progress.file = _file->Path();
  _progress.skew_ns = 0;
}

// Closes the current file and reports what has become of it.
bool Segments::EndFile() {
  bool complete = true;
  for (std::size_t i = 0; i < _tracks.size() && complete; ++i)
    if (_info[i].IsAudio()) complete = WriteBlocks(i, true);
  complete = _file->Close() && complete;
  FinishedFile finished{_file->Path(),   _file->Pushed(),   _end_ns - _begin_ns, complete,
                        _file->Errors(), _file->Warnings(), _file->Index()};
  _whole = _whole && complete;
  _file.reset();
  _finish(std::move(finished));
  std::lock_guard lock(_mutex);
  _before_ns += _end_ns - _begin_ns;
  return complete;
}

bool Segments::End() {
  static_cast<void>(ISink::StatusChange(kClosed));
  if (!_file) return _whole;
  bool written = false;
  try {
    written = Advance(true) && (!_begun || Release(INT64_MAX, Begins));
  } catch (std::exception const& error) {
    _report({Event::kError, "", error.what()});
  }
  if (_file) EndFile();
  return written && _whole;
}

}  // namespace kestro::record
