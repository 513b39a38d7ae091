#include "media/libav/Absences.h"

#include <algorithm>

#include "avi/ClockAnchor.h"
#include "cli/Text.h"
#include "media/libav/Patience.h"

namespace kestro::tool {

static std::string TimeOfDay() { return avi::UtcText(avi::ClockAnchor::Now::Read().wall_ns); }

Notice Absences::Lose(std::size_t input, std::string const& name, std::string const& reason,
                      std::int64_t at_ns) {
  Input& lost = _inputs[input];
  lost.name = name;
  lost.since_ns = Patience::Now_ns();
  ++lost.count;
  std::string const time = TimeOfDay();
  return {name + ": lost at " + time + " (" + reason + "); trying to open it again",
          "lost",
          {{"input", name}, {"at_ms", Ms(at_ns)}, {"time", time}, {"reason", reason}}};
}

Notice Absences::Return(std::size_t input, unsigned attempts, std::int64_t at_ns) {
  Input& back = _inputs[input];
  std::int64_t const away_ns = Patience::Now_ns() - back.since_ns;
  back.total_ns += away_ns;
  back.since_ns = 0;
  std::string const time = TimeOfDay();
  return {back.name + ": back at " + time + " after " + Seconds_ns(away_ns) + " and " +
              Quantity(attempts, "attempt"),
          "back",
          {{"input", back.name},
           {"at_ms", Ms(at_ns)},
           {"time", time},
           {"length_ms", Ms(away_ns)},
           {"attempts", attempts}}};
}

bool Absences::Awaited() const {
  return std::any_of(_inputs.begin(), _inputs.end(),
                     [](Input const& input) { return input.since_ns != 0 && !input.gone; });
}

Notices Absences::Findings() const {
  Notices findings;
  for (Input const& input : _inputs) {
    if (input.count == 0) continue;
    std::int64_t const now_ns = input.since_ns == 0 ? 0 : Patience::Now_ns() - input.since_ns;
    std::int64_t const total_ns = input.total_ns + now_ns;
    findings.push_back(
        {input.name + ": was lost " + Quantity(input.count, "time") + ", for " +
             Seconds_ns(total_ns) + " in all",
         "away",
         {{"input", input.name}, {"count", input.count}, {"length_ms", Ms(total_ns)}}});
  }
  return findings;
}

}  // namespace kestro::tool
