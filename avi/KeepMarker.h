// The marker next to a recording that must not be deleted.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace kestro::avi {

// The content of FILE.keep: the events for which a recorder keeps the file, as JSON.
//
//   {
//     "label": "impact",
//     "time": "2026-11-22T14:56:37.123Z",
//     "window": {"from": "2026-11-22T14:56:27.123Z", "to": "2026-11-22T14:56:57.123Z"},
//     "events": [
//       {"label": "impact", "time": "2026-11-22T14:56:37.123Z", "window": {...}}
//     ]
//   }
//
// The first lines repeat the first event, with a window that contains those of all events. When the
// clock was not set, times are such as "12.345 s after boot". A marker protects its file whatever
// it contains: after a power cut it may be empty or damaged.
struct KeepMarker {
  static constexpr char kEnding[] = ".keep";          // after the name of the recording
  static constexpr std::size_t kMostBytes = 1 << 16;  // of a marker that is read

  struct Event {
    std::string label, time, from, to;
  };
  std::string from, to;  // of all events
  std::vector<Event> events;

  std::string Compose() const;  // labels must be valid UTF-8
  // Without events if the text is damaged.
  static KeepMarker Parse(std::string_view text);

  // A label as it is stored: at most 200 bytes of valid UTF-8.
  static std::string Label(std::string_view text);
};

}  // namespace kestro::avi
