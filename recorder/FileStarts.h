// Knows when each file of a recording starts.
#pragma once

#include <deque>
#include <mutex>
#include <optional>

#include "avi/ClockAnchor.h"
#include "recorder/RecorderOptions.h"

namespace kestro::record {

// Relates the packets' times to the time at which they were captured. This happens when packets are
// pushed, because they may wait in the queue for a long time. All functions may be called from any
// thread.
class FileStarts {
 public:
  explicit FileStarts(RecorderOptions const& options);  // which must outlive the object

  // Takes a packet of the leading track that is being pushed.
  void Take(std::int64_t time_ns);
  struct Start {
    std::string isft;                     // what the file stores
    std::optional<std::int64_t> wall_ns;  // since 1970-01-01 UTC, if known
  };
  // About a file that starts at this time. Times must not decrease.
  Start At(std::int64_t time_ns);
  // When one of the latest packets was captured; empty: unknown.
  std::optional<avi::StartTime> Captured(std::int64_t time_ns) const;
  // What the clock reads now.
  std::int64_t Wall_ns() const;

 private:
  struct Span {
    std::int64_t from_ns;  // packet time
    std::optional<avi::StartTime> start;
  };
  std::optional<avi::StartTime> Ask(std::int64_t time_ns) const;
  std::optional<avi::StartTime> Find(std::int64_t time_ns);

  RecorderOptions const& _options;
  bool const _known;  // there is something to write

  mutable std::mutex _mutex;  // protects what follows
  avi::ClockAnchor _anchor;
  std::deque<Span> _spans;  // each up to the next one; of times that no file has started at
};

}  // namespace kestro::record
