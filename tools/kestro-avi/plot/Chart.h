// A field with two axes.
#pragma once

#include <string>
#include <vector>

#include "plot/Svg.h"

namespace kestro::tool {

// The smallest of 1, 2 and 5 times a power of ten that is not below `least`, which is positive.
double RoundStep(double least);

struct Unit {
  double factor;
  char const* name;
};

// What an axis shows, in the unit of its values, and where its ticks are: at round numbers of the
// unit that people read.
struct Axis {
  // `units` from small to large. `whole`: the ends are ticks too; otherwise they are as given.
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
  static constexpr double kLetter = 7.2;  // width of a common one, for legends

  // Draws the field, with ticks and numbers where it will be `filled`. `top`: of its heading;
  // `gap`: room between heading and field.
  Chart(Svg& svg, double top, double gap, double height, std::string const& heading, Axis const& x,
        Axis const& y, bool filled);

  double X(double value) const { return kLeft + _x.Share(value) * (kRight - kLeft); }
  double Y(double value) const { return _bottom - _y.Share(value) * (_bottom - _top); }
  double Bottom() const { return _bottom; }  // of the field
  void Message(std::string const& text);     // instead of data

 private:
  Svg& _svg;
  Axis _x, _y;
  double _top, _bottom;
};

// Ticks, numbers and label of a horizontal axis below `y`.
void DrawBelow(Svg& svg, Axis const& axis, double y);

}  // namespace kestro::tool
