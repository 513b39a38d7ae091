#include "verbs/RecordVerb.h"

#include <algorithm>
#include <chrono>
#include <utility>

#include "avi/Hashes.h"
#include "base/IClass.h"
#include "cli/Address.h"
#include "cli/Console.h"
#include "cli/DidYouMean.h"
#include "cli/Errors.h"
#include "cli/Interrupt.h"
#include "cli/NewFile.h"
#include "cli/Plugin.h"
#include "cli/Recorder.h"
#include "cli/Suggest.h"
#include "cli/Text.h"
#include "media/MediaModule.h"

namespace kestro::tool {

using Clock = std::chrono::steady_clock;

// Counts bytes of the inputs if their sizes are known and all is recorded, else recorded time.
Progress RecordVerb::NewProgress(Session const& session) const {
  std::int64_t const duration_ns = _options.selection.duration_ns;
  std::int64_t const size = duration_ns < 0 ? session.ReadSoFar().size : 0;
  if (size > 0)
    return {_options.progress, "record", Progress::kBytes, static_cast<std::uint64_t>(size)};
  return {_options.progress, "record", Progress::kTime_ms,
          static_cast<std::uint64_t>(std::max<std::int64_t>(0, duration_ns / 1000000))};
}

// The number of the first video track; their count if there is none.
static std::size_t FirstVideo(record::Tracks const& tracks) {
  auto const video = std::find_if(tracks.begin(), tracks.end(),
                                  [](record::TrackInfo const& info) { return info.IsVideo(); });
  return static_cast<std::size_t>(video - tracks.begin());
}

// Ends the file; the next one has the session's new tracks.
bool RecordVerb::ChangeTracks(Session const& session, record::Recorder& recorder,
                              RecordService& service) {
  record::Tracks const tracks = session.Tracks();
  WriteEvent({{"event", "tracks"}, {"tracks", TracksJson(tracks)}});
  record::Result const changed = recorder.ChangeTracks(tracks);
  service.ChangeTracks(tracks);
  if (changed.code == record::Code::kUnsupported)
    ReportError({changed.text, nullptr, {{"code", int{kUnusable}}}});
  return static_cast<bool>(changed);
}

// The packet's bytes stay in memory until the recorder releases them.
static record::Payload Borrowed(TimedPacket const& packet) {
  using Owner = std::shared_ptr<void const>;
  record::Payload payload;
  payload.data = packet.data.data();
  payload.size = packet.data.size();
  payload.time_ns = packet.time_ns;
  payload.duration_ns = packet.duration_ns;
  payload.key = packet.key;
  payload.context = new Owner(packet.data.Owner());
  payload.release = [](void* owner) { delete static_cast<Owner*>(owner); };
  return payload;
}

// Records packets until the end, a signal or an error. Returns false after an error.
bool RecordVerb::PushAll(Session& session, record::Recorder& recorder, RecordService& service,
                         Progress& progress) {
  std::size_t leading = FirstVideo(session.Tracks());
  bool const byBytes = progress.CountedUnit() == Progress::kBytes;
  auto const begin = Clock::now();
  std::uint64_t packets = 0;
  std::int64_t end_ns = 0;
  std::size_t track = 0;
  TimedPacket packet;
  while (Session::Outcome const outcome = session.Next(track, packet)) {
    service.Proceed();
    WriteEvents(session, service);
    if (outcome == Session::kTracks) {
      if (!ChangeTracks(session, recorder, service)) return false;
      leading = FirstVideo(session.Tracks());
    }
    if (outcome != Session::kPacket) continue;
    if (_options.realtime) SleepUntil(begin + std::chrono::nanoseconds(packet.time_ns));
    if (packet.startsFile) recorder.SplitAt(packet.time_ns);
    if (track == leading) _starts.Add(packet);
    service.CountPacket(packet.data.size());
    if (recorder.Push(track, Borrowed(packet)) != record::Code::kOk) return false;
    WriteDrops(recorder, packet.time_ns);
    ++packets;
    end_ns = std::max(end_ns, packet.time_ns + packet.duration_ns);
    if (!progress.Due()) continue;
    char speed[48];
    std::snprintf(speed, sizeof speed, "%.1fx",
                  static_cast<double>(end_ns) / 1e9 / progress.Seconds());
    std::int64_t const end_ms = end_ns / 1000000;
    progress.Show(static_cast<std::uint64_t>(byBytes ? session.ReadSoFar().position : end_ms),
                  Quantity(packets, "packet") + ", " +
                      (byBytes ? Seconds(end_ms) + ", " : std::string()) + speed);
  }
  return true;
}

// Whether the recording may go on for days, with nobody waiting for its end.
bool RecordVerb::IsService() const {
  return _options.realtime || !_options.service.control.empty() || !_options.service.status.empty();
}

// Problems are reported to programs at once, and to people at the end, unless that may be far away.
void RecordVerb::HandleProblem(record::Event const& event) {
  bool const warning = event.kind == record::Event::kWarning;
  Notice notice(event.text, nullptr, {{"file", event.path}});
  if (warning && event.duration_ns != 0) {
    notice.event = "skew";
    notice.fields.push_back({"at_ms", Ms(event.time_ns)});
    notice.fields.push_back({"skew_ms", Ms(event.duration_ns)});
    _skews_ns[event.path] = event.duration_ns;
  }
  if (!warning) notice.fields.push_back({"code", int{kIo}});
  if (warning && IsService()) {
    ReportWarning(notice);
    _warned = true;
    return;
  }
  WriteEvent(warning ? Level::kWarning : Level::kError, notice);
  notice.reported = true;
  (warning ? _warnings : _errors).push_back(std::move(notice));
}

// Called by the recorder, one call at a time.
void RecordVerb::HandleEvent(record::Event const& event) {
  switch (event.kind) {
    case record::Event::kOpened:
      _starts.AddFile(event.path, event.time_ns);
      WriteEvent({{"event", "opened"}, {"file", event.path}, {"time_ms", Ms(event.time_ns)}});
      break;
    case record::Event::kClosed: {
      Report(event.text);
      Json closed{{"event", "closed"}};
      closed.update(ClosedJson(event));
      closed["skew_ms"] = Ms(_skews_ns[event.path]);
      if (event.hashed) closed["hash_file"] = avi::HashFileFor(event.path);
      WriteEvent(closed);
      _skews_ns.erase(event.path);
      _bytes += event.bytes;
      break;
    }
    case record::Event::kDeleted:
      Report(event.text);
      WriteEvent({{"event", "deleted"}, {"file", event.path}, {"bytes", event.bytes}});
      break;
    case record::Event::kProtected:
      Report(event.text);
      WriteEvent({{"event", "protected"}, {"file", event.path}});
      break;
    case record::Event::kNote:
      ReportNote({event.text, nullptr, {{"file", event.path}}});
      break;
    default:
      HandleProblem(event);
  }
}

void RecordVerb::WriteBegin(record::Tracks const& tracks) const {
  Json inputs = Json::array();
  for (std::string const& address : _options.addresses) inputs.push_back(Hidden(address));
  WriteEvent({{"event", "begin"}, {"inputs", std::move(inputs)}, {"tracks", TracksJson(tracks)}});
}

void RecordVerb::WriteEvents(Session& session, RecordService& service) {
  for (Notice const& news : session.TakeNews()) {
    ReportNote(news);
    service.TakeNews(news);
  }
  for (Notice const& event : session.TakeEvents()) {
    WriteEvent(Level::kWarning, event);
    if (event.event == std::string("gap")) {
      ++_gaps;
      for (Notice::Field const& field : event.fields)
        if (field.key == std::string("length_ms")) _lost_ms += field.number;
    }
  }
}

static Notices Stalls(record::Status const& status) {
  if (status.waits == 0) return {};
  auto const longest_ms = static_cast<std::int64_t>(status.longestWait_us / 1000);
  return {{"the output stalled: the inputs had to wait " + Quantity(status.waits, "time") + ", " +
               Seconds(longest_ms) + " at most",
           "stall",
           {{"count", status.waits}, {"longest_ms", longest_ms}}}};
}

static Notices Losses(record::Status const& status) {
  if (status.dropped == 0) return {};
  return {{"the output stalled: " + Quantity(status.dropped, "packet") + " of " +
               Quantity(status.droppedGroups, "group") + " of pictures were dropped",
           "drop",
           {{"packets", status.dropped}, {"groups", status.droppedGroups}}}};
}

// Reports each group of pictures when its first packet is dropped.
void RecordVerb::WriteDrops(record::Recorder const& recorder, std::int64_t time_ns) {
  if (!_options.json || !_options.recorder.queue.drop) return;
  record::Status const status = recorder.GetStatus();
  if (status.droppedGroups == std::exchange(_droppedGroups, status.droppedGroups)) return;
  for (Notice& drop : Losses(status)) {
    drop.fields.push_back({"at_ms", Ms(time_ns)});
    WriteEvent(Level::kWarning, drop);
  }
}

void RecordVerb::SetTotals(record::Status const& status) const {
  SetAnswer({{"files", status.files},
             {"packets", status.packets},
             {"bytes", _bytes},
             {"duration_ms", Ms(status.duration_ns)},
             {"gaps", _gaps},
             {"lost_ms", _lost_ms},
             {"dropped", status.dropped}});
}

static void ReportAll(Level level, Notices const& notices) {
  for (Notice const& notice : notices) ReportNotice(level, notice);
}

// Ends the last file, reports all problems and returns the exit code.
int RecordVerb::Finish(Session& session, record::Recorder& recorder, RecordService& service,
                       Progress& progress, bool complete) {
  service.Finish();
  record::Result const result = recorder.Stop();
  complete = complete && result;
  record::Status const status = recorder.GetStatus();
  WriteEvents(session, service);
  SetTotals(status);
  auto const failures = session.Failures();
  auto findings = session.Findings();
  Append(findings, _starts.Lines());
  auto losses = Losses(status);
  auto const tracks = session.Tracks();
  if (_options.input.textAsSrt && status.files > 1 &&
      std::any_of(tracks.begin(), tracks.end(), [](auto const& track) { return track.IsText(); }))
    losses.emplace_back("only the first file has the texts");
  if (complete && !Interrupted() && failures.empty()) progress.End();
  ReportAll(Level::kNote, Stalls(status));
  ReportAll(Level::kNote, session.LateNotes());
  ReportAll(Level::kWarning, _warnings);
  ReportAll(Level::kWarning, findings);
  ReportAll(Level::kWarning, losses);
  ReportAll(Level::kError, failures);
  ReportAll(Level::kError, _errors);
  if (!complete && _errors.empty()) ReportError({result.text, nullptr, {{"code", int{kIo}}}});

  if (!complete) return kIo;
  if (Interrupted() && !StopRequested()) return kInterrupted;
  if (status.packets == 0 && !StopRequested() && !_options.recorder.events.only)
    throw Error(kUnusable,
                "nothing was recorded: no key frame, audio or text in the selected part");
  if (!failures.empty()) return kIo;
  return !_warned && _warnings.empty() && findings.empty() && losses.empty() ? kOk : kFindings;
}

void RecordVerb::ReportNotes(Session const& session, record::Recorder const& recorder) const {
  WriteBegin(session.Tracks());
  ReportAll(Level::kNote, session.Notes());
  if (std::string const sync = recorder.DescribeSync(); !sync.empty()) ReportNote(sync);
}

// The recorder only reports that a property is not accepted. This also suggests a name.
void RecordVerb::CheckProperties() const {
  bool const syncs = _options.recorder.sync.mode != record::SyncOptions::kOff;
  auto const* muxer =
      base::IClass::Find(syncs ? "VFIAviMuxer-avi-muxer-vfi" : "AviMuxer-avi-muxer", true);
  if (muxer == nullptr) return;
  auto const& properties = muxer->Properties();
  for (auto const& [name, value] : _options.recorder.properties) {
    if (properties.Find(name.c_str()) != nullptr) continue;
    std::vector<std::string> names;
    for (auto const* list : {&properties.Own(), &properties.Inherited()})
      for (auto const& property : *list) names.push_back(property->Name());
    std::string const meant = DidYouMean(name, names);
    throw Error(kUsage, "--set: the muxer has no property '" + name + "'" +
                            (meant.empty() ? " (\"kestro-avi plugin\" lists them)" : meant));
  }
}

int RecordVerb::Run() {
  _options.Check();
  LoadAviPlugin(_options.plugin);
  CheckProperties();
  CatchSignals();
  _options.input.interrupted = Interrupted;
  RecordService service(_options.service, _options.addresses);
  try {
    return Record(service);
  } catch (Error const& error) {  // nothing is recorded yet
    if (error.Code() == kInterrupted && StopRequested()) return kOk;
    throw;
  }
}

int RecordVerb::Record(RecordService& service) {
  auto const session =
      LoadMedia().OpenInputs(_options.addresses, _options.input, _options.selection);
  _options.recorder.onEvent = [this](record::Event const& event) { HandleEvent(event); };
  record::RecorderOptions options = _options.recorder;
  options.start.captured = [&session](std::int64_t time_ns) -> std::optional<record::CaptureTime> {
    auto const captured = session->Captured(time_ns);
    if (!captured) return std::nullopt;
    return record::CaptureTime{captured->time_ns, captured->set};
  };
  std::shared_ptr<record::Recorder> const recorder = OpenRecorder(options, session->Tracks());
  ReportNotes(*session, *recorder);
  Progress progress = NewProgress(*session);
  service.Begin(recorder, session->Tracks());
  bool const complete = PushAll(*session, *recorder, service, progress);
  return Finish(*session, *recorder, service, progress, complete);
}

}  // namespace kestro::tool
