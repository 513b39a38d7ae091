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

// The least number from `value` on that leaves this rest when divided by 16.
static std::uint64_t Aligned(std::uint64_t value, std::uint64_t rest) {
  return value + (rest + 16 - value % 16) % 16;
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
  // A little more, as files end late rather than early.
  double const entries = EntriesPerSecond(tracks) * static_cast<double>(options.reserve_ns) / 1e9;
  double const bytes = options.reserveBytes != 0 ? static_cast<double>(options.reserveBytes)
                                                 : kEntry * (std::ceil(entries * 1.01) + 64);
  constexpr std::uint64_t kLargest = INT_MAX - (std::uint64_t{64} << 20);  // beside the head
  if (bytes > static_cast<double>(kLargest))
    throw Refusal(Code::kInvalid, "a reserve for an index of " +
                                      ByteCount(static_cast<std::uint64_t>(bytes)) +
                                      " is more than files can have");
  return Aligned(static_cast<std::uint64_t>(bytes), 0);
}

SyncPlan::SyncPlan(SyncOptions const& options, Tracks const& tracks, base::Fraction rate,
                   Tags& tags)
    : _mode(options.mode), _interval_ms(static_cast<unsigned>(options.interval_ns / 1000000)) {
  if (_mode == SyncOptions::kOff) return;
  constexpr std::size_t kMostCopied = 1 << 16;  // tags beyond it are not worth their place
  std::string const head = ComposeHead(tracks, rate, &tags);
  bool const small = head.size() <= kMostCopied;
  std::string const copied = small ? head : ComposeHead(tracks, rate, nullptr);

  // From the end: the data, the head of movi, the index, JUNK. The copy shares no sector with any
  // of them but JUNK. Of the index, 4 bytes are too few for an entry: with the heads of two chunks
  // they make 16 from the last entry to the data.
  constexpr std::uint64_t kSector = HeadCopy::kSector, kRest = 4;
  auto const sectors = [](std::uint64_t n) { return (n + kSector - 1) / kSector * kSector; };
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

std::string SyncPlan::Text(SyncOptions const& options, Tracks const& tracks) {
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

}  // namespace kestro::record
