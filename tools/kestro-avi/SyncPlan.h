// Recordings that stay playable when they are cut off: which way, and with what sizes.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "Tags.h"
#include "input/Track.h"

namespace kestro::tool {

struct SyncOptions {
  // In place: a reserve in front of the data takes the index. Image: so does one that is written as
  // a whole with the headers. Callback: headers and index go to a file of their own.
  enum Mode { kOff, kInPlace, kImage, kCallback } mode = kOff;
  std::int64_t interval_ns = 3000000000;    // from sync to sync
  std::int64_t reserve_ns = 3600000000000;  // the reserve is for a file of this length ...
  std::uint64_t reserveBytes = 0;           // ... unless its size is given
};

// The settings of the muxer that syncs. Its sizes go together: no index entry before the data
// lies in two sectors, the data begins with one, and a copy of the head lies in JUNK, a sector
// away.
class SyncPlan {
 public:
  SyncPlan() = default;  // no syncs
  // Changes the tags, whose JUNK fills what stands ahead of index or data. `rate` is the muxer's
  // "constFrameRate". Throws Error.
  SyncPlan(SyncOptions const& options, std::vector<Track*> const& tracks, base::Fraction rate,
           Tags& tags);

  bool Apply(base::Object& muxer) const;              // false when it refuses something
  std::uint64_t Entries() const { return _entries; }  // that the index has room for, 0: any number

  // The payload of the index in front of the data; 0 where there is none. Throws Error.
  static std::uint64_t ReserveBytes(SyncOptions const& options, std::vector<Track*> const& tracks);
  // One line for people.
  static std::string Text(SyncOptions const& options, std::vector<Track*> const& tracks);
  // Whether a property of the muxer is one of those above.
  static bool Owns(std::string const& property);

 private:
  using u64 = unsigned long long;  // the type of the properties

  SyncOptions::Mode _mode = SyncOptions::kOff;
  unsigned _interval_ms = 0;
  u64 _reserved = 0, _header = 0, _index = 0;
  std::uint64_t _entries = 0;
};

}  // namespace kestro::tool
