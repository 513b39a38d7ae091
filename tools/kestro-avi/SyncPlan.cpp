#include "SyncPlan.h"

#include <algorithm>
#include <climits>
#include <cmath>

#include "Errors.h"
#include "Text.h"

namespace kestro::tool {

static constexpr std::uint64_t kEntry = 16, kChunkHead = 8, kListHead = 12;

// The least number from `value` on that leaves this rest when divided by 16.
static std::uint64_t Aligned(std::uint64_t value, std::uint64_t rest) {
  return value + (rest + 16 - value % 16) % 16;
}

// What stands in front of JUNK.
static std::uint64_t HeadBytes(std::vector<Track*> const& tracks, Tags const& tags) {
  constexpr std::uint64_t kMainHeader = 56, kStreamHeader = 56;
  std::uint64_t bytes = kListHead + kListHead + kChunkHead + kMainHeader + tags.Bytes();
  for (Track const* track : tracks) {
    std::uint64_t format = 40;  // video
    if (track->Info().kind == TrackInfo::kSound) format = 16;
    if (track->Info().kind == TrackInfo::kText) format = 64;
    bytes += kListHead + kChunkHead + kStreamHeader + kChunkHead + format;
  }
  return bytes;
}

static double EntriesPerSecond(std::vector<Track*> const& tracks) {
  double entries = 0;
  for (Track const* track : tracks) {
    TrackInfo const& info = track->Info();
    if (info.kind == TrackInfo::kVideo)
      entries += static_cast<double>(info.frameRate.num) / static_cast<double>(info.frameRate.den);
    else
      entries += info.kind == TrackInfo::kSound ? double(info.rate) / info.samples : 1;
  }
  return entries;
}

std::uint64_t SyncPlan::ReserveBytes(SyncOptions const& options,
                                     std::vector<Track*> const& tracks) {
  if (options.mode != SyncOptions::kInPlace && options.mode != SyncOptions::kImage) return 0;
  // A little more, as files end late rather than early.
  double const entries = EntriesPerSecond(tracks) * static_cast<double>(options.reserve_ns) / 1e9;
  double const bytes = options.reserveBytes != 0 ? static_cast<double>(options.reserveBytes)
                                                 : kEntry * (std::ceil(entries * 1.01) + 64);
  constexpr std::uint64_t kLargest = INT_MAX - (std::uint64_t{64} << 20);  // beside the head
  if (bytes > static_cast<double>(kLargest))
    throw Error(kUsage, "--reserve, --reserve-time: an index of " +
                            ByteCount(static_cast<std::uint64_t>(bytes)) +
                            " is more than files can have");
  return Aligned(static_cast<std::uint64_t>(bytes), 0);
}

SyncPlan::SyncPlan(SyncOptions const& options, std::vector<Track*> const& tracks, Tags& tags)
    : _mode(options.mode), _interval_ms(static_cast<unsigned>(options.interval_ns / 1000000)) {
  if (_mode == SyncOptions::kOff) return;
  std::uint64_t const head = HeadBytes(tracks, tags), junk = tags.JunkBytes();
  std::uint64_t const reserve = ReserveBytes(options, tracks);
  if (_mode == SyncOptions::kInPlace) {
    _reserved = reserve;
    if (head % 16 != 8 || junk != 0)  // JUNK of no bytes would not be written
      tags.Junk(static_cast<unsigned>(
          Aligned(head + kChunkHead + std::max<std::uint64_t>(junk, 2), 8) - head - kChunkHead));
  } else {
    // The head of movi ends the headers; the muxer fills them up with JUNK.
    _reserved = _header = Aligned(head + kChunkHead + junk + kListHead, (8 + kListHead) % 16);
  }
  if (_mode == SyncOptions::kImage) {
    _index = kChunkHead + reserve;
    _reserved += _index;
    tags.IndexFirst();
  }
  if (_mode != SyncOptions::kCallback) _entries = reserve / kEntry;
}

bool SyncPlan::Apply(base::Object& muxer) const {
  return muxer.Set("periodicSyncEn", _mode != SyncOptions::kInPlace) &&
         muxer.Set("flushtime", _interval_ms) && muxer.Set("reservedSize", _reserved) &&
         muxer.Set("periodicSyncHeaderSize", _header) && muxer.Set("periodicSyncIdx1Size", _index);
}

std::string SyncPlan::Text(SyncOptions const& options, std::vector<Track*> const& tracks) {
  std::string const every = " every " + Seconds(options.interval_ns / 1000000);
  if (options.mode == SyncOptions::kCallback)
    return "syncs headers and index to a file of their own" + every;
  std::uint64_t const reserve = ReserveBytes(options, tracks);
  std::uint64_t const entries = reserve / kEntry;
  double const seconds = static_cast<double>(entries) / EntriesPerSecond(tracks);
  return (options.mode == SyncOptions::kImage
              ? "syncs an image of headers and index" + every + " and 512 KiB"
              : "syncs in place" + every) +
         "; the index has room for " + std::to_string(entries) + " chunks (" + ByteCount(reserve) +
         "), about " + Seconds(std::llround(seconds * 1000));
}

bool SyncPlan::Owns(std::string const& property) {
  for (char const* name : {"periodicSyncEn", "flushtime", "reservedSize", "periodicSyncHeaderSize",
                           "periodicSyncIdx1Size", "periodicSyncCallback", "notifyid"})
    if (property == name) return true;
  return false;
}

}  // namespace kestro::tool
