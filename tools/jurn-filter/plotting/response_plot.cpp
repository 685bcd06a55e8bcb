#include "plotting/response_plot.h"

#include <algorithm>
#include <cmath>
#include <tuple>

#include "plotting/curves.h"
#include "text.h"

namespace jurn {
namespace {

using Complex = std::complex<double>;

constexpr double kDynamics = 130.0;      // dB that the magnitude's axis shows at most
constexpr double kPhaseDynamics = 60.0;  // dB below its peak a filter's phase is drawn
constexpr std::size_t kMaxPoints = 800;  // that are drawn of a time response
constexpr int kLegendRow = 22;           // pixels
constexpr double kMaxRadius = 3.0;       // of the drawn part of the z-plane

std::vector<std::string> names_of(const std::vector<NamedResponse>& all) {
  std::vector<std::string> names;
  for (const NamedResponse& r : all) names.push_back(r.name);
  return names;
}

/** Ticks at 1, 2 and 5 of every decade. */
std::string frequency_axis(const Range& x) {
  std::string text = "set logscale x\nset xlabel 'Frequency in Hz'\nset xtics (";
  const char* comma = "";
  for (int decade = -4; decade < 9; ++decade)
    for (const double digit : {1.0, 2.0, 5.0}) {
      const double f = digit * std::pow(10.0, decade);
      if (f < x.bottom * 0.999 || f > x.top * 1.001) continue;
      const bool kilo = f >= 999.0;
      append(&text, "%s'%g%s' %g", comma, kilo ? f / 1000.0 : f, kilo ? "k" : "", f);
      comma = ", ";
    }
  return text + ")\n";
}

Range frequency_range(const std::vector<NamedResponse>& all) {
  return {all[0].frequency.front(), all[0].frequency.back(), true};
}

std::string magnitude_panel(const std::vector<NamedResponse>& all, bool titles) {
  double top = -INFINITY, bottom = INFINITY;
  std::vector<Curve> curves;
  for (const NamedResponse& r : all) {
    Curve curve;
    for (std::size_t i = 0; i < r.magnitude.size(); ++i) {
      curve.push_back({r.frequency[i], r.magnitude[i]});
      if (!std::isfinite(r.magnitude[i])) continue;
      top = std::max(top, r.magnitude[i]);
      bottom = std::min(bottom, r.magnitude[i]);
    }
    curves.push_back(std::move(curve));
  }
  if (!std::isfinite(top)) top = bottom = 0.0;  // silence everywhere
  top = 10.0 * std::floor((top + 1.0) / 10.0 + 1.0);
  bottom = std::max(std::min(10.0 * std::floor(bottom / 10.0), top - 30.0), top - kDynamics);
  const Range x = frequency_range(all);
  return frequency_axis(x) + "set ylabel 'Magnitude in dB'\n" +
         draw_curves("magnitude", names_of(all), curves, x, {bottom, top}, titles);
}

/** A phase, or a delay, over frequency; far below the filter's peak it is noise and left out. */
Curve near_peak(const NamedResponse& r, const std::vector<double>& values) {
  double peak = -INFINITY;
  for (const double x : r.magnitude)
    if (std::isfinite(x)) peak = std::max(peak, x);
  Curve curve;
  for (std::size_t i = 0; i < values.size(); ++i) {
    const bool drawn = r.magnitude[i] >= peak - kPhaseDynamics && std::isfinite(values[i]);
    curve.push_back({r.frequency[i], drawn ? values[i] : std::nan("")});
  }
  return curve;
}

const std::string kNearPeakNote = "set label 100 'where the gain is within " +
                                  std::to_string(static_cast<int>(kPhaseDynamics)) +
                                  " dB of the peak' at graph 1,1.06 right\n";

std::string phase_panel(const std::vector<NamedResponse>& all, bool titles) {
  std::vector<Curve> curves;
  for (const NamedResponse& r : all) {
    Curve curve;
    for (const Point& p : near_peak(r, r.phase)) {
      // The line breaks where the phase wraps around.
      if (!curve.empty() && std::abs(p.y - curve.back().y) > 180.0)
        curve.push_back({p.x, std::nan("")});
      curve.push_back(p);
    }
    curves.push_back(std::move(curve));
  }
  const Range x = frequency_range(all);
  return frequency_axis(x) + kNearPeakNote + "set ylabel 'Phase in degrees'\nset ytics 90\n" +
         draw_curves("phase", names_of(all), curves, x, {-180.0, 180.0}, titles);
}

/** Widens a range to most values of a curve: an outlier would flatten all others. */
void include(const Curve& curve, Range* range) {
  std::vector<double> values;
  for (const Point& p : curve)
    if (!std::isnan(p.y)) values.push_back(p.y);
  if (values.empty()) return;
  std::sort(values.begin(), values.end());
  const std::size_t last = values.size() - 1;
  const double low = values[last / 100], high = values[last - last / 100];
  const double margin = 0.5 * (high - low);
  range->bottom = std::min(range->bottom, std::max(values[0], low - margin));
  range->top = std::max(range->top, std::min(values[last], high + margin));
}

/** Keeps curves off the frame. */
void add_margin(Range* range) {
  const double margin = 0.06 * (range->top - range->bottom);
  if (range->bottom != 0.0) range->bottom -= margin;
  range->top += margin;
}

std::string delay_panel(const std::vector<NamedResponse>& all, int rate, bool titles) {
  std::vector<Curve> curves;
  Range y{0.0, 2000.0 / rate};
  for (const NamedResponse& r : all) {
    curves.push_back(near_peak(r, r.delay));
    include(curves.back(), &y);
  }
  add_margin(&y);
  const Range x = frequency_range(all);
  return frequency_axis(x) + kNearPeakNote + "set ylabel 'Group delay in ms'\n" +
         draw_curves("delay", names_of(all), curves, x, y, titles);
}

/** Samples that show an impulse response: half as long again as 99 % of its energy takes. */
std::size_t drawn_length(const std::vector<double>& impulse) {
  double energy = 0.0, rest = 0.0;
  for (const double x : impulse) energy += x * x;
  std::size_t length = impulse.size();
  while (length > 1 && rest + impulse[length - 1] * impulse[length - 1] <= 0.01 * energy) {
    --length;
    rest += impulse[length] * impulse[length];
  }
  return std::min(length + length / 2, impulse.size());
}

std::string time_panel(const std::vector<NamedResponse>& all, const char* name,
                       std::vector<double> NamedResponse::*values, int rate, bool titles) {
  std::size_t longest = 16;
  for (const NamedResponse& r : all) longest = std::max(longest, drawn_length(r.impulse));
  const auto ms = [rate](std::size_t i) { return 1000.0 * static_cast<double>(i) / rate; };
  std::vector<Curve> curves;
  Range y{0.0, 0.0};
  for (const NamedResponse& r : all) {
    const std::vector<double>& all_values = r.*values;
    const std::size_t count = std::min(all_values.size(), longest);
    // Of long responses the extremes of each stretch.
    const std::size_t stretch = count > kMaxPoints ? count / (kMaxPoints / 2) : 1;
    Curve curve;
    for (std::size_t first = 0; first < count; first += stretch) {
      const auto begin = all_values.begin() + static_cast<std::ptrdiff_t>(first);
      const auto end =
          all_values.begin() + static_cast<std::ptrdiff_t>(std::min(first + stretch, count));
      auto [low, high] = std::minmax_element(begin, end);
      y = {std::min(y.bottom, *low), std::max(y.top, *high)};
      if (low > high) std::swap(low, high);
      curve.push_back({ms(static_cast<std::size_t>(low - all_values.begin())), *low});
      if (low != high)
        curve.push_back({ms(static_cast<std::size_t>(high - all_values.begin())), *high});
    }
    if (count < longest) {  // what follows the last tap
      const double rest = &all_values == &r.step ? all_values.back() : 0.0;
      curve.push_back({ms(count), rest});
      curve.push_back({ms(longest), rest});
    }
    curves.push_back(std::move(curve));
  }
  if (y.top == y.bottom) y.top = 1.0;
  add_margin(&y);
  std::string script;
  append(&script, "set xlabel 'Time in ms'\nset ylabel '%c%s response'\n", name[0] - 'a' + 'A',
         name + 1);
  return script + draw_curves(name, names_of(all), curves, {0.0, ms(longest)}, y, titles);
}

/** The z-plane; `aspect` is the panel's width over its height. */
std::string poles_panel(const std::vector<NamedResponse>& all, double aspect, bool titles) {
  std::string script, plot;
  double radius = 1.0;
  std::size_t outside = 0;
  bool omitted = false;
  int next_letter = 1;  // as which a terminal shows a symbol
  for (std::size_t f = 0; f < all.size(); ++f) {
    omitted = omitted || !all[f].has_roots;
    for (const auto& [name, roots, symbol] :
         {std::make_tuple("pole", &all[f].poles, 2), std::make_tuple("zero", &all[f].zeros, 6)}) {
      if (roots->empty()) continue;
      append(&script, "$%s%zu << END\n", name, f);
      for (const Complex& z : *roots) {
        append(&script, "%.6g %.6g\n", z.real(), z.imag());
        outside += std::abs(z) > kMaxRadius;
        if (std::abs(z) <= kMaxRadius) radius = std::max(radius, std::abs(z));
      }
      append(&script, "END\n");
      append(&plot, ", $%s%zu using 1:2 with points pointtype %d linewidth 1.5 linecolor rgb '%s' ",
             name, f, titles ? next_letter++ : symbol, colour(f));
      plot +=
          titles ? "title " + plot_string(std::string(name) + "s of " + all[f].name) : "notitle";
    }
  }
  std::string note = titles ? "" : "× poles, ○ zeros";
  if (omitted) append(&note, "; none drawn beyond %zu coefficients", kMaxRootTaps);
  if (outside) append(&note, "; %zu lie beyond radius %g", outside, kMaxRadius);
  const double height = 1.15 * radius, width = aspect * height;
  append(&script,
         "set label 100 %s at graph 1,1.06 right\nset xlabel 'Real part'\nset ylabel 'Imaginary "
         "part'\nset xrange [%g:%g]\nset yrange [%g:%g]\nset parametric\nset trange [0:2*pi]\n"
         "plot cos(t), sin(t) with lines linecolor rgb '#808080' notitle",
         plot_string(note).c_str(), -width, width, -height, height);
  return script + plot + "\nunset parametric\n";
}

/** The legend above all panels: a line and a name per filter. */
std::string legend(const std::vector<NamedResponse>& all, int columns, double width,
                   double height) {
  std::string script;
  for (std::size_t f = 0; f < all.size(); ++f) {
    const int row = static_cast<int>(f) / columns, column = static_cast<int>(f) % columns;
    const double x = (80 + column * 370) / width, y = 1.0 - (20 + kLegendRow * row) / height;
    append(&script,
           "set arrow from screen %.4f,%.4f to screen %.4f,%.4f nohead linewidth 3 linecolor rgb "
           "'%s'\nset label %s at screen %.4f,%.4f left\n",
           x, y, x + 30 / width, y, colour(f), plot_string(all[f].name).c_str(), x + 40 / width, y);
  }
  return script;
}

}  // namespace

std::string plot_responses(Picture format, const std::vector<Panel>& panels, int rate,
                           const std::vector<NamedResponse>& all) {
  const bool text = format == Picture::kTerminal;
  const int count = static_cast<int>(panels.size());
  const int columns = count > 3 ? 2 : 1, rows = (count + columns - 1) / columns;
  const int legend_columns = columns == 2 ? 3 : 2;
  const int legend_rows = (static_cast<int>(all.size()) + legend_columns - 1) / legend_columns;
  // In pixels, with the room for the labels around each panel.
  const int left = 90, right = 25, below = 60, above = 25;
  const int panel_width = columns == 2 ? 490 : 690, panel_height = rows == 1 ? 380 : 235;
  const int width = columns * (left + panel_width + right);
  const int height = 15 + kLegendRow * legend_rows + rows * (above + panel_height + below);
  const double w = width, h = height;

  std::string script = set_terminal(format, width, height);
  if (text) {
    script += "set key below\n";
  } else {
    append(&script,
           "set grid linetype 1 linecolor rgb '#dddddd' linewidth 0.7\n"
           "set border linecolor rgb '#404040'\n"
           "set multiplot layout %d,%d margins %.4f,%.4f,%.4f,%.4f spacing %.4f,%.4f\n",
           rows, columns, left / w, 1.0 - right / w, below / h,
           1.0 - (15 + kLegendRow * legend_rows + above) / h, (left + right) / w,
           (above + below) / h);
    script += legend(all, legend_columns, w, h);
  }
  for (const Panel panel : panels) {
    script += "unset logscale x\nset xtics autofreq\nset ytics autofreq\n";
    switch (panel) {
      case Panel::kMagnitude:
        script += magnitude_panel(all, text);
        break;
      case Panel::kPhase:
        script += phase_panel(all, text);
        break;
      case Panel::kGroupDelay:
        script += delay_panel(all, rate, text);
        break;
      case Panel::kImpulse:
        script += time_panel(all, "impulse", &NamedResponse::impulse, rate, text);
        break;
      case Panel::kStep:
        script += time_panel(all, "step", &NamedResponse::step, rate, text);
        break;
      case Panel::kPoles:
        // A terminal's characters are about twice as high as wide.
        script +=
            poles_panel(all, text ? 1.8 : static_cast<double>(panel_width) / panel_height, text);
        break;
    }
    script += "unset label\nunset arrow\n";
  }
  return script;
}

}  // namespace jurn
