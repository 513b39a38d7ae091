#include "RecordVerb.h"

#include <chrono>

#include "Console.h"
#include "Errors.h"
#include "Interrupt.h"
#include "Plugin.h"
#include "Text.h"
#include "input/FrameRate.h"

namespace kestro::tool {

using Clock = std::chrono::steady_clock;

// Progress is that of reading the inputs, where their sizes tell all, or that of recorded time.
Progress RecordVerb::Watch(Session const& session) const {
  std::int64_t const duration_ns = _options.timeline.duration_ns;
  std::int64_t const size = duration_ns < 0 ? session.Reach().size : 0;
  if (size > 0)
    return {_options.progress, "record", Progress::kBytes, static_cast<std::uint64_t>(size)};
  return {_options.progress, "record", Progress::kTime_ms,
          static_cast<std::uint64_t>(std::max<std::int64_t>(0, duration_ns / 1000000))};
}

// Moves packets until the end, a signal or an error. False when recording ended for an error.
bool RecordVerb::Record(Session& session, Feed& feed, Progress& progress) const {
  bool const byBytes = progress.CountedUnit() == Progress::kBytes;
  auto const begin = Clock::now();
  std::uint64_t packets = 0;
  std::int64_t end_ns = 0;
  std::size_t track = 0;
  TimedPacket packet;
  while (session.Next(track, packet)) {
    if (_options.realtime) SleepUntil(begin + std::chrono::nanoseconds(packet.time_ns));
    if (!feed.Push(track, packet)) return false;
    ++packets;
    end_ns = std::max(end_ns, packet.time_ns + packet.duration_ns);
    if (!progress.Due()) continue;
    char speed[48];
    std::snprintf(speed, sizeof speed, "%.1fx",
                  static_cast<double>(end_ns) / 1e9 / progress.Seconds());
    std::int64_t const end_ms = end_ns / 1000000;
    progress.Show(static_cast<std::uint64_t>(byBytes ? session.Reach().position : end_ms),
                  Quantity(packets, "packet") + ", " +
                      (byBytes ? Seconds(end_ms) + ", " : std::string()) + speed);
  }
  return true;
}

// Ends the last file, says what is amiss and chooses the exit code.
int RecordVerb::Finish(Session const& session, Feed& feed, Segments& segments, Progress& progress,
                       bool complete) const {
  feed.Finish();
  complete = segments.Finish() && complete;
  if (complete && !Interrupted() && session.Failures().empty()) progress.End();
  std::vector<std::string> findings = segments.Warnings();
  for (std::string const& text : session.Findings()) findings.push_back(text);
  if (std::string const losses = feed.Losses(); !losses.empty()) findings.push_back(losses);
  if (std::string const stalls = feed.Stalls(); !stalls.empty()) Report("note: " + stalls);
  for (std::string const& text : findings) Report("warning: " + text);
  for (std::string const& text : session.Failures()) Report("error: " + text);
  for (std::string const& text : segments.Errors()) Report("error: " + text);
  if (!complete && segments.Errors().empty())
    Report("error: " + _options.output + ": a packet was refused");

  if (!complete) return kIo;
  if (Interrupted()) return kInterrupted;
  if (!segments.Begun())
    throw Error(kUnusable, "nothing was recorded: no key frame, sound or text in the wanted part");
  if (!session.Failures().empty()) return kIo;
  return findings.empty() ? kOk : kFindings;
}

void RecordVerb::Announce(Session const& session) const {
  for (std::string const& text : session.Notes()) Report("note: " + text);
  for (Track const* track : session.Tracks()) {
    TrackInfo const& info = track->Info();
    std::string const note =
        info.kind == TrackInfo::kVideo ? SpeedNote(info.name, info.frameRate) : "";
    if (note.empty()) continue;
    Report("note: " + note);
    break;
  }
  if (_options.recorder.sync.mode != SyncOptions::kOff)
    Report("note: " + SyncPlan::Text(_options.recorder.sync, session.Tracks()));
}

int RecordVerb::Run() {
  _options.Check();
  bool const beside = _options.recorder.sync.mode == SyncOptions::kCallback;
  SegmentNames names(_options.output, beside ? SideFile::kEnding : "", _options.force,
                     _options.addresses);
  LoadAviPlugin(_options.plugin);
  CatchSignals();
  Session session(_options.addresses, _options.input, _options.timeline);
  Announce(session);
  auto const& tracks = session.Tracks();
  // Otherwise every key frame would begin a new file.
  if (SyncPlan::ReserveBytes(_options.recorder.sync, tracks) >= _options.segments.size)
    throw Error(kUsage,
                "--segment-size: the index alone is as large (--reserve-time or --reserve makes it "
                "smaller)");
  Packets const packets(tracks);
  Segments segments(_options.segments, _options.recorder, tracks, packets, names);
  Feed feed(packets, segments, tracks.size(), _options.realtime, _options.drop);
  Progress progress = Watch(session);
  bool const complete = Record(session, feed, progress);
  return Finish(session, feed, segments, progress, complete);
}

}  // namespace kestro::tool
