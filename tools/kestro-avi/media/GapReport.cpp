#include "media/GapReport.h"

#include "cli/Text.h"

namespace kestro::tool {

static std::string ActionText(Gap const& gap) {
  switch (gap.action) {
    case Gap::kShift:
      return "the rest of the track moves against the others";
    case Gap::kSilence:
      return "filled with silence";
    case Gap::kTrimmed:
      return "cut off";
    default:
      bool const all = gap.cut_ns < 0;
      return (all ? "" : Seconds_ns(gap.cut_ns) + " ") + "taken out of all tracks" +
             (all ? "" : ", the rest was recorded before the video came back") +
             (gap.action == Gap::kSegment ? "; a new file starts at the next key frame" : "");
  }
}

static Notice Describe(Gap const& gap, char const* what) {
  static constexpr char const* kActions[] = {"cut", "segment", "shift", "silence", "cut"};
  Notice notice(Seconds_ns(gap.length_ns) + " of " + what + " at " + Seconds_ns(gap.time_ns) +
                    "; " + ActionText(gap),
                gap.action == Gap::kTrimmed ? "overlap" : "gap",
                {{"at_ms", Ms(gap.time_ns)},
                 {"length_ms", Ms(gap.length_ns)},
                 {"action", kActions[gap.action]}});
  if (gap.cut_ns >= 0) notice.fields.push_back({"cut_ms", Ms(gap.cut_ns)});
  return notice;
}

void GapReport::Add(Gap const& gap) {
  Notice notice = Describe(gap, _what);
  _fresh.push_back(notice);
  notice.reported = true;
  if (_gaps.size() < kMost) {
    _gaps.push_back(std::move(notice));
    return;
  }
  ++_more;
  _more_ns += gap.length_ns;
}

Notices GapReport::Lines() const {
  Notices lines = _gaps;
  if (_more == 0) return lines;
  lines.emplace_back(Seconds_ns(_more_ns) + " more of " + _what + " in " +
                     Quantity(_more, "place"));
  lines.back().reported = true;
  return lines;
}

}  // namespace kestro::tool
