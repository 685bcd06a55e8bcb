#include "plotting/curves.h"

#include <algorithm>

#include "plotting/gnuplot.h"
#include "text.h"

namespace jurn {
namespace {

constexpr double kVisible = 5e-4;  // of a panel's width or height

const char* const kColours[] = {"#0072b2", "#d55e00", "#009e73", "#cc79a7",
                                "#e69f00", "#56b4e9", "#000000", "#999999"};

/** Marks the points of a stretch that a line between its ends would miss by a visible distance. */
void keep_visible(const Curve& places, std::size_t first, std::size_t last,
                  std::vector<bool>* keep) {
  if (last <= first + 1) return;
  const Point& a = places[first];
  const double dx = places[last].x - a.x, dy = places[last].y - a.y;
  const double length = std::max(std::hypot(dx, dy), 1e-9);
  double farthest = 0.0;
  std::size_t at = first;
  for (std::size_t i = first + 1; i < last; ++i) {
    const double distance = std::abs((places[i].x - a.x) * dy - (places[i].y - a.y) * dx) / length;
    if (distance > farthest) {
      farthest = distance;
      at = i;
    }
  }
  if (farthest < kVisible) return;
  (*keep)[at] = true;
  keep_visible(places, first, at, keep);
  keep_visible(places, at, last, keep);
}

/** A block of data for gnuplot. */
std::string data(const char* name, std::size_t filter, const Curve& curve, const Range& x,
                 const Range& y) {
  Curve places;
  for (const Point& p : curve)
    places.push_back({x.place(p.x), std::min(std::max(y.place(p.y), -1.0), 2.0)});
  std::vector<bool> keep(curve.size(), false);
  for (std::size_t first = 0; first < curve.size(); ++first) {
    if (std::isnan(curve[first].y)) continue;
    std::size_t last = first;
    while (last + 1 < curve.size() && !std::isnan(curve[last + 1].y)) ++last;
    keep[first] = keep[last] = true;
    keep_visible(places, first, last, &keep);
    first = last;
  }
  std::string text;
  append(&text, "$%s%zu << END\nNaN NaN\n", name, filter);
  for (std::size_t i = 0; i < curve.size(); ++i) {
    const double shown = y.bottom + (y.top - y.bottom) * places[i].y;
    if (keep[i]) append(&text, "%.6g %.6g\n", curve[i].x, shown);
    if (std::isnan(curve[i].y)) text += "\n";
  }
  return text + "END\n";
}

}  // namespace

const char* colour(std::size_t filter) {
  return kColours[filter % (sizeof kColours / sizeof kColours[0])];
}

std::string draw_curves(const char* name, const std::vector<std::string>& filters,
                        const std::vector<Curve>& curves, const Range& x, const Range& y,
                        bool titles) {
  std::string script, plot;
  for (std::size_t f = 0; f < curves.size(); ++f) {
    script += data(name, f, curves[f], x, y);
    append(&plot, "%s$%s%zu using 1:2 with lines linewidth 1.5 linecolor rgb '%s' %s",
           f ? ", " : "plot ", name, f, colour(f),
           titles ? ("title " + plot_string(filters[f])).c_str() : "notitle");
  }
  append(&script, "set xrange [%.9g:%.9g]\nset yrange [%.9g:%.9g]\n", x.bottom, x.top, y.bottom,
         y.top);
  return script + plot + "\n";
}

}  // namespace jurn
