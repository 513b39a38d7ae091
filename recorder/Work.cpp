#include "recorder/Work.h"

#include <algorithm>
#include <climits>
#include <cmath>

#include "base/IClass.h"
#include "recorder/CheckOptions.h"
#include "recorder/Plugin.h"
#include "recorder/Refusal.h"

namespace kestro::record {

using stream::PacketQueue;

static constexpr std::int64_t kSecond_ns = 1000000000;
static constexpr std::int64_t kLatest_ns = INT64_MAX / 4;

Recorder::Work::Work(RecorderOptions const& options, Tracks const& tracks)
    : _options(CheckedOptions(options)),
      _starts(_options),
      _worker(options.threadless),
      _sequence(tracks.size()) {
  SortTracks(tracks);
  if (!_options.verbatim) {
    CheckTracks(_tracks);
    CheckReserve(_options, _tracks);
  }
  UseStoredRates();
  if (Result const loaded = LoadAviPlugin(_options.plugin); !loaded)
    throw Refusal(loaded.code, loaded.text);
  bool const files = _options.storage == nullptr && !_options.verbatim;
  if (files && !_lock.Take(_options.path))
    throw Refusal(Code::kBusy, _options.path + ": another recorder is writing these files");
  _packets = std::make_unique<Packets>(_tracks);
  if (_options.verbatim) {
    _file = std::make_unique<FileWriter>(_options, _options.path, _options.tags.isft, _tracks,
                                         *_packets);
    return;
  }
  auto const report = [this](Event event) { Report(std::move(event)); };
  _segments = std::make_unique<Segments>(
      _options, _tracks, *_packets, _starts, report, [this, report](FinishedFile file) {
        _worker.Post(
            [this, file = std::move(file), report] { FinishFile(file, _options, report); });
      });
  for (std::size_t i = 0; i < _tracks.size(); ++i) _inputs.push_back(&_segments->Input(i));
  if (_options.queue.enabled) MakeQueue();
}

// Puts the tracks into file order.
void Recorder::Work::SortTracks(Tracks const& tracks) {
  if (tracks.empty() || tracks.size() > 100)
    throw Refusal(Code::kInvalid, "a recording must have 1 to 100 tracks");
  _numberOf.resize(tracks.size());
  for (bool numbered : {true, false})
    for (std::size_t i = 0; i < tracks.size(); ++i) {
      if (tracks[i].Numbered() != numbered) continue;
      _numberOf[i] = _tracks.size();
      _tracks.push_back(tracks[i]);
      if (tracks[i].name.empty()) _tracks.back().name = "track " + std::to_string(i);
    }
}

// Remembers how long frames last, and makes the rates those that files store.
void Recorder::Work::UseStoredRates() {
  _frame_ns.resize(_tracks.size());
  for (std::size_t i = 0; i < _tracks.size(); ++i) {
    base::Fraction const rate = _tracks[i].frameRate;
    if (!rate.Positive()) continue;
    _frame_ns[i] =
        std::llround(1e9 * static_cast<double>(rate.den) / static_cast<double>(rate.num));
    if (!_options.verbatim) _tracks[i].frameRate = TrackInfo::StoredRate(rate);
  }
}

void Recorder::Work::MakeQueue() {
  _queue = base::Make<PacketQueue>("PacketQueue-packet-queue");
  QueueOptions const& options = _options.queue;
  if (!_queue || !_queue->Set("maxTime_ms", options.maxTime_ms) ||
      !_queue->Set("maxBytes", options.maxBytes) || !_queue->Set("drop", options.drop))
    throw Refusal(Code::kPlugin, "the host has no queue");
  for (std::size_t i = 0; i < _tracks.size(); ++i) {
    auto const track = _queue->AddTrack();
    if (!stream::IPort::Link(*track.output, *_inputs[i]) || !track.input->Offer(_packets->Media(i)))
      throw Refusal(Code::kPlugin, "the queue refuses a track");
    _inputs[i] = track.input;
  }
  if (!_queue->StatusChange(stream::IStatus::kRunning))
    throw Refusal(Code::kPlugin, "the queue cannot be started");
}

// kOk when the payload can be pushed.
Code Recorder::Work::CheckPayload(std::size_t track, Payload const& payload) const {
  auto const inRange = [](std::int64_t time_ns) {
    return time_ns >= -kLatest_ns && time_ns <= kLatest_ns;
  };
  bool const valid = track < _tracks.size() && payload.size <= INT_MAX - 16 &&
                     (payload.data != nullptr || payload.size == 0) &&
                     (payload.time_ns == Payload::kNow || inRange(payload.time_ns)) &&
                     payload.duration_ns >= 0 && inRange(payload.duration_ns);
  if (!valid) return Code::kInvalid;
  TrackInfo const& info = _tracks[_numberOf[track]];
  if (info.IsAudio() && payload.size % static_cast<std::size_t>(info.FrameBytes()) != 0 &&
      !_options.verbatim)
    return Code::kInvalid;
  return _ended ? Code::kEnded : Code::kOk;
}

std::int64_t Recorder::Work::DefaultDuration_ns(std::size_t track,
                                                stream::Packet const& packet) const {
  TrackInfo const& info = _tracks[track];
  if (info.IsText()) return 0;
  if (info.IsAudio())
    return std::int64_t{packet.Size() / info.FrameBytes()} * kSecond_ns / info.rate;
  return _frame_ns[track];
}

Code Recorder::Work::Push(std::size_t track, Payload const& payload) try {
  if (Code const code = CheckPayload(track, payload); code != Code::kOk) {
    if (payload.release != nullptr) payload.release(payload.context);
    return code;
  }
  std::size_t const number = _numberOf[track];
  auto const packet = _packets->New(number, payload);
  packet->Pts(payload.time_ns == Payload::kNow ? _options.clock() : payload.time_ns);
  packet->Duration(payload.duration_ns != 0 ? payload.duration_ns
                                            : DefaultDuration_ns(number, *packet));
  packet->Seq(_sequence[number]++);
  bool const allKeys = _tracks[number].IsAudio() || _tracks[number].codec == TrackInfo::kMjpeg;
  if (allKeys && !_options.verbatim) packet->Flags(stream::Packet::kKey);
  if (_segments && number == _segments->Lead()) _starts.Take(packet->Pts());
  bool const stored = PassOn(number, *packet);
  _worker.RunPosted();
  if (stored) return Code::kOk;
  return _ended && !_failed ? Code::kEnded : Code::kIo;
} catch (std::bad_alloc const&) {
  return Code::kMemory;
}

bool Recorder::Work::PassOn(std::size_t track, stream::Packet& packet) {
  bool taken = false;
  if (_segments) {
    taken = _inputs[track]->Push(packet);
  } else {
    std::lock_guard lock(_fileMutex);
    std::int64_t const end_ns = packet.Pts() + packet.Duration();
    taken = _file && _file->Push(track, packet);
    if (taken) _fileEnd_ns = std::max(_fileEnd_ns, end_ns);
  }
  if (!taken && !_ended) _failed = true;
  return taken;
}

void Recorder::Work::SplitAt(std::int64_t time_ns) {
  if (_segments) _segments->SplitAt(time_ns);
}

// Reports each warning and error once, even when it occurs again.
void Recorder::Work::Report(Event event) {
  constexpr std::size_t kMost = 256;
  {
    std::lock_guard lock(_mutex);
    bool const problem = event.kind == Event::kWarning || event.kind == Event::kError;
    if (problem && _reported.count(event.text) != 0) return;
    if (problem && _reported.size() < kMost) _reported.insert(event.text);
    if (problem) _last = event.text;
    if (event.kind == Event::kError && _error.empty()) _error = event.text;
    _warnings += event.kind == Event::kWarning;
  }
  if (_options.onEvent) _worker.Post([this, event = std::move(event)] { _options.onEvent(event); });
}

bool Recorder::Work::End() {
  bool const drained = !_queue || _queue->StatusChange(stream::IStatus::kClosed);
  if (_segments) return _segments->End() && drained;
  std::lock_guard lock(_fileMutex);
  if (!_file) return true;
  bool const complete = _file->Close();
  FinishedFile const finished{_file->Path(),   _file->Pushed(),   _fileEnd_ns,    complete,
                              _file->Errors(), _file->Warnings(), _file->Index(), {}};
  _file.reset();
  FinishFile(finished, _options, [this](Event event) { Report(std::move(event)); });
  return complete;
}

Result Recorder::Work::Stop() {
  _ended = true;
  if (_worker.CalledByTask()) return {};
  std::lock_guard stopping(_stopMutex);
  if (!_stopped) {
    _stopped = true;
    if (!End()) _failed = true;
    _worker.Finish();
  }
  std::lock_guard lock(_mutex);
  if (!_failed && _error.empty()) return {};
  return {Code::kIo, _error.empty() ? _options.path + ": a packet was not accepted" : _error};
}

Status Recorder::Work::GetStatus() const {
  Status status;
  if (_segments) {
    Segments::Progress const now = _segments->GetProgress();
    status.state = now.begun ? Status::kRecording : Status::kWaiting;
    if (now.failed) status.state = Status::kFailed;
    status.file = now.file;
    status.files = now.files;
    status.packets = now.packets;
    status.bytes = now.bytes;
    status.duration_ns = now.duration_ns;
    status.skew_ns = now.skew_ns;
    status.skipped = now.skipped;
  }
  if (_queue) {
    _queue->Get("waits", status.waits);
    _queue->Get("longestWait_us", status.longestWait_us);
    _queue->Get("dropped", status.dropped);
    _queue->Get("droppedGroups", status.droppedGroups);
  }
  if (_failed) status.state = Status::kFailed;
  if (_ended && !_failed) status.state = Status::kStopped;
  std::lock_guard lock(_mutex);
  status.warnings = _warnings;
  status.lastError = _last;
  return status;
}

std::string Recorder::Work::DescribeSync() const {
  if (_options.sync.mode == SyncOptions::kOff) return {};
  return SyncPlan::Describe(_options.sync, _tracks);
}

}  // namespace kestro::record
