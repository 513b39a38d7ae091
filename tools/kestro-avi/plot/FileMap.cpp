#include "plot/FileMap.h"

#include <algorithm>

#include "cli/Text.h"

namespace kestro::tool {

// Draws small parts over large ones, moved a little where they would overlap.
static void DrawParts(Svg& svg, std::vector<Survey::Part> const& parts, Axis const& place, double y,
                      double height) {
  constexpr double kLeast = 2, kNear = 8;  // the least visible width, the most to move
  double const field = Chart::kRight - Chart::kLeft;
  for (bool large : {true, false}) {
    double drawn = 0;
    for (Survey::Part const& part : parts) {
      double const width = place.Share(static_cast<double>(part.end - part.begin)) * field;
      double const at = Chart::kLeft + place.Share(static_cast<double>(part.begin)) * field;
      double const left = std::min(std::max(at, drawn), Chart::kRight - kLeast);
      if ((width >= kLeast) != large || (!large && left > at + kNear)) continue;
      if (!large) drawn = left + kLeast;
      svg.Box(left, y, std::max(width, kLeast), height, std::string("fill ") + part.kind,
              std::string(part.kind) + ": " + std::to_string(part.end - part.begin) +
                  " bytes at offset " + std::to_string(part.begin));
    }
  }
}

double DrawMap(Svg& svg, std::vector<Survey::Part> const& parts, Axis const& place, double y) {
  constexpr double kBar = 28;
  svg.Text(Chart::kLeft, y + 14, "h", "Map of the file");
  DrawParts(svg, parts, place, y + 26, kBar);
  DrawBelow(svg, place, y + 26 + kBar);
  y += 26 + kBar + 64;
  double x = Chart::kLeft;
  for (char const* kind : {"header", "JUNK", "movi", "index", "other"}) {
    int64 bytes = 0;
    for (Survey::Part const& part : parts)
      if (part.kind == std::string(kind)) bytes += part.end - part.begin;
    if (bytes == 0) continue;
    std::string const text =
        std::string(kind) + ", " + ByteCount(static_cast<std::uint64_t>(bytes));
    svg.Box(x, y - 10, 12, 12, std::string("fill ") + kind);
    svg.Text(x + 18, y, "name", text);
    x += 44 + Chart::kLetter * static_cast<double>(text.size());
  }
  return y + 24;
}

}  // namespace kestro::tool
