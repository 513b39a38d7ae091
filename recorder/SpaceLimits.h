// The limits of loop recording.
#pragma once

#include <cstdint>
#include <string>

#include "recorder/RecorderOptions.h"

namespace kestro::record {

// What is on the storage; in bytes, if nothing else is said.
struct SpaceUsage {
  std::uint64_t free = UINT64_MAX;  // UINT64_MAX: unknown
  std::uint64_t coming = 0;         // deleted, but not free yet
  std::uint64_t own = 0;            // recordings and side files, ...
  std::uint64_t kept = 0;           // ... of these, the protected ones
  std::uint64_t busy = 0;           // the open file and those that are being finished
  std::uint64_t pending = 0;        // what the busy files still need when they are closed now
  std::uint64_t files = 0;          // recordings that are not protected, busy ones included
};

// What the limits require.
struct SpaceNeed {
  bool space = false;                      // something should be deleted
  bool critical = false;                   // a limit is exceeded
  std::string limit;                       // which one; empty: the storage is full
  std::int64_t slack = INT64_MAX;          // bytes that may be written before something changes
  std::uint64_t segmentSize = UINT64_MAX;  // most bytes that a file should have
};

// Besides the limits, some space stays free for closing the open file, and some for writing while
// files are deleted: less on small storage.
SpaceNeed Judge(RetentionOptions const& limits, SpaceUsage const& usage);

}  // namespace kestro::record
