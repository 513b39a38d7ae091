#include "recorder/Pipeline.h"

#include <algorithm>
#include <climits>
#include <utility>

#include "base/IClass.h"
#include "recorder/Refusal.h"

namespace kestro::record {

using stream::PacketQueue;

static constexpr std::int64_t kLatest_ns = INT64_MAX / 4;

Pipeline::Pipeline(RecorderOptions const& options, TrackSet tracks, SegmentNames* names,
                   Retention* retention, Events& events, Report report, Finish finish)
    : _options(options),
      _events(events),
      _tracks(std::move(tracks)),
      // Packets stay in memory for long there.
      _packets(_tracks.Infos(), options.events.only ? 0 : Packets::kMostHeld, options.verbatim),
      _starts(options),
      _finish(finish),
      _sequence(_tracks.Count()) {
  if (options.verbatim) {
    _file = std::make_unique<FileWriter>(options, options.path, options.tags.isft, _tracks.Infos(),
                                         _packets);
    return;
  }
  _segments = std::make_unique<Segments>(options, _tracks.Infos(), _packets, _starts, *names,
                                         retention, report, std::move(finish));
  if (options.events.only)
    _gate = std::make_unique<EventGate>(options, _tracks.Infos(), _packets, events, *_segments,
                                        std::move(report));
  for (std::size_t i = 0; i < _tracks.Count(); ++i)
    _inputs.push_back(_gate ? &_gate->Input(i) : &_segments->Input(i));
  if (options.queue.enabled) MakeQueue();
}

void Pipeline::MakeQueue() {
  _queue = base::Make<PacketQueue>("PacketQueue-packet-queue");
  QueueOptions const& options = _options.queue;
  if (!_queue || !_queue->Set("maxTime_ms", options.maxTime_ms) ||
      !_queue->Set("maxBytes", options.maxBytes) || !_queue->Set("drop", options.drop))
    throw Refusal(Code::kPlugin, "the host has no queue");
  for (std::size_t i = 0; i < _tracks.Count(); ++i) {
    auto const track = _queue->AddTrack();
    if (!stream::IPort::Link(*track.output, *_inputs[i]) || !track.input->Offer(_packets.Media(i)))
      throw Refusal(Code::kPlugin, "the queue refuses a track");
    _inputs[i] = track.input;
  }
  if (!_queue->StatusChange(stream::IStatus::kRunning))
    throw Refusal(Code::kPlugin, "the queue cannot be started");
}

// kOk when the payload can be pushed.
Code Pipeline::CheckPayload(std::size_t track, Payload const& payload) const {
  auto const inRange = [](std::int64_t time_ns) {
    return time_ns >= -kLatest_ns && time_ns <= kLatest_ns;
  };
  bool const valid = track < _tracks.Count() && payload.size <= INT_MAX - 16 &&
                     (payload.data != nullptr || payload.size == 0) &&
                     (payload.time_ns == Payload::kNow || inRange(payload.time_ns)) &&
                     payload.duration_ns >= 0 && inRange(payload.duration_ns);
  if (!valid) return Code::kInvalid;
  TrackInfo const& info = _tracks.Info(_tracks.NumberOf(track));
  if (info.IsAudio() && payload.size % static_cast<std::size_t>(info.FrameBytes()) != 0 &&
      !_options.verbatim)
    return Code::kInvalid;
  return _ending ? Code::kEnded : Code::kOk;
}

Code Pipeline::Push(std::size_t track, Payload const& payload) {
  if (Code const code = CheckPayload(track, payload); code != Code::kOk) {
    if (payload.release != nullptr) payload.release(payload.context);
    return code;
  }
  std::size_t const number = _tracks.NumberOf(track);
  auto const packet = _packets.New(number, payload);
  packet->Pts(payload.time_ns == Payload::kNow ? _options.clock() : payload.time_ns);
  packet->Duration(payload.duration_ns != 0 ? payload.duration_ns
                                            : _tracks.Duration_ns(number, *packet));
  packet->Seq(_sequence[number]++);
  TrackInfo const& info = _tracks.Info(number);
  bool const allKeys = info.IsAudio() || info.codec == TrackInfo::kMjpeg;
  if (allKeys && !_options.verbatim) packet->Flags(stream::Packet::kKey);
  if (_segments && number == _segments->Lead()) _starts.Take(packet->Pts());
  _events.Pushed(packet->Pts(), packet->Pts() + packet->Duration());
  if (PassOn(number, *packet)) return Code::kOk;
  return _failed ? Code::kIo : Code::kEnded;
}

bool Pipeline::PassOn(std::size_t track, stream::Packet& packet) {
  bool taken = false;
  if (_segments) {
    taken = _inputs[track]->Push(packet);
  } else {
    std::lock_guard lock(_fileMutex);
    std::int64_t const end_ns = packet.Pts() + packet.Duration();
    taken = _file && _file->Push(track, packet);
    if (taken) _fileEnd_ns = std::max(_fileEnd_ns, end_ns);
  }
  if (!taken && !_ending) _failed = true;
  return taken;
}

void Pipeline::SplitAt(std::int64_t time_ns) {
  if (_segments) _segments->SplitAt(time_ns);
}

void Pipeline::Wake() {
  if (_gate && !_ending) _gate->Wake();
}

std::int64_t Pipeline::Stored_ns() const {
  return _segments ? _segments->GetProgress().end_ns : INT64_MIN;
}

bool Pipeline::End() {
  _ending = true;
  std::lock_guard ending(_endMutex);
  if (!std::exchange(_ended, true) && !Close()) _failed = true;
  return !_failed;
}

bool Pipeline::Close() {
  bool const drained = !_queue || _queue->StatusChange(stream::IStatus::kClosed);
  bool const passed = !_gate || _gate->End();
  return (_segments ? _segments->End() : CloseFile()) && drained && passed;
}

bool Pipeline::CloseFile() {
  std::lock_guard lock(_fileMutex);
  if (!_file) return true;
  bool const complete = _file->Close();
  _finish({_file->Path(),
           _file->Pushed(),
           _fileEnd_ns,
           complete,
           _file->Errors(),
           _file->Warnings(),
           _file->Index(),
           {}});
  _file.reset();
  return complete;
}

void Pipeline::AddTo(Status& status) const {
  if (_segments) {
    Segments::Progress const now = _segments->GetProgress();
    status.state = now.begun ? Status::kRecording : Status::kWaiting;
    if (now.failed) status.state = Status::kFailed;
    status.file = now.file;
    status.files += now.files;
    status.packets += now.packets;
    status.bytes += now.bytes;
    status.duration_ns += now.duration_ns;
    status.skew_ns = now.skew_ns;
    status.skipped += now.skipped;
    if (_gate) _gate->AddTo(status);
  }
  if (_queue) {
    Status own;
    _queue->Get("waits", own.waits);
    _queue->Get("longestWait_us", own.longestWait_us);
    _queue->Get("dropped", own.dropped);
    _queue->Get("droppedGroups", own.droppedGroups);
    status.waits += own.waits;
    status.longestWait_us = std::max(status.longestWait_us, own.longestWait_us);
    status.dropped += own.dropped;
    status.droppedGroups += own.droppedGroups;
  }
  if (_failed) status.state = Status::kFailed;
}

std::string Pipeline::DescribeSync() const {
  if (_options.sync.mode == SyncOptions::kOff) return {};
  return SyncPlan::Describe(_options.sync, _tracks.Infos());
}

}  // namespace kestro::record
