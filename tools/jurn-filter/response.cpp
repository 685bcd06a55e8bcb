#include "response.h"

#include <algorithm>
#include <cmath>

#include "design/roots.h"
#include "design/stability.h"
#include "errors.h"
#include "plot.h"
#include "recordings/audio_io.h"

namespace tool {
namespace {

using Complex = std::complex<double>;

const double kPi = std::acos(-1.0);
constexpr std::size_t kFrequencies = 1000;
constexpr double kDynamics = 130.0;         // dB that the magnitude's axis shows at most
constexpr double kPhaseDynamics = 60.0;     // dB below its peak a filter's phase is drawn
constexpr std::size_t kMaxImpulse = 65536;  // of recursive filters, in samples
constexpr double kDecayed = 1e-3;
constexpr std::size_t kMaxPoints = 800;  // that are drawn of a time response
constexpr double kVisible = 5e-4;        // of a panel's width or height
constexpr int kLegendRow = 22;           // pixels
constexpr std::size_t kMaxTaps = 100;    // beyond, zeros crowd along the circle
constexpr double kMaxRadius = 3.0;       // of the drawn part of the z-plane

// Told apart with every kind of colour vision.
const char* const kColours[] = {"#0072b2", "#d55e00", "#009e73", "#cc79a7",
                                "#e69f00", "#56b4e9", "#000000", "#999999"};

const char* colour(std::size_t filter) {
  return kColours[filter % (sizeof kColours / sizeof kColours[0])];
}

std::size_t group_of(const FilterDesign& design) {
  return design.kind == FilterDesign::kSections ? 3 : std::max(design.b.size(), design.a.size());
}

/** Multiplies (or divides) by a polynomial in x, and adds (or subtracts) its delay. */
void apply(const double* c, std::size_t count, Complex x, bool divide, FrequencyResponse* h) {
  Complex value = 0.0, slope = 0.0;
  for (std::size_t k = count; k-- > 0;) {
    slope = slope * x + value;
    value = value * x + c[k];
  }
  const double delay = (slope * x / value).real();
  h->value = divide ? h->value / value : h->value * value;
  h->delay += divide ? -delay : delay;
}

/** Everything that is drawn of one filter. */
struct Response {
  std::string name;
  std::vector<double> frequency, magnitude, phase, delay;  // Hz, dB, degrees, ms
  std::vector<double> impulse, step;
  bool has_roots = false;
  std::vector<Complex> poles, zeros;
};

std::vector<double> frequencies(int rate) {
  const double top = rate / 2.0, bottom = std::min(10.0, top / 1000.0);
  std::vector<double> result;
  for (std::size_t i = 0; i + 1 < kFrequencies; ++i)
    result.push_back(bottom * std::pow(top / bottom, static_cast<double>(i) / (kFrequencies - 1)));
  result.push_back(top);
  return result;
}

Response respond(const NamedFilter& filter, int rate) {
  const FilterDesign& design = filter.design;
  Response r;
  r.name = filter.name;
  r.frequency = frequencies(rate);
  for (const double f : r.frequency) {
    const FrequencyResponse h = frequency_response(design, 2.0 * kPi * f / rate);
    r.magnitude.push_back(20.0 * std::log10(std::abs(h.value)));
    r.phase.push_back(std::arg(h.value) * 180.0 / kPi);
    r.delay.push_back(1000.0 * h.delay / rate);
  }
  r.impulse = impulse_response(design);
  double sum = 0.0;
  for (const double x : r.impulse) r.step.push_back(sum += x);
  r.has_roots = design.kind == FilterDesign::kSections ||
                std::max(design.b.size(), design.a.size()) <= kMaxTaps;
  if (r.has_roots) {
    r.zeros = roots_of(design, design.b);
    if (!design.a.empty()) r.poles = roots_of(design, design.a);
  }
  return r;
}

std::string table(const std::vector<Response>& responses, int rate) {
  std::string text = "filter,quantity,x,y\n";
  for (const Response& r : responses) {
    const std::string name = csv_field(r.name);
    const auto row = [&](const char* quantity, double x, double y) {
      append(&text, "%s,%s,%.9g,%.9g\n", name.c_str(), quantity, x, y);
    };
    for (std::size_t i = 0; i < r.frequency.size(); ++i) {
      row("magnitude_db", r.frequency[i], r.magnitude[i]);
      row("phase_degrees", r.frequency[i], r.phase[i]);
      row("group_delay_ms", r.frequency[i], r.delay[i]);
    }
    for (std::size_t i = 0; i < r.impulse.size(); ++i) {
      const double ms = 1000.0 * static_cast<double>(i) / rate;
      row("impulse", ms, r.impulse[i]);
      row("step", ms, r.step[i]);
    }
    for (const Complex& z : r.poles) row("pole", z.real(), z.imag());
    for (const Complex& z : r.zeros) row("zero", z.real(), z.imag());
  }
  return text;
}

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

/** One panel of curves. */
std::string lines(const char* name, const std::vector<Response>& all,
                  const std::vector<Curve>& curves, const Range& x, const Range& y, bool titles) {
  std::string script, plot;
  for (std::size_t f = 0; f < all.size(); ++f) {
    script += data(name, f, curves[f], x, y);
    append(&plot, "%s$%s%zu using 1:2 with lines linewidth 1.5 linecolor rgb '%s' %s",
           f ? ", " : "plot ", name, f, colour(f),
           titles ? ("title " + plot_string(all[f].name)).c_str() : "notitle");
  }
  append(&script, "set xrange [%.9g:%.9g]\nset yrange [%.9g:%.9g]\n", x.bottom, x.top, y.bottom,
         y.top);
  return script + plot + "\n";
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

Range frequency_range(const std::vector<Response>& all) {
  return {all[0].frequency.front(), all[0].frequency.back(), true};
}

std::string magnitude_panel(const std::vector<Response>& all, bool titles) {
  double top = -INFINITY, bottom = INFINITY;
  std::vector<Curve> curves;
  for (const Response& r : all) {
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
         lines("magnitude", all, curves, x, {bottom, top}, titles);
}

/** A phase, or a delay, over frequency; far below the filter's peak it is noise and left out. */
Curve near_peak(const Response& r, const std::vector<double>& values) {
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

std::string phase_panel(const std::vector<Response>& all, bool titles) {
  std::vector<Curve> curves;
  for (const Response& r : all) {
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
         lines("phase", all, curves, x, {-180.0, 180.0}, titles);
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

std::string delay_panel(const std::vector<Response>& all, int rate, bool titles) {
  std::vector<Curve> curves;
  Range y{0.0, 2000.0 / rate};
  for (const Response& r : all) {
    curves.push_back(near_peak(r, r.delay));
    include(curves.back(), &y);
  }
  add_margin(&y);
  const Range x = frequency_range(all);
  return frequency_axis(x) + kNearPeakNote + "set ylabel 'Group delay in ms'\n" +
         lines("delay", all, curves, x, y, titles);
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

std::string time_panel(const std::vector<Response>& all, const char* name,
                       std::vector<double> Response::*values, int rate, bool titles) {
  std::size_t longest = 16;
  for (const Response& r : all) longest = std::max(longest, drawn_length(r.impulse));
  const auto ms = [rate](std::size_t i) { return 1000.0 * static_cast<double>(i) / rate; };
  std::vector<Curve> curves;
  Range y{0.0, 0.0};
  for (const Response& r : all) {
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
  return script + lines(name, all, curves, {0.0, ms(longest)}, y, titles);
}

/** The z-plane; `aspect` is the panel's width over its height. */
std::string poles_panel(const std::vector<Response>& all, double aspect, bool titles) {
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
  if (omitted) append(&note, "; none drawn beyond %zu coefficients", kMaxTaps);
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
std::string legend(const std::vector<Response>& all, int columns, double width, double height) {
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

/** The panels; on the terminal one after the other. */
std::string plot_script(const ResponseJob& job, const std::vector<Response>& all) {
  const Picture format = picture_format(job.picture);
  const bool text = format == Picture::kTerminal;
  const int count = static_cast<int>(job.panels.size());
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
  for (const Panel panel : job.panels) {
    script += "unset logscale x\nset xtics autofreq\nset ytics autofreq\n";
    switch (panel) {
      case Panel::kMagnitude:
        script += magnitude_panel(all, text);
        break;
      case Panel::kPhase:
        script += phase_panel(all, text);
        break;
      case Panel::kGroupDelay:
        script += delay_panel(all, job.rate, text);
        break;
      case Panel::kImpulse:
        script += time_panel(all, "impulse", &Response::impulse, job.rate, text);
        break;
      case Panel::kStep:
        script += time_panel(all, "step", &Response::step, job.rate, text);
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

}  // namespace

FrequencyResponse frequency_response(const FilterDesign& design, double frequency) {
  const Complex x = std::polar(1.0, -frequency);
  const std::size_t group = group_of(design);
  FrequencyResponse h{1.0, 0.0};
  for (const std::vector<double>* all : {&design.b, &design.a})
    for (std::size_t at = 0; at < all->size(); at += group)
      apply(all->data() + at, std::min(group, all->size() - at), x, all == &design.a, &h);
  return h;
}

std::vector<double> impulse_response(const FilterDesign& design) {
  if (design.a.empty()) return design.b;
  std::vector<double> x(kMaxImpulse, 0.0), y(kMaxImpulse, 0.0);
  x[0] = 1.0;
  const std::size_t group = group_of(design);
  for (std::size_t at = 0; at < std::max(design.b.size(), design.a.size()); at += group) {
    for (std::size_t n = 0; n < x.size(); ++n) {
      double sum = 0.0;
      for (std::size_t k = 0; k < std::min(group, design.b.size() - at) && k <= n; ++k)
        sum += design.b[at + k] * x[n - k];
      for (std::size_t k = 1; k < std::min(group, design.a.size() - at) && k <= n; ++k)
        sum -= design.a[at + k] * y[n - k];
      y[n] = sum;
    }
    x.swap(y);
  }
  double peak = 0.0;
  for (std::size_t n = 0; n < x.size(); ++n) {
    peak = std::max(peak, std::abs(x[n]));
    if (!(peak < 1e6)) x.resize(n + 1);  // unstable
  }
  while (x.size() > 16 && std::abs(x.back()) < kDecayed * peak) x.pop_back();
  return x;
}

void run_response(ResponseJob job) {
  if (job.panels.empty()) {
    job.panels = {Panel::kMagnitude};
    if (!job.picture.empty())
      job.panels = {Panel::kMagnitude, Panel::kImpulse,    Panel::kPhase,
                    Panel::kStep,      Panel::kGroupDelay, Panel::kPoles};
  }
  for (const std::string* output : {&job.picture, &job.csv})
    if (!output->empty()) refuse_overwrite(*output, job.also_read);
  std::vector<Response> responses;
  for (const NamedFilter& filter : job.filters) responses.push_back(respond(filter, job.rate));
  if (!job.csv.empty()) write_csv(job.csv, job.overwrite, table(responses, job.rate));
  if (!job.picture.empty() || job.csv.empty())
    draw(job.picture, job.overwrite, plot_script(job, responses));
}

}  // namespace tool
