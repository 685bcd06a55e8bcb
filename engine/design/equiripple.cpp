#include "exact.h"

#include "design/equiripple.h"

#include <algorithm>
#include <cmath>
#include <string>

#include "design/windowed_fir.h"
#include "elementary.h"
#include "errors.h"
#include "units.h"

namespace jurn {
namespace {

constexpr int kDensity = 16;
constexpr int kMostExchanges = 100;

/** Frequencies in cycles per sample, with what is wanted there of the polynomial in cos(w). */
struct Grid {
  std::vector<double> frequency, x, wanted, weight;
  std::vector<std::size_t> band_ends;  // behind the last point of each

  std::size_t size() const { return frequency.size(); }
};

Grid grid_of(int taps, const std::vector<GainBand>& bands, int rate) {
  const int free = (taps + 1) / 2;
  const double step = 0.5 / (kDensity * free);
  Grid grid;
  for (const GainBand& band : bands) {
    const double end = band.to / rate;
    double f = band.from / rate;
    do {
      grid.frequency.push_back(f);
      f += step;
    } while (f <= end);
    grid.frequency.back() = end;
    // With an even number of taps the gain at half the rate is 0 anyway.
    if (taps % 2 == 0 && &band == &bands.back() && end > 0.5 - step) grid.frequency.pop_back();
    while (grid.wanted.size() < grid.size()) {
      const double w = kPi * grid.frequency[grid.wanted.size()];
      // What is left of an even number of taps without the factor cos(w / 2).
      const double factor = taps % 2 == 0 ? elementary::cos(w) : 1.0;
      grid.x.push_back(elementary::cos(2.0 * w));
      grid.wanted.push_back(band.gain / factor);
      grid.weight.push_back(band.weight * factor);
    }
    grid.band_ends.push_back(grid.size());
  }
  return grid;
}

/** The polynomial whose weighted errors at some points are equal, with turning signs. */
class Interpolation {
 public:
  Interpolation(const Grid& grid, const std::vector<std::size_t>& points) {
    const std::size_t count = points.size();
    std::vector<double> all(count);
    double above = 0.0, below = 0.0;
    for (std::size_t i = 0; i < count; ++i) {
      double product = 1.0;  // of 2 (x - x'), which neither grows nor shrinks much
      for (std::size_t j = 0; j < count; ++j)
        if (j != i) product *= 2.0 * (grid.x[points[i]] - grid.x[points[j]]);
      all[i] = 1.0 / product;
      above += all[i] * grid.wanted[points[i]];
      below += (i % 2 ? -all[i] : all[i]) / grid.weight[points[i]];
    }
    error_ = above / below;
    for (std::size_t i = 0; i + 1 < count; ++i) {
      x_.push_back(grid.x[points[i]]);
      weight_.push_back(all[i] * (x_[i] - grid.x[points[count - 1]]));
      value_.push_back(grid.wanted[points[i]] -
                       (i % 2 ? -error_ : error_) / grid.weight[points[i]]);
    }
  }

  double error() const { return error_; }

  double at(double x) const {
    double above = 0.0, below = 0.0;
    for (std::size_t i = 0; i < x_.size(); ++i) {
      const double distance = x - x_[i];
      if (distance == 0.0) return value_[i];
      above += weight_[i] / distance * value_[i];
      below += weight_[i] / distance;
    }
    return above / below;
  }

 private:
  double error_ = 0.0;
  std::vector<double> x_, weight_, value_;
};

/** The points where the error is largest, with turning signs, `count` of them; fewer where it turns
 * less often. */
std::vector<std::size_t> extremes_of(const Grid& grid, const std::vector<double>& error,
                                     std::size_t count) {
  std::vector<std::size_t> points;
  std::size_t begin = 0;
  for (const std::size_t end : grid.band_ends) {
    for (std::size_t i = begin; i < end; ++i) {
      const double sign = error[i] < 0.0 ? -1.0 : 1.0;
      const double here = sign * error[i];
      const bool is_peak = (i == begin || here >= sign * error[i - 1]) &&
                           (i + 1 == end || here > sign * error[i + 1]);
      if (!is_peak) continue;
      // Of neighbours of one sign the larger stays.
      if (!points.empty() && error[points.back()] * sign > 0.0) {
        if (std::abs(error[points.back()]) < here) points.back() = i;
      } else {
        points.push_back(i);
      }
    }
    begin = end;
  }
  const auto size = [&](std::size_t k) { return std::abs(error[points[k]]); };
  while (points.size() > count) {
    if (points.size() == count + 1) {
      points.erase(size(0) < size(points.size() - 1) ? points.begin() : points.end() - 1);
      break;
    }
    // The smallest goes with a neighbour, so that the signs still turn.
    std::size_t least = 0;
    for (std::size_t k = 1; k < points.size(); ++k)
      if (size(k) < size(least)) least = k;
    if (least == 0 || least + 1 == points.size()) {
      points.erase(points.begin() + static_cast<std::ptrdiff_t>(least));
      continue;
    }
    const std::size_t mate = size(least - 1) < size(least + 1) ? least - 1 : least;
    const auto from = points.begin() + static_cast<std::ptrdiff_t>(mate);
    points.erase(from, from + 2);
  }
  return points;
}

void check_bands(const std::vector<GainBand>& bands, int rate) {
  double before = -1.0;
  for (const GainBand& band : bands) {
    if (!(band.from > before && band.to > band.from && band.from >= 0.0 && band.to <= rate / 2.0))
      throw Error(kInputError,
                  "the bands overlap, or reach beyond half the sample rate: the transition is too "
                  "wide for these corners");
    if (!(band.weight > 0.0 && std::isfinite(band.weight)))
      throw Error(kInputError, "a weight of the error that is not above 0");
    before = band.to;
  }
}

}  // namespace

FilterDesign equiripple(int taps, const std::vector<GainBand>& bands, int rate) {
  check_bands(bands, rate);
  const bool passes_last = bands.back().gain != 0.0 && bands.back().to >= rate / 2.0;
  check_taps(taps, kMostEquirippleTaps, passes_last ? Pass::kHigh : Pass::kLow);
  if (taps < 3) throw Error(kInputError, std::to_string(taps) + " taps; at least 3 are needed");
  const Grid grid = grid_of(taps, bands, rate);
  const std::size_t count = static_cast<std::size_t>((taps + 1) / 2) + 1;
  std::vector<std::size_t> points;
  for (std::size_t i = 0; i < count; ++i) points.push_back(i * (grid.size() - 1) / (count - 1));
  for (int exchange = 0; exchange < kMostExchanges; ++exchange) {
    const Interpolation polynomial(grid, points);
    std::vector<double> error(grid.size());
    for (std::size_t i = 0; i < grid.size(); ++i)
      error[i] = grid.weight[i] * (grid.wanted[i] - polynomial.at(grid.x[i]));
    // Where it interpolates, the error is known without rounding.
    for (std::size_t i = 0; i < count; ++i)
      error[points[i]] = i % 2 ? -polynomial.error() : polynomial.error();
    double largest = 0.0;
    for (const double e : error) largest = std::max(largest, std::abs(e));
    if (!std::isfinite(largest)) break;
    std::vector<std::size_t> next = extremes_of(grid, error, count);
    if (next.size() < count && largest > 1e-12) break;
    if (next.size() == count && next != points &&
        largest > std::abs(polynomial.error()) * (1.0 + 1e-13)) {
      points = std::move(next);
      continue;
    }
    // The taps from as many points around the circle.
    FilterDesign design{
        FilterDesign::kFir, std::vector<double>(static_cast<std::size_t>(taps)), {}};
    std::vector<double> gains;
    for (int k = 0; 2 * k < taps; ++k) {
      const double w = 2.0 * kPi * k / taps;
      gains.push_back(polynomial.at(elementary::cos(w)) *
                      (taps % 2 == 0 ? elementary::cos(w / 2.0) : 1.0));
    }
    for (int n = 0; n < taps; ++n) {
      double sum = gains[0];
      for (std::size_t k = 1; k < gains.size(); ++k)
        sum += 2.0 * gains[k] *
               elementary::cos(2.0 * kPi * static_cast<double>(k) * (n - 0.5 * (taps - 1)) / taps);
      design.b[static_cast<std::size_t>(n)] = sum / taps;
    }
    return design;
  }
  throw Error(kInputError, "no equiripple filter is found for " + std::to_string(taps) +
                               " taps and this transition; other numbers of taps, or a wider "
                               "transition, may do");
}

std::vector<GainBand> bands_of(const Corners& corners, double transition, double weight, int rate) {
  check_corners(corners, rate);
  if (!(transition > 0.0)) throw Error(kInputError, "a transition that is not above 0 Hz");
  const bool two = corners.pass == Pass::kBand || corners.pass == Pass::kStop;
  bool passes = corners.pass == Pass::kLow || corners.pass == Pass::kStop;
  std::vector<GainBand> bands{{0.0, corners.low, 0.0}};
  if (two) bands.push_back({corners.low, corners.high, 0.0});
  bands.push_back({two ? corners.high : corners.low, rate / 2.0, 0.0});
  for (std::size_t i = 0; i < bands.size(); ++i, passes = !passes) {
    if (i > 0) bands[i].from += transition / 2.0;
    if (i + 1 < bands.size()) bands[i].to -= transition / 2.0;
    bands[i].gain = passes ? 1.0 : 0.0;
    bands[i].weight = passes ? 1.0 : weight;
  }
  return bands;
}

}  // namespace jurn
