// How a recording is synced while it is written: the mode, and the sizes of the reserved areas.
#pragma once

#include <cstdint>
#include <string>

#include "recorder/Tags.h"
#include "recorder/TrackInfo.h"

namespace kestro::record {

// The settings of the syncing muxer. The sizes are chosen so that no entry of an index before the
// data crosses a sector, the data starts at a sector, and a copy of the headers lies in JUNK, at
// least a sector away from the headers.
class SyncPlan {
 public:
  // Changes the JUNK of the tags, which fills the space before the index or the data. `rate` is the
  // muxer's "constFrameRate". Throws Refusal.
  SyncPlan(SyncOptions const& options, Tracks const& tracks, base::Fraction rate, Tags& tags);

  bool Apply(base::Object& muxer) const;              // false when the muxer refuses a setting
  std::uint64_t Entries() const { return _entries; }  // capacity of the index, 0: unlimited
  // Offsets: of the entries of an index before the data (0: no such index), of the data.
  std::uint64_t EntriesAt() const { return _entriesAt; }
  std::uint64_t DataAt() const { return _dataAt; }

  // The size of an index before the data; 0 when there is none. Throws Refusal.
  static std::uint64_t ReserveBytes(SyncOptions const& options, Tracks const& tracks);
  // One line for people.
  static std::string Describe(SyncOptions const& options, Tracks const& tracks);
  // Whether this class sets a property of the muxer.
  static bool Owns(std::string const& property);

 private:
  using u64 = unsigned long long;  // the type of the properties

  SyncOptions::Mode _mode = SyncOptions::kOff;
  unsigned _interval_ms = 0;
  u64 _reserved = 0, _header = 0, _index = 0;
  std::uint64_t _entries = 0, _entriesAt = 0, _dataAt = 0;
};

}  // namespace kestro::record
