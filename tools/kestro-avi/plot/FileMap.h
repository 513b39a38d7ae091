// Draws the layout of a file as a bar.
#pragma once

#include <vector>

#include "plot/Chart.h"
#include "plot/Survey.h"

namespace kestro::tool {

// Draws heading, bar, axis and legend from `y` on; returns the bottom.
double DrawMap(Svg& svg, std::vector<Survey::Part> const& parts, Axis const& place, double y);

}  // namespace kestro::tool
