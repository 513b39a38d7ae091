#include "Segments.h"

#include <algorithm>
#include <cmath>
#include <filesystem>

#include "Console.h"
#include "Errors.h"
#include "Text.h"
#include "avi/AviFile.h"

namespace kestro::tool {

using stream::Packet;

// Times are rounded to nanoseconds.
static constexpr std::int64_t kRounding_ns = 1000;
// Other tracks wait so long for the leading one.
static constexpr std::int64_t kPatience_ns = 1000000000;

static std::int64_t End_ns(Packet const& packet) { return packet.Pts() + packet.Duration(); }

// Whether all of a packet lies in front of a time.
static bool Before(Packet const& packet, std::int64_t time_ns) {
  return packet.Pts() + kRounding_ns < time_ns && End_ns(packet) <= time_ns + kRounding_ns;
}

static bool Begins(Packet const& packet, std::int64_t time_ns) {
  return packet.Pts() + kRounding_ns < time_ns;
}

static void Add(std::vector<std::string>& list, std::vector<std::string> const& more) {
  for (std::string const& text : more)
    if (std::find(list.begin(), list.end(), text) == list.end()) list.push_back(text);
}

Segments::Segments(SegmentOptions const& options, RecorderOptions const& recorder,
                   std::vector<Track*> const& tracks, Packets const& packets, SegmentNames& names)
    : ISink("Segments"),
      _options(options),
      _recorderOptions(recorder),
      _list(tracks),
      _packets(packets),
      _names(names) {
  for (std::size_t i = 0; i < tracks.size(); ++i) {
    _tracks.push_back({AddInput(), &tracks[i]->Info(), {}});
    _tracks[i].input->Offer(packets.Media(i));
  }
  auto const video = std::find_if(_tracks.begin(), _tracks.end(), [](State const& state) {
    return state.info->kind == TrackInfo::kVideo;
  });
  if (video != _tracks.end()) _lead = static_cast<std::size_t>(video - _tracks.begin());
  _recorder = std::make_unique<Recorder>(_recorderOptions, _names.Next(), _list, _packets);
  ISink::StatusChange(kRunning);
}

Segments::~Segments() {
  Detach();
  Finish();
}

// An exception must not pass through the host.
bool Segments::ReceivePacket(Packet& packet, void* context) {
  if (!_recorder) return false;
  auto const track = std::find_if(_tracks.begin(), _tracks.end(),
                                  [context](State const& state) { return state.input == context; });
  auto own = PacketRef::Take(packet.Share());
  try {
    auto const number = static_cast<std::size_t>(track - _tracks.begin());
    return number == _lead ? Lead(own) : Follow(number, std::move(own));
  } catch (std::exception const& error) {
    _errors.push_back(error.what());
    return false;
  }
}

bool Segments::Lead(PacketRef const& packet) {
  std::int64_t const time_ns = packet->Pts(), next_ns = End_ns(*packet);
  if (packet->IsKey()) {
    _largest = std::max(_largest, _recorder->Written() - _atKey);
    _atKey = _recorder->Written();
    if (Due(time_ns) && !Switch(time_ns)) return false;
  }
  // Text lies in front of its frame.
  if (!Release(next_ns, Before) || !Write(_lead, *packet)) return false;
  _begun = true;
  _next_ns = next_ns;
  return true;
}

bool Segments::Follow(std::size_t track, PacketRef packet) {
  std::int64_t const time_ns = packet->Pts();
  if (Before(*packet, _next_ns)) {
    _others_ns = std::max(_others_ns, End_ns(*packet));
    return Write(track, *packet);
  }
  _held.push_back({track, std::move(packet)});
  return time_ns <= _next_ns + kPatience_ns || Release(INT64_MAX, Begins);
}

// Writes of what waits the packets that lie, or begin, in front of a time.
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

// Whether a key frame at that time begins a new file.
bool Segments::Due(std::int64_t time_ns) const {
  if (!_begun || _others_ns > time_ns + kRounding_ns) return false;
  if (_options.time_ns >= 0 && time_ns + kRounding_ns >= _begin_ns + _options.time_ns) return true;
  std::uint64_t waiting = 0;
  for (Held const& held : _held) waiting += static_cast<std::uint64_t>(held.packet->Size()) + 32;
  return _recorder->Size() + waiting + _largest / 4 * 5 > _options.size;
}

// Ends the file in front of a time; what goes on beyond it is cut there.
bool Segments::Switch(std::int64_t time_ns) {
  for (Held& held : _held) {
    TrackInfo const& info = *_tracks[held.track].info;
    std::int64_t const ahead_ns = time_ns - held.packet->Pts();
    if (info.kind != TrackInfo::kSound || ahead_ns <= kRounding_ns || Before(*held.packet, time_ns))
      continue;
    int const frame = 2 * info.channels;
    auto const samples = std::llround(static_cast<double>(ahead_ns) * info.rate / 1e9);
    int const bytes = std::min(held.packet->Size(), static_cast<int>(samples) * frame);
    auto const first = PacketRef::Take(held.packet->Share());
    first->Size(bytes);
    first->Duration(ahead_ns);
    if (!Write(held.track, *first)) return false;
    held.packet->Duration(End_ns(*held.packet) - time_ns);
    held.packet->Pts(time_ns);
    held.packet->Offset(held.packet->Offset() + bytes);
  }
  if (!Release(time_ns, Begins) || !EndFile()) return false;
  _recorder = std::make_unique<Recorder>(_recorderOptions, _names.Next(), _list, _packets);
  _begin_ns = _end_ns = time_ns;
  _atKey = 0;
  _begun = false;
  return true;
}

bool Segments::Write(std::size_t track, Packet& packet) {
  State& state = _tracks[track];
  TrackInfo const& info = *state.info;
  if (info.kind != TrackInfo::kSound || track == _lead) return Store(track, packet);
  // Readers take all blocks to be as long as the first one.
  bool const whole = packet.Size() == info.samples * info.channels * 2;
  if (state.rest.empty() && whole) return Store(track, packet);
  if (state.rest.empty()) state.rest_ns = packet.Pts();
  state.rest.insert(state.rest.end(), packet.Data(), packet.Data() + packet.Size());
  return WriteBlocks(track, false);
}

// Writes the sound that fills blocks, and the last one as it is.
bool Segments::WriteBlocks(std::size_t track, bool last) {
  State& state = _tracks[track];
  TrackInfo const& info = *state.info;
  auto const frame = static_cast<std::size_t>(info.channels) * 2;
  std::size_t const block = static_cast<std::size_t>(info.samples) * frame;
  while (!state.rest.empty() && (last || state.rest.size() >= block)) {
    std::size_t const size = std::min(block, state.rest.size());
    TimedPacket piece;
    piece.data = Bytes(state.rest.begin(), state.rest.begin() + static_cast<std::ptrdiff_t>(size));
    piece.time_ns = state.rest_ns;
    piece.duration_ns = static_cast<std::int64_t>(size / frame) * 1000000000 / info.rate;
    piece.key = true;
    state.rest.erase(state.rest.begin(), state.rest.begin() + static_cast<std::ptrdiff_t>(size));
    state.rest_ns += piece.duration_ns;
    if (!Store(track, *_packets.New(track, piece))) return false;
  }
  return true;
}

// Each file's times begin at 0.
bool Segments::Store(std::size_t track, Packet& packet) {
  _end_ns = std::max(_end_ns, End_ns(packet));
  packet.Pts(packet.Pts() - _begin_ns);
  if (!_recorder->Push(track, packet)) return false;
  ++_pushed;
  return true;
}

// What is in a file. Not all that was taken is when the device failed, or was full and the last
// packets made room for the index.
static std::string Content(std::string const& path, std::uint64_t taken, std::int64_t duration_ms,
                           bool complete) {
  std::string const packets = Quantity(taken, "packet") + ", ";
  if (complete) return packets + Seconds(duration_ms);
  std::uint64_t kept = 0;
  try {
    AviFile const avi(path);
    for (AviTrack const& track : avi.Tracks()) kept += track.chunks;
    duration_ms = avi.Duration_ms();
  } catch (Error const&) {
    duration_ms = 0;
  }
  return "kept " + std::to_string(kept) + " of " + packets + Seconds(duration_ms);
}

// Closes the current file and says what it has become.
bool Segments::EndFile() {
  bool complete = true;
  for (std::size_t i = 0; i < _tracks.size() && complete; ++i) complete = WriteBlocks(i, true);
  complete = _recorder->Close() && complete;
  Add(_errors, _recorder->Errors());
  Add(_warnings, _recorder->Warnings());
  std::string const path = _recorder->Path();
  std::error_code none;
  std::uint64_t const size = std::filesystem::file_size(path, none);
  if (_recorder->Pushed() != 0 && !none) {
    Report(path + ": " +
           Content(path, _recorder->Pushed(), (_end_ns - _begin_ns) / 1000000, complete) + ", " +
           ByteCount(size));
    if (size > _options.size)
      _warnings.push_back(path + ": is larger than " + ByteCount(_options.size) +
                          ": no key frame came in time");
  }
  _recorder.reset();
  return complete;
}

bool Segments::Finish() {
  ISink::StatusChange(kClosed);
  if (!_recorder) return _errors.empty();
  bool const written = Release(INT64_MAX, Begins);
  return EndFile() && written && _errors.empty();
}

}  // namespace kestro::tool
