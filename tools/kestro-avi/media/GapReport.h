// Describes gaps and overlaps in a track.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "cli/Notice.h"

namespace kestro::tool {

struct Gap {
  enum Action {
    kCut,      // the same time is taken out of all tracks
    kSegment,  // the same, and a new file starts at the next key frame
    kShift,    // the rest of the track moves against the others
    kSilence,  // missing audio: filled with silence
    kTrimmed,  // overlapping audio: cut off
  } action;
  std::int64_t time_ns, length_ns;  // in the recording
  // How much was taken out of all tracks, if that is less: the rest was recorded before the video
  // came back.
  std::int64_t cut_ns = -1;
};

class GapReport {
 public:
  // `what`: such as "missing audio".
  explicit GapReport(char const* what) : _what(what) {}

  void Add(Gap const& gap);

  // The gaps that were added since the last call.
  Notices Take() { return std::exchange(_fresh, {}); }
  // One line for each gap, the first ones in full.
  Notices Lines() const;

 private:
  static constexpr std::size_t kMost = 10;
  char const* const _what;
  Notices _gaps;  // the first ones
  Notices _fresh;
  std::uint64_t _more = 0;
  std::int64_t _more_ns = 0;
};

}  // namespace kestro::tool
