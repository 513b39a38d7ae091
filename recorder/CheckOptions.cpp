#include "recorder/CheckOptions.h"

#include <algorithm>
#include <chrono>

#include "avi/Error.h"
#include "avi/Sha256.h"
#include "recorder/Refusal.h"
#include "recorder/SyncPlan.h"

namespace kestro::record {

static void Require(bool valid, std::string const& text) {
  if (!valid) throw Refusal(Code::kInvalid, text);
}

bool EventTimesValid(std::int64_t before_ns, std::int64_t after_ns) {
  constexpr std::int64_t kDay_ns = std::int64_t{86400} * 1000000000;
  return before_ns >= 0 && before_ns <= kDay_ns && after_ns >= 0 && after_ns <= kDay_ns;
}

RecorderOptions CheckedOptions(RecorderOptions options) {
  SyncOptions const& sync = options.sync;
  auto& segments = options.segments;
  segments.size = std::min<std::uint64_t>(segments.size, UINT32_MAX);  // no file is larger
  segments.time_ns = std::min(segments.time_ns, INT64_MAX / 4);        // as the times of packets
  Require(segments.size != 0 && segments.time_ns != 0, "the segment size and time must not be 0");
  Require(sync.mode == SyncOptions::kOff || !options.spillSeconds,
          "a sync mode keeps the index in memory and cannot be combined with a temporary file");
  Require(sync.interval_ns >= 1000000 && sync.interval_ns / 1000000 <= UINT32_MAX,
          "the sync interval must be between 1 ms and 49 days");
  Require(sync.reserve_ns > 0, "the reserve time must be more than 0");
  RetentionOptions const& limits = options.retention;
  if (limits.Any()) {
    constexpr std::uint64_t kMost = std::uint64_t{1} << 60;
    Require(!options.overwrite && !options.verbatim,
            "limits for deleting files cannot be combined with overwriting");
    Require(limits.keepFree.value_or(0) <= kMost && limits.keepBytes.value_or(1) <= kMost,
            "a limit of bytes is too large");
    Require(limits.keepBytes != 0U && limits.keepFiles != 0U && limits.keepAge_ns.value_or(1) > 0,
            "the limits of bytes, files and age must be more than 0");
  }
  EventOptions const& events = options.events;
  Require(EventTimesValid(events.before_ns, events.after_ns),
          "the times before and after an event must be between 0 and a day");
  Require(!events.only || (events.maxBytes != 0 && !options.verbatim),
          "event-only recording needs memory for packets");
  if (options.threadless) {
    options.queue.enabled = false;
    options.cacheBlocks = 1;
  }
  if (options.hash) try {
      avi::Sha256 const available;
    } catch (avi::Error const& error) {
      throw Refusal(Code::kPlugin, error.what());
    }
  if (!options.clock)
    options.clock = [] {
      return std::chrono::nanoseconds(std::chrono::steady_clock::now().time_since_epoch()).count();
    };
  return options;
}

// `video` is the first video track, or null.
static void CheckTrack(TrackInfo& info, TrackInfo const* video) {
  auto const require = [&info](bool valid, char const* text) {
    if (!valid) throw Refusal(Code::kUnsupported, info.name + ": " + text);
  };
  if (info.IsAudio()) {
    require(info.rate > 0 && info.channels > 0, "audio needs its rate and channels");
    require(info.bits > 0 && info.bits % 8 == 0 && info.FrameBytes() <= UINT16_MAX,
            "samples must be whole bytes");
    if (info.samples <= 0) info.samples = TrackInfo::BlockLength(info.rate);
    return;
  }
  require(video != nullptr, "text takes its times from video, and there is none");
  if (info.IsText()) info.frameRate = video->frameRate;
  require(info.frameRate.Positive() && info.frameRate.num <= INT32_MAX &&
              info.frameRate.den <= INT32_MAX,
          "video needs its frame rate");
  if (info.IsText()) return;
  require(info.width > 0 && info.height > 0, "video needs its frame size");
  // Motion JPEG may have its own rate.
  require(!info.Numbered() || info.frameRate.num * video->frameRate.den ==
                                  video->frameRate.num * info.frameRate.den,
          "its frame rate differs from that of the first video track");
}

void CheckTracks(Tracks& tracks) {
  auto const video = std::find_if(tracks.begin(), tracks.end(),
                                  [](TrackInfo const& track) { return track.IsVideo(); });
  for (TrackInfo& info : tracks) CheckTrack(info, video != tracks.end() ? &*video : nullptr);
}

void CheckReserve(RecorderOptions const& options, Tracks const& tracks) {
  Require(SyncPlan::ReserveBytes(options.sync, tracks) < options.segments.size,
          "the reserved index is as large as a segment may be; choose a smaller reserve");
}

}  // namespace kestro::record
