#include "recorder/FileStarts.h"

#include <cstdlib>

namespace kestro::record {

using avi::ClockAnchor;
using avi::StartTime;

static constexpr std::size_t kMostSpans = 4096;
static constexpr std::int64_t kSame_ns = 1000000;   // a file stores milliseconds
static constexpr std::int64_t kRounding_ns = 1000;  // of packet times, as in Segments

static ClockAnchor::Source SourceOf(StartOptions::Clock clock) {
  return clock == StartOptions::kSet         ? ClockAnchor::kSet
         : clock == StartOptions::kSinceBoot ? ClockAnchor::kSinceBoot
                                             : ClockAnchor::kAuto;
}

FileStarts::FileStarts(RecorderOptions const& options)
    : _options(options),
      _known(options.start.clock != StartOptions::kNone),
      _anchor(SourceOf(options.start.clock)) {}

std::optional<StartTime> FileStarts::Ask(std::int64_t time_ns) const {
  auto const captured = _options.start.captured(time_ns);
  if (!captured || captured->time_ns < 0) return std::nullopt;
  return StartTime{captured->time_ns, captured->set};
}

// Whether two starts are on the same line of time.
static bool Follows(std::optional<StartTime> const& a, std::optional<StartTime> const& b,
                    std::int64_t between_ns) {
  if (!a || !b) return !a && !b;
  return a->set == b->set && std::llabs(b->time_ns - a->time_ns - between_ns) < kSame_ns;
}

void FileStarts::Take(std::int64_t time_ns) {
  if (!_known) return;
  // The application's functions are called without the lock.
  StartOptions const& options = _options.start;
  std::optional<StartTime> start;
  auto now = ClockAnchor::Now::Read();
  if (options.captured)
    start = Ask(time_ns);
  else if (options.wallClock)
    now.wall_ns = options.wallClock();
  std::lock_guard lock(_mutex);
  if (!options.captured) start = _anchor.Take(time_ns, now);
  if (!_spans.empty() && Follows(_spans.back().start, start, time_ns - _spans.back().from_ns))
    return;
  if (_spans.size() == kMostSpans) _spans.pop_front();
  _spans.push_back({time_ns, start});
}

std::optional<StartTime> FileStarts::Captured(std::int64_t time_ns) const {
  std::lock_guard lock(_mutex);
  if (_spans.empty() || !_spans.back().start) return std::nullopt;
  Span const& span = _spans.back();
  return StartTime{span.start->time_ns + time_ns - span.from_ns, span.start->set};
}

std::optional<StartTime> FileStarts::Find(std::int64_t time_ns) {
  std::lock_guard lock(_mutex);
  // The last span that begins by then: reordered frames make spans overlap.
  auto found = _spans.begin();
  for (auto span = _spans.begin(); span != _spans.end(); ++span)
    if (span->from_ns <= time_ns + kRounding_ns) found = span;
  if (found == _spans.end()) return std::nullopt;
  _spans.erase(_spans.begin(), found);
  Span const& span = _spans.front();
  if (!span.start) return std::nullopt;
  return StartTime{span.start->time_ns + time_ns - span.from_ns, span.start->set};
}

FileStarts::Start FileStarts::At(std::int64_t time_ns) {
  avi::Software software{_options.tags.isft, Find(time_ns)};
  if (!software.start) return {software.name, std::nullopt};
  if (software.name.empty()) software.name = "kestro " KESTRO_VERSION;
  Start start{software.Compose(), std::nullopt};
  if (software.start->set) start.wall_ns = software.start->time_ns;
  return start;
}

std::int64_t FileStarts::Wall_ns() const {
  auto const& wallClock = _options.start.wallClock;
  return wallClock ? wallClock() : ClockAnchor::Now::Read().wall_ns;
}

}  // namespace kestro::record
