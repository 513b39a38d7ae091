#include "recorder/Work.h"

#include <new>
#include <utility>

#include "avi/NamePattern.h"
#include "recorder/CheckOptions.h"
#include "recorder/Plugin.h"
#include "recorder/Refusal.h"

namespace kestro::record {

Recorder::Work::Work(RecorderOptions const& options, Tracks const& tracks)
    : _options(CheckedOptions(options)),
      _worker(options.threadless),
      _events(_options, [this](record::Event event) { Report(std::move(event)); }) {
  TrackSet set(_options, tracks);
  if (Result const loaded = LoadAviPlugin(_options.plugin); !loaded)
    throw Refusal(loaded.code, loaded.text);
  bool const files = _options.storage == nullptr && !_options.verbatim;
  if (files && !_lock.Take(_options.path))
    throw Refusal(Code::kBusy, _options.path + ": another recorder is writing these files");
  if (_options.retention.Any()) LimitSpace();
  if (!_options.verbatim) _names = std::make_unique<SegmentNames>(_options);
  _current = NewPipeline(std::move(set));
  if (_retention) _retention->Start();
}

void Recorder::Work::LimitSpace() {
  _retention = std::make_unique<Retention>(
      _options,
      Retention::Hooks{{[this](record::Event event) { Report(std::move(event)); },
                        [this](std::string const& path) { return _events.IsProtected(path); }},
                       [this] { SplitAt(INT64_MIN); }});
  _options.storage = &_retention->Files();
}

std::shared_ptr<Pipeline> Recorder::Work::NewPipeline(TrackSet tracks) {
  return std::make_shared<Pipeline>(
      _options, std::move(tracks), _names.get(), _retention.get(), _events,
      [this](record::Event event) { Report(std::move(event)); },
      [this](FinishedFile file) { Finish(std::move(file)); });
}

std::shared_ptr<Pipeline> Recorder::Work::Current() const {
  std::lock_guard lock(_mutex);
  return _current;
}

Code Recorder::Work::Push(std::size_t track, Payload const& payload) try {
  auto const pipeline = Current();
  if (!pipeline || _ended) {
    if (payload.release != nullptr) payload.release(payload.context);
    return _failed ? Failure() : _ended ? Code::kEnded : Code::kInvalid;
  }
  Code const code = pipeline->Push(track, payload);
  if (_events.Waiting()) _events.Stored(pipeline->Stored_ns());
  _events.RunPosted();
  _worker.RunPosted();
  if (_retention) _retention->Run();
  if (code == Code::kIo) {
    _failed = true;
    return Failure();
  }
  return code == Code::kEnded && !_ended ? Code::kInvalid : code;
} catch (std::bad_alloc const&) {
  return Code::kMemory;
}

void Recorder::Work::SplitAt(std::int64_t time_ns) {
  if (auto const pipeline = Current()) pipeline->SplitAt(time_ns);
}

// Reports each warning and error once, even when it occurs again.
void Recorder::Work::Report(record::Event event) {
  if (event.kind == record::Event::kOpened) _events.Opened(event.path, event.time_ns);
  if (event.kind == record::Event::kDeleted) _events.Deleted(event.path);
  constexpr std::size_t kMost = 256;
  {
    std::lock_guard lock(_mutex);
    bool const problem =
        event.kind == record::Event::kWarning || event.kind == record::Event::kError;
    if (problem && _reported.count(event.text) != 0) return;
    if (problem && _reported.size() < kMost) _reported.insert(event.text);
    if (problem) _last = event.text;
    if (event.kind == record::Event::kError && _error.empty()) _error = event.text;
    _warnings += event.kind == record::Event::kWarning;
  }
  if (_options.onEvent) _worker.Post([this, event = std::move(event)] { _options.onEvent(event); });
}

void Recorder::Work::Finish(FinishedFile file) {
  _events.Closed(file.path, file.duration_ns);
  // The next file gets the name of an empty one, and must not be taken for it later.
  bool const empty = file.packets == 0;
  if (_retention && empty) _retention->Finished(file.path);
  _worker.Post([this, empty, file = std::move(file)] {
    FinishFile(file, _options, [this](record::Event event) { Report(std::move(event)); });
    // Not before the application has seen that it is closed.
    if (_retention && !empty)
      _worker.Post([this, path = file.path] { _retention->Finished(path); });
  });
}

// Closes the current file. Packets are refused afterwards. False when one is missing.
bool Recorder::Work::EndCurrent() {
  auto const pipeline = Current();
  if (pipeline && !pipeline->End()) _failed = true;
  std::lock_guard lock(_mutex);
  if (pipeline) pipeline->AddTo(_before);
  _current = nullptr;
  return !_failed;
}

Code Recorder::Work::Event(std::string const& label) {
  return Event(label, _options.events.before_ns, _options.events.after_ns);
}

Code Recorder::Work::Event(std::string const& label, std::int64_t before_ns,
                           std::int64_t after_ns) try {
  if (_options.verbatim || !EventTimesValid(before_ns, after_ns)) return Code::kInvalid;
  if (_ended) return Code::kEnded;
  auto const pipeline = Current();
  auto const moment_ns = _events.Latest_ns();
  auto const time = pipeline && moment_ns ? pipeline->Captured(*moment_ns) : std::nullopt;
  std::int64_t const stored_ns = pipeline ? pipeline->Stored_ns() : INT64_MIN;
  if (!_events.Add(label, {before_ns, after_ns}, moment_ns, time ? *time : WallTime(), stored_ns))
    return Code::kEnded;
  // No packet may come any more.
  if (_options.events.only && pipeline) _events.Post([pipeline] { pipeline->Wake(); });
  return Code::kOk;
} catch (std::bad_alloc const&) {
  return Code::kMemory;
}

avi::StartTime Recorder::Work::WallTime() const {
  StartOptions const& start = _options.start;
  auto now = avi::ClockAnchor::Now::Read();
  if (start.wallClock) now.wall_ns = start.wallClock();
  auto const source = start.clock == StartOptions::kSet         ? avi::ClockAnchor::kSet
                      : start.clock == StartOptions::kSinceBoot ? avi::ClockAnchor::kSinceBoot
                                                                : avi::ClockAnchor::kAuto;
  return avi::ClockAnchor(source).Take(0, now);
}

Result Recorder::Work::Unprotect(std::string const& file) {
  std::string const folder = FolderOf(_options.path);
  std::string const path = FolderOf(file).empty() ? folder + file : file;
  if (_options.verbatim || FolderOf(path) != folder ||
      !avi::NamePattern(_options.path.substr(folder.size())).Match(path.substr(folder.size())))
    return {Code::kInvalid, path + ": not a file of this recorder"};
  Result result = _events.Unprotect(path);
  if (_retention) _retention->Rescan();
  return result;
}

Result Recorder::Work::ChangeTracks(Tracks const& tracks) {
  if (_options.verbatim || _worker.CalledByTask())
    return {Code::kInvalid, "the tracks cannot be changed here"};
  std::lock_guard changing(_changeMutex);
  if (_stopped) return {Code::kEnded, "the recorder was stopped"};
  bool const whole = EndCurrent();
  _worker.RunPosted();
  if (!whole) return Outcome();
  if (tracks.empty()) return {};
  try {
    auto pipeline = NewPipeline(TrackSet(_options, tracks));
    std::lock_guard lock(_mutex);
    _current = std::move(pipeline);
    return {};
  } catch (Refusal const& refusal) {
    return refusal.ToResult();
  }
}

Result Recorder::Work::Stop() {
  _ended = true;
  if (_worker.CalledByTask()) return {};
  std::lock_guard changing(_changeMutex);
  if (!_stopped) {
    _stopped = true;
    EndCurrent();
    _events.Finish();
    if (_retention) {
      _worker.Drain();  // files may need space to be finished
      _retention->Stop();
    }
    _worker.Finish();
  }
  return Outcome();
}

Result Recorder::Work::Outcome() const {
  std::lock_guard lock(_mutex);
  if (!_failed && _error.empty()) return {};
  return {Failure(), _error.empty() ? _options.path + ": a packet was not accepted" : _error};
}

Status Recorder::Work::GetStatus() const {
  std::shared_ptr<Pipeline> pipeline;  // destroyed without the lock
  std::unique_lock lock(_mutex);
  Status status = _before;
  pipeline = _current;
  lock.unlock();
  if (pipeline) pipeline->AddTo(status);
  if (_retention) _retention->AddTo(status);
  if (_ended && status.state != Status::kFailed) status.state = Status::kStopped;
  if (_failed) status.state = Status::kFailed;
  status.events = _events.Count();
  if (!_retention) status.protectedFiles = _events.ProtectedFiles();
  lock.lock();
  status.warnings = _warnings;
  status.lastError = _last;
  return status;
}

std::string Recorder::Work::DescribeSync() const {
  auto const pipeline = Current();
  return pipeline ? pipeline->DescribeSync() : std::string();
}

}  // namespace kestro::record
