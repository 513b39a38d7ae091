#include "verbs/RecordVerb.h"

#include <algorithm>
#include <chrono>

#include "base/IClass.h"
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
#include "verbs/HashFile.h"

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

// Records packets until the end, a signal or an error. Returns false after an error.
bool RecordVerb::Record(Session& session, record::Recorder& recorder, Progress& progress) {
  auto const tracks = session.Tracks();
  auto const video = std::find_if(tracks.begin(), tracks.end(),
                                  [](record::TrackInfo const& info) { return info.IsVideo(); });
  auto const leading = static_cast<std::size_t>(video - tracks.begin());
  bool const byBytes = progress.CountedUnit() == Progress::kBytes;
  auto const begin = Clock::now();
  std::uint64_t packets = 0;
  std::int64_t end_ns = 0;
  std::size_t track = 0;
  TimedPacket packet;
  while (session.Next(track, packet)) {
    if (_options.realtime) SleepUntil(begin + std::chrono::nanoseconds(packet.time_ns));
    record::Payload pushed;
    pushed.data = packet.data.data();
    pushed.size = packet.data.size();
    pushed.time_ns = packet.time_ns;
    pushed.duration_ns = packet.duration_ns;
    pushed.key = packet.key;
    if (packet.startsFile) recorder.SplitAt(packet.time_ns);
    if (track == leading) _starts.Add(packet);
    if (recorder.Push(track, pushed) != record::Code::kOk) return false;
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

// The next file is recorded meanwhile.
void RecordVerb::WriteHash(std::string const& path) try {
  std::string const text = HashFile::Of(path, [](std::uint64_t) { return true; }).Text();
  WriteFile(HashFile::NameFor(path), text.data(), static_cast<unsigned>(text.size()));
} catch (Error const& error) {
  _warnings.push_back(path + ": no hash was written: " + error.what());
}

// Called by the recorder. Nothing else is reported at the same time.
void RecordVerb::HandleEvent(record::Event const& event) {
  if (event.kind == record::Event::kOpened) _starts.AddFile(event.path, event.time_ns);
  if (event.kind == record::Event::kClosed) Report(event.text);
  if (event.kind == record::Event::kClosed && _options.hash && event.packets != 0)
    WriteHash(event.path);
  if (event.kind == record::Event::kNote) Report("note: " + event.text);
  if (event.kind == record::Event::kWarning) _warnings.push_back(event.text);
  if (event.kind == record::Event::kError) _errors.push_back(event.text);
}

static std::vector<std::string> Stalls(record::Status const& status) {
  if (status.waits == 0) return {};
  return {"the output stalled: the inputs had to wait " + Quantity(status.waits, "time") + ", " +
          Seconds(static_cast<std::int64_t>(status.longestWait_us / 1000)) + " at most"};
}

static std::vector<std::string> Losses(record::Status const& status) {
  if (status.dropped == 0) return {};
  return {"the output stalled: " + Quantity(status.dropped, "packet") + " of " +
          Quantity(status.droppedGroups, "group") + " of pictures were dropped"};
}

static void ReportAll(char const* what, std::vector<std::string> const& texts) {
  for (std::string const& text : texts) Report(what + text);
}

// Ends the last file, reports all problems and returns the exit code.
int RecordVerb::Finish(Session const& session, record::Recorder& recorder, Progress& progress,
                       bool complete) const {
  record::Result const result = recorder.Stop();
  complete = complete && result;
  record::Status const status = recorder.GetStatus();
  auto const failures = session.Failures(), starts = _starts.Lines();
  auto findings = session.Findings();
  findings.insert(findings.end(), starts.begin(), starts.end());
  auto losses = Losses(status);
  auto const tracks = session.Tracks();
  if (_options.input.textAsSrt && status.files > 1 &&
      std::any_of(tracks.begin(), tracks.end(), [](auto const& track) { return track.IsText(); }))
    losses.push_back("only the first file has the texts");
  if (complete && !Interrupted() && failures.empty()) progress.End();
  ReportAll("note: ", Stalls(status));
  ReportAll("note: ", session.LateNotes());
  ReportAll("warning: ", _warnings);
  ReportAll("warning: ", findings);
  ReportAll("warning: ", losses);
  ReportAll("error: ", failures);
  ReportAll("error: ", _errors);
  if (!complete && _errors.empty()) Report("error: " + result.text);

  if (!complete) return kIo;
  if (Interrupted()) return kInterrupted;
  if (status.packets == 0)
    throw Error(kUnusable,
                "nothing was recorded: no key frame, audio or text in the selected part");
  if (!failures.empty()) return kIo;
  return _warnings.empty() && findings.empty() && losses.empty() ? kOk : kFindings;
}

void RecordVerb::ReportNotes(Session const& session, record::Recorder const& recorder) const {
  ReportAll("note: ", session.Notes());
  if (std::string const sync = recorder.DescribeSync(); !sync.empty()) Report("note: " + sync);
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
  auto const session =
      LoadMedia().OpenInputs(_options.addresses, _options.input, _options.selection);
  _options.recorder.onEvent = [this](record::Event const& event) { HandleEvent(event); };
  auto const recorder = OpenRecorder(_options.recorder, session->Tracks());
  ReportNotes(*session, *recorder);
  Progress progress = NewProgress(*session);
  bool const complete = Record(*session, *recorder, progress);
  return Finish(*session, *recorder, progress, complete);
}

}  // namespace kestro::tool
