// Draws charts with two axes.
#pragma once

#include <string>
#include <vector>

#include "plot/Svg.h"

namespace kestro::tool {

// The smallest number of the form 1, 2 or 5 times a power of ten that is at least `least`, which
// must be positive.
double RoundStep(double least);

struct Unit {
  double factor;
  char const* name;
};

// The range of an axis, in the unit of the values, and its ticks, at round numbers of the displayed
// unit.
struct Axis {
  // `units`: from small to large. `whole`: extend the range to whole steps.
  Axis(std::string const& what, double low, double high, std::vector<Unit> const& units, int ticks,
       bool whole);

  double Share(double value) const { return (value - low) / (high - low); }
  std::vector<double> Ticks() const;
  std::string TickText(double tick) const;

  double low, high, step;
  Unit unit;
  std::string label;
};

class Chart {
 public:
  static constexpr double kWidth = 960, kLeft = 84, kRight = 936;
  static constexpr double kLetter = 7.2;  // average width of a letter, for legends

  // Draws heading and background, and the grid with numbers if the chart has data (`filled`).
  // `top`: top of the heading; `gap`: space between heading and chart.
  Chart(Svg& svg, double top, double gap, double height, std::string const& heading, Axis const& x,
        Axis const& y, bool filled);

  double X(double value) const { return kLeft + _x.Share(value) * (kRight - kLeft); }
  double Y(double value) const { return _bottom - _y.Share(value) * (_bottom - _top); }
  double Bottom() const { return _bottom; }  // of the chart area
  void Message(std::string const& text);     // shown instead of data

 private:
  Svg& _svg;
  Axis _x, _y;
  double _top, _bottom;
};

// Ticks, numbers and label of a horizontal axis below `y`.
void DrawBelow(Svg& svg, Axis const& axis, double y);

}  // namespace kestro::tool
