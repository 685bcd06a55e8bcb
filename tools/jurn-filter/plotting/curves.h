// Panels of curves for gnuplot.
#pragma once

#include <cmath>
#include <cstddef>
#include <string>
#include <vector>

namespace jurn {

struct Point {
  double x, y;
};
using Curve = std::vector<Point>;  // broken where y is no number

struct Range {
  double bottom, top;
  bool logarithmic = false;

  double place(double value) const {  // 0 at the bottom, 1 at the top
    return logarithmic ? std::log(value / bottom) / std::log(top / bottom)
                       : (value - bottom) / (top - bottom);
  }
};

/** The colour of a filter; told apart with every kind of colour vision. */
const char* colour(std::size_t filter);

/** A panel: data and plot commands, one curve per filter. `name` tells its data from those of the
 * other panels. */
std::string draw_curves(const char* name, const std::vector<std::string>& filters,
                        const std::vector<Curve>& curves, const Range& x, const Range& y,
                        bool titles);

}  // namespace jurn
