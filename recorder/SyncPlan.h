// Recordings that stay playable when they are cut off: which way, and with what sizes.
#pragma once

#include <cstdint>
#include <string>

#include "recorder/Tags.h"
#include "recorder/TrackInfo.h"

namespace kestro::record {

// The settings of the muxer that syncs. Its sizes go together: no index entry before the data
// lies in two sectors, the data begins with one, and a copy of the head lies in JUNK, a sector
// away.
class SyncPlan {
 public:
  SyncPlan() = default;  // no syncs
  // Changes the tags, whose JUNK fills what stands ahead of index or data. `rate` is the muxer's
  // "constFrameRate". Throws Refusal.
  SyncPlan(SyncOptions const& options, Tracks const& tracks, base::Fraction rate, Tags& tags);

  bool Apply(base::Object& muxer) const;              // false when it refuses something
  std::uint64_t Entries() const { return _entries; }  // that the index has room for, 0: any number
  std::uint64_t EntriesAt() const { return _entriesAt; }  // of an index before the data, 0: none
  std::uint64_t DataAt() const { return _dataAt; }

  // The payload of the index in front of the data; 0 where there is none. Throws Refusal.
  static std::uint64_t ReserveBytes(SyncOptions const& options, Tracks const& tracks);
  // One line for people.
  static std::string Text(SyncOptions const& options, Tracks const& tracks);
  // Whether a property of the muxer is one of those above.
  static bool Owns(std::string const& property);

 private:
  using u64 = unsigned long long;  // the type of the properties

  SyncOptions::Mode _mode = SyncOptions::kOff;
  unsigned _interval_ms = 0;
  u64 _reserved = 0, _header = 0, _index = 0;
  std::uint64_t _entries = 0, _entriesAt = 0, _dataAt = 0;
};

}  // namespace kestro::record
