#include "plot/Chart.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace kestro::tool {

double RoundStep(double least) {
  double const power = std::pow(10, std::floor(std::log10(least)));
  for (double factor : {1.0, 2.0, 5.0})
    if (factor * power >= least * (1 - 1e-9)) return factor * power;
  return 10 * power;
}

Axis::Axis(std::string const& what, double from, double to, std::vector<Unit> const& units,
           int ticks, bool whole)
    : low(from), high(to), unit(units.front()) {
  double const largest = std::max(std::abs(low), std::abs(high));
  for (Unit const& larger : units)
    if (largest >= 2 * larger.factor) unit = larger;
  step = RoundStep((high - low) / unit.factor / ticks) * unit.factor;
  if (whole) {
    low = std::floor(low / step + 1e-9) * step;
    high = std::ceil(high / step - 1e-9) * step;
  }
  label = what + " (" + unit.name + ")";
}

std::vector<double> Axis::Ticks() const {
  std::vector<double> ticks;
  double const first = std::ceil(low / step - 1e-9);
  for (int i = 0; (first + i) * step <= high + step * 1e-6; ++i)
    ticks.push_back((first + i) * step);
  return ticks;
}

std::string Axis::TickText(double tick) const {
  double const shown = step / unit.factor;
  int const decimals = std::max(0, -static_cast<int>(std::floor(std::log10(shown) + 1e-9)));
  char text[64];
  std::snprintf(text, sizeof text, "%.*f", decimals, std::abs(tick) / unit.factor);
  return tick < -step / 2 ? std::string("\u2212") + text : text;
}

Chart::Chart(Svg& svg, double top, double gap, double height, std::string const& heading,
             Axis const& x, Axis const& y, bool filled)
    : _svg(svg), _x(x), _y(y), _top(top + 26 + gap), _bottom(_top + height) {
  svg.Text(kLeft, top + 14, "h", heading);
  svg.Box(kLeft, _top, kRight - kLeft, height, "field");
  if (!filled) return;
  std::string grid;
  for (double tick : x.Ticks())
    grid += "M" + Coordinate(X(tick)) + " " + Coordinate(_top) + "v" + Coordinate(height);
  for (double tick : y.Ticks()) {
    grid += "M" + Coordinate(kLeft) + " " + Coordinate(Y(tick)) + "H" + Coordinate(kRight);
    svg.Text(kLeft - 8, Y(tick) + 4, "end", y.TickText(tick));
  }
  svg.Path(grid, "grid");
  svg.Path("M" + Coordinate(kLeft) + " " + Coordinate(Y(0)) + "H" + Coordinate(kRight), "axis");
  svg.Text(kLeft - 8, top + 14, "end", y.unit.name);
}

void Chart::Message(std::string const& text) {
  _svg.Text((kLeft + kRight) / 2, (_top + _bottom) / 2 + 4, "mid dim", text);
}

void DrawBelow(Svg& svg, Axis const& axis, double y) {
  std::string marks;
  for (double tick : axis.Ticks()) {
    double const x = Chart::kLeft + axis.Share(tick) * (Chart::kRight - Chart::kLeft);
    marks += "M" + Coordinate(x) + " " + Coordinate(y) + "v5";
    svg.Text(x, y + 18, "mid", axis.TickText(tick));
  }
  svg.Path(marks, "axis");
  svg.Text((Chart::kLeft + Chart::kRight) / 2, y + 36, "mid dim", axis.label);
}

}  // namespace kestro::tool
