#include "recorder/TrackFormatter.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "stream/NalUnits.h"

namespace kestro::record {

using stream::Packet;

// Audio that starts later than its file by more than this is preceded by silence.
static constexpr std::int64_t kTolerance_ns = 40000000;

TrackFormatter::TrackFormatter(Tracks const& tracks, Packets const& packets, Store store)
    : _info(tracks), _packets(packets), _store(std::move(store)), _tracks(tracks.size()) {
  for (std::size_t i = 0; i < tracks.size(); ++i) {
    std::string const& sets = tracks[i].parameterSets;
    _tracks[i].sets.assign(sets.begin(), sets.end());
  }
}

void TrackFormatter::BeginFile(std::int64_t begin_ns) {
  _begin_ns = begin_ns;
  _skew_ns = 0;
  _worst = {};
  for (State& state : _tracks) {
    state.stored_ns = 0;
    state.times.added = state.lags.added = 0;
    state.fresh = true;
  }
}

void TrackFormatter::Suspend() {
  for (State& state : _tracks) state.begun = false;
}

void TrackFormatter::TakeParameterSets(std::size_t track, Packet const& key) {
  if (_info[track].TakesParameterSets()) NoteParameterSets(track, key);
}

bool TrackFormatter::Write(std::size_t track, Packet& packet) {
  if (_info[track].IsText()) return _store(track, packet);
  return _info[track].IsAudio() ? WriteAudio(track, packet) : WriteVideo(track, packet);
}

bool TrackFormatter::EndFile() {
  for (std::size_t i = 0; i < _tracks.size(); ++i)
    if (_info[i].IsAudio() && !WriteBlocks(i, true)) return false;
  return true;
}

base::Ref<Packet> TrackFormatter::NewKeyPacket(std::size_t track, void const* data,
                                               std::size_t size, std::int64_t time_ns,
                                               std::int64_t duration_ns) const {
  Payload payload;
  payload.data = data;
  payload.size = size;
  payload.key = true;
  auto packet = _packets.New(track, payload);
  packet->Pts(time_ns);
  packet->Duration(duration_ns);
  return packet;
}

std::size_t TrackFormatter::BlockBytes(std::size_t track) const {
  TrackInfo const& info = _info[track];
  return static_cast<std::size_t>(info.samples) * static_cast<std::size_t>(info.FrameBytes());
}

// Readers assume that all blocks are as long as the first one.
bool TrackFormatter::WriteAudio(std::size_t track, Packet& packet) {
  State& state = _tracks[track];
  std::int64_t const late_ns = packet.Pts() - _begin_ns;
  if (!std::exchange(state.begun, true) && late_ns > kTolerance_ns && !WriteSilence(track, late_ns))
    return false;
  UpdateSkew(state, packet);
  bool const whole = static_cast<std::size_t>(packet.Size()) == BlockBytes(track);
  if (state.rest.empty() && whole) return _store(track, packet);
  if (state.rest.empty()) state.rest_ns = packet.Pts();
  state.rest.insert(state.rest.end(), packet.Data(), packet.Data() + packet.Size());
  return WriteBlocks(track, false);
}

// Fills the beginning of the file.
bool TrackFormatter::WriteSilence(std::size_t track, std::int64_t duration_ns) {
  State& state = _tracks[track];
  TrackInfo const& info = _info[track];
  auto samples = std::llround(static_cast<double>(duration_ns) * info.rate / 1e9);
  state.stored_ns = duration_ns;
  state.rest_ns = _begin_ns;
  while (samples > 0) {
    auto const some = std::min<long long>(samples, info.samples);
    state.rest.resize(state.rest.size() + static_cast<std::size_t>(some * info.FrameBytes()));
    samples -= some;
    if (!WriteBlocks(track, false)) return false;
  }
  return true;
}

// Writes the audio that fills blocks and, if `last`, the remainder as a shorter block.
bool TrackFormatter::WriteBlocks(std::size_t track, bool last) {
  State& state = _tracks[track];
  TrackInfo const& info = _info[track];
  std::size_t const block = BlockBytes(track);
  std::size_t done = 0;
  while (done < state.rest.size() && (last || state.rest.size() - done >= block)) {
    std::size_t const size = std::min(block, state.rest.size() - done);
    auto const samples = static_cast<std::int64_t>(size) / info.FrameBytes();
    auto const packet = NewKeyPacket(track, state.rest.data() + done, size, state.rest_ns,
                                     samples * 1000000000 / info.rate);
    state.rest_ns += packet->Duration();
    done += size;
    if (!_store(track, *packet)) return false;
  }
  state.rest.erase(state.rest.begin(), state.rest.begin() + static_cast<std::ptrdiff_t>(done));
  return true;
}

// Adds the last parameter sets to the first key frame of a file that has none.
bool TrackFormatter::WriteVideo(std::size_t track, Packet& packet) {
  State& state = _tracks[track];
  UpdateSkew(state, packet);
  if (!packet.IsKey() || !_info[track].TakesParameterSets()) return _store(track, packet);
  bool const own = NoteParameterSets(track, packet);
  if (!std::exchange(state.fresh, false) || own || state.sets.empty()) return _store(track, packet);
  Bytes bytes = state.sets;
  bytes.insert(bytes.end(), packet.Data(), packet.Data() + packet.Size());
  auto const longer =
      NewKeyPacket(track, bytes.data(), bytes.size(), packet.Pts(), packet.Duration());
  return _store(track, *longer);
}

// False when the key frame has none.
bool TrackFormatter::NoteParameterSets(std::size_t track, Packet const& key) {
  bool const hevc = _info[track].codec == TrackInfo::kHevc;
  auto own = stream::ParameterSets(hevc, key.Data(), key.Size());
  if (own.empty()) return false;
  _tracks[track].sets = std::move(own);
  return true;
}

// A file stores no times: readers add up the durations of frames and samples.
void TrackFormatter::UpdateSkew(State& state, Packet const& packet) {
  std::int64_t const time_ns = packet.Pts() - _begin_ns;
  state.times.Add(time_ns);
  state.lags.Add(state.times.Most() - state.stored_ns);
  state.stored_ns += packet.Duration();
  std::int64_t least = INT64_MAX, most = INT64_MIN;
  for (State const& one : _tracks) {
    if (one.lags.added == 0) continue;
    least = std::min(least, one.lags.Least());
    most = std::max(most, one.lags.Least());
  }
  _skew_ns = most - least;
  if (_skew_ns > _worst.length_ns) _worst = {_skew_ns, time_ns};
}

}  // namespace kestro::record
