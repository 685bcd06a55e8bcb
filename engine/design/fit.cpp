#include "exact.h"

#include "design/fit.h"

#include <algorithm>
#include <cmath>
#include <string>
#include <utility>

#include "design/filter_design.h"
#include "design/fit_search.h"
#include "design/spectrum.h"
#include "elementary.h"
#include "errors.h"
#include "number_text.h"
#include "units.h"

namespace jurn {
namespace {

constexpr double kPerOctave = 48.0, kHalfStep = 1.0072464122237039;  // 2^(1 / 96)
constexpr double kLeastGain = 0.05;                                  // dB of a band that stays

void check(double value, double least, double most, const char* what) {
  if (value >= least && value <= most) return;
  throw Error(kUsageError, what + (" " + printed("%g", value)) + ": accepted is " +
                               printed("%g", least) + " to " + printed("%g", most));
}

/** Points at frequencies: means where they are dense, lines over log f where they are not. */
Curve sampled(const std::vector<GraphicPoint>& points, const Curve& frequencies) {
  Curve curve;
  for (const double f : frequencies) {
    const auto below = [](const GraphicPoint& p, double x) { return p.frequency < x; };
    const auto first = std::lower_bound(points.begin(), points.end(), f / kHalfStep, below);
    const auto last = std::lower_bound(first, points.end(), f * kHalfStep, below);
    double sum = 0.0;
    for (auto p = first; p < last; ++p) sum += p->gain;
    if (last - first > 2) {
      curve.push_back(sum / static_cast<double>(last - first));
      continue;
    }
    const auto right = std::lower_bound(first, last, f, below);
    if (right == points.begin() || right == points.end()) {
      curve.push_back(right == points.end() ? points.back().gain : right->gain);
      continue;
    }
    const auto left = right - 1;
    const double share =
        elementary::log(f / left->frequency) / elementary::log(right->frequency / left->frequency);
    curve.push_back(left->gain + share * (right->gain - left->gain));
  }
  return curve;
}

FitError error_of(const Curve& left, const Curve& frequencies) {
  FitError error;
  error.rms = rms_of(left);
  for (std::size_t i = 0; i < left.size(); ++i) {
    if (std::abs(left[i]) <= error.largest) continue;
    error.largest = std::abs(left[i]);
    error.frequency = frequencies[i];
  }
  return error;
}

/** To whole numbers, of small ones to four digits. */
double rounded(double value) {
  double unit = 1.0;
  while (value * unit < 1000.0) unit *= 10.0;
  return std::round(value * unit) / unit;
}

Curve rest_of(const FitSearch& search, const std::vector<EqualiserFilter>& filters, int rate) {
  std::vector<Curve> curves;
  for (const EqualiserFilter& f : filters) curves.push_back(search.curve_of(band_of(f, rate)));
  return search.rest(curves);
}

/** What people write: few digits, in order. */
std::vector<EqualiserFilter> written(const std::vector<FitBand>& bands, int rate) {
  std::vector<EqualiserFilter> filters;
  for (const FitBand& band : bands) {
    EqualiserFilter f = filter_of(band, rate);
    f.frequency = rounded(f.frequency);
    f.gain = std::round(100.0 * f.gain) / 100.0;
    f.q = std::round(100.0 * f.q) / 100.0;
    if (std::abs(f.gain) >= kLeastGain) filters.push_back(f);
  }
  const auto place = [](const EqualiserFilter& f) {
    return f.type == EqualiserType::kLowShelf ? 0 : f.type == EqualiserType::kPeak ? 1 : 2;
  };
  std::stable_sort(filters.begin(), filters.end(), [&](const auto& x, const auto& y) {
    return place(x) != place(y) ? place(x) < place(y) : x.frequency < y.frequency;
  });
  return filters;
}

}  // namespace

Fit fit_equaliser(const std::vector<GraphicPoint>& measured,
                  const std::vector<GraphicPoint>& target, const FitOptions& options) {
  check(options.bands, 1, kMostFitBands, "bands");
  check(options.most_gain, 0.1, 24.0, "a gain of");
  check(options.most_q, 0.5, 20.0, "a Q of");
  if (measured.empty() || target.empty())
    throw Error(kInputError, "nothing to fit: measurement or target has no points");
  const double low =
      std::max({options.lowest, measured.front().frequency, target.front().frequency});
  const double high = std::min(
      {options.highest, measured.back().frequency, target.back().frequency, 0.49 * options.rate});
  if (!(high >= 2.0 * low))
    throw Error(kInputError,
                "less than an octave to fit: measurement, target, range and rate have " +
                    (high > low ? std::to_string(std::lround(low)) + " to " +
                                      std::to_string(std::lround(high)) + " Hz"
                                : std::string("no frequency")) +
                    " in common");
  Fit fit;
  const double octaves = elementary::log(high / low) / kLogTwo;
  const int steps = static_cast<int>(kPerOctave * octaves + 1e-9);
  // To floats, which are the same from every C library: the search makes much of the last bit.
  for (int i = 0; i <= steps; ++i)
    fit.frequency.push_back(static_cast<float>(low * elementary::exp(i / kPerOctave * kLogTwo)));
  fit.measured = sampled(measured, fit.frequency);
  fit.target = sampled(target, fit.frequency);
  Curve wanted = fit.target;
  for (std::size_t i = 0; i < wanted.size(); ++i)
    wanted[i] = static_cast<float>(wanted[i] - fit.measured[i]);

  const FitSearch search(options, fit.frequency, wanted);
  fit.before = error_of(rest_of(search, {}, options.rate), fit.frequency);
  fit.filters = written(search.run(false), options.rate);
  Curve left = rest_of(search, fit.filters, options.rate);
  if (options.bands > 1) {
    std::vector<EqualiserFilter> others = written(search.run(true), options.rate);
    const Curve other = rest_of(search, others, options.rate);
    const double error = rms_of(left), other_error = rms_of(other);
    if (other_error < error * (others.size() < fit.filters.size() ? kMissed : 1.0)) {
      fit.filters = std::move(others);
      left = other;
    }
  }
  fit.after = error_of(left, fit.frequency);

  take_mean_away(&fit.target);
  fit.corrected = fit.target;
  for (std::size_t i = 0; i < left.size(); ++i) fit.corrected[i] -= left[i];
  fit.measured = fit.corrected;
  for (const EqualiserFilter& f : fit.filters) {
    const Curve curve = search.curve_of(band_of(f, options.rate));
    for (std::size_t i = 0; i < curve.size(); ++i) fit.measured[i] -= curve[i];
  }

  std::vector<double> sections;
  for (const EqualiserFilter& f : fit.filters) append_sections(f, options.rate, &sections);
  const double peak =
      fit.filters.empty() ? 0.0 : to_decibels(peak_gain(sections_of_rows(sections)));
  fit.preamp = 0.0 - std::max(0.0, std::ceil(10.0 * peak - 1e-6) / 10.0);
  return fit;
}

}  // namespace jurn
