#include "recorder/SyncPlan.h"

#include <algorithm>
#include <climits>
#include <cmath>

#include "avi/HeadCopy.h"
#include "avi/Text.h"
#include "recorder/Head.h"
#include "recorder/Refusal.h"

namespace kestro::record {

using avi::ByteCount;
using avi::HeadCopy;
using avi::Seconds;

static constexpr std::uint64_t kEntry = 16, kChunkHead = 8, kListHead = 12;

static std::uint64_t RoundedUp(std::uint64_t value, std::uint64_t unit) {
  return (value + unit - 1) / unit * unit;
}

static double EntriesPerSecond(Tracks const& tracks) {
  double entries = 0;
  for (TrackInfo const& info : tracks) {
    if (info.IsVideo())
      entries += static_cast<double>(info.frameRate.num) / static_cast<double>(info.frameRate.den);
    else
      entries += info.IsAudio() ? double(info.rate) / info.samples : 1;
  }
  return entries;
}

std::uint64_t SyncPlan::ReserveBytes(SyncOptions const& options, Tracks const& tracks) {
  if (options.mode != SyncOptions::kInPlace && options.mode != SyncOptions::kImage) return 0;
  // A little more: files tend to get longer than planned.
  double const entries = EntriesPerSecond(tracks) * static_cast<double>(options.reserve_ns) / 1e9;
  double const bytes = options.reserveBytes != 0 ? static_cast<double>(options.reserveBytes)
                                                 : kEntry * (std::ceil(entries * 1.01) + 64);
  constexpr std::uint64_t kLargest =
      INT_MAX - (std::uint64_t{64} << 20);  // leaves room for headers
  if (bytes > static_cast<double>(kLargest))
    throw Refusal(Code::kInvalid, "a reserved index of " +
                                      ByteCount(static_cast<std::uint64_t>(bytes)) +
                                      " is too large for a file");
  return RoundedUp(static_cast<std::uint64_t>(bytes), kEntry);
}

SyncPlan::SyncPlan(SyncOptions const& options, Tracks const& tracks, base::Fraction rate,
                   Tags& tags)
    : _mode(options.mode), _interval_ms(static_cast<unsigned>(options.interval_ns / 1000000)) {
  if (_mode == SyncOptions::kOff) return;
  constexpr std::size_t kMostCopied = 1 << 16;  // larger tags are left out of the copy
  std::string const head = ComposeHead(tracks, rate, &tags);
  bool const small = head.size() <= kMostCopied;
  std::string const copied = small ? head : ComposeHead(tracks, rate, nullptr);

  // The layout, backwards: the data, the header of movi, the index, JUNK. The copy of the headers
  // lies in sectors that contain nothing but JUNK. The index ends with 4 unused bytes: with the
  // header of movi they make 16 bytes from the last entry to the data.
  constexpr std::uint64_t kSector = HeadCopy::kSector, kRest = 4;
  auto const sectors = [](std::uint64_t n) { return RoundedUp(n, kSector); };
  std::uint64_t const reserve = ReserveBytes(options, tracks), junk = tags.JunkBytes();
  std::uint64_t const index = reserve != 0 ? kChunkHead + reserve + kRest : 0;
  std::uint64_t const begin = head.size() + kChunkHead, at = sectors(head.size() + kSector);
  std::uint64_t const copyEnd = at + HeadCopy::kFront + copied.size();
  std::uint64_t const data = sectors(std::max(sectors(copyEnd), begin + junk) + index + kListHead);
  std::uint64_t const junkEnd = data - kListHead - index;

  auto const u = [](std::uint64_t value) { return static_cast<unsigned>(value); };
  _dataAt = data;
  if (index != 0) _entriesAt = junkEnd + kChunkHead;
  avi::HeadPlaces const places{u(data), u(_entriesAt), u(reserve), u(junk)};
  std::string const copy = HeadCopy::Compose(copied, places);
  std::vector<char> filler(junkEnd - begin);
  std::copy(copy.begin(), copy.end(), filler.begin() + static_cast<std::ptrdiff_t>(at - begin));
  tags.Junk(std::move(filler));

  if (_mode != SyncOptions::kInPlace) _header = junkEnd + kListHead;
  if (_mode == SyncOptions::kImage) {
    _index = index;
    tags.IndexFirst();
  }
  _reserved = _mode == SyncOptions::kInPlace ? reserve + kRest : data;
  if (_mode != SyncOptions::kCallback) _entries = reserve / kEntry;
}

bool SyncPlan::Apply(base::Object& muxer) const {
  return muxer.Set("periodicSyncEn", _mode != SyncOptions::kInPlace) &&
         muxer.Set("flushtime", _interval_ms) && muxer.Set("reservedSize", _reserved) &&
         muxer.Set("periodicSyncHeaderSize", _header) && muxer.Set("periodicSyncIdx1Size", _index);
}

std::string SyncPlan::Describe(SyncOptions const& options, Tracks const& tracks) {
  std::string const every = " every " + Seconds(options.interval_ns / 1000000);
  if (options.mode == SyncOptions::kCallback)
    return "syncs headers and index to a separate file" + every;
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

}  // namespace kestro::record
