#include "exact.h"

#include "design/fit_search.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "elementary.h"
#include "units.h"

namespace jurn {
namespace {

constexpr double kLeastQ = 0.2, kLeastShelfQ = 0.4, kMostShelfQ = 0.71;
// What a gain costs, so that bands do not work against each other for nothing.
constexpr double kRidge = 2e-5;
constexpr double kNoError = 0.02;  // dB, where no further band is added
constexpr std::size_t kExtra = 4;  // bands that are tried and left out again
constexpr std::size_t kTries = 6;
constexpr int kSteps = 12, kLastSteps = 300;
constexpr double kTrialGain = 6.0;
constexpr std::size_t kCandidateStep = 8;  // from frequency to frequency
constexpr double kLn10 = 2.30258509299404568;

double mean_of(const Curve& curve) {
  double sum = 0.0;
  for (const double x : curve) sum += x;
  return sum / static_cast<double>(curve.size());
}

/** Solves a positive definite system of n rows, which it uses up; the result is in `x`. */
void solve(std::vector<double>* matrix, std::vector<double>* x) {
  const std::size_t n = x->size();
  std::vector<double>& m = *matrix;
  std::vector<double>& v = *x;
  for (std::size_t j = 0; j < n; ++j) {  // Cholesky's factor, in the lower half
    for (std::size_t k = 0; k < j; ++k) m[j * n + j] -= m[j * n + k] * m[j * n + k];
    m[j * n + j] = std::sqrt(std::max(m[j * n + j], 1e-30));
    for (std::size_t i = j + 1; i < n; ++i) {
      for (std::size_t k = 0; k < j; ++k) m[i * n + j] -= m[i * n + k] * m[j * n + k];
      m[i * n + j] /= m[j * n + j];
    }
    for (std::size_t k = 0; k < j; ++k) v[j] -= m[j * n + k] * v[k];
    v[j] /= m[j * n + j];
  }
  for (std::size_t j = n; j-- > 0;) {
    for (std::size_t i = j + 1; i < n; ++i) v[j] -= m[i * n + j] * v[i];
    v[j] /= m[j * n + j];
  }
}

}  // namespace

void take_mean_away(Curve* curve) {
  const double mean = mean_of(*curve);
  for (double& x : *curve) x -= mean;
}

double product(const Curve& x, const Curve& y) {
  double sum = 0.0;
  for (std::size_t i = 0; i < x.size(); ++i) sum += x[i] * y[i];
  return sum;
}

double rms_of(const Curve& curve) {
  return std::sqrt(product(curve, curve) / static_cast<double>(curve.size()));
}

FitBand band_of(const EqualiserFilter& f, int rate) {
  return {
      f.type,
      {elementary::log(elementary::tan(kPi * f.frequency / rate)), f.gain, elementary::log(f.q)}};
}

EqualiserFilter filter_of(const FitBand& band, int rate) {
  EqualiserFilter f{};
  f.type = band.type;
  f.frequency = rate / kPi * elementary::atan(elementary::exp(band.values[0]));
  f.gain = band.values[1];
  f.q = elementary::exp(band.values[2]);
  return f;
}

FitSearch::FitSearch(const FitOptions& options, const Curve& frequencies, const Curve& wanted)
    : options_(options), wanted_(wanted) {
  for (const double f : frequencies) warped_.push_back(elementary::tan(kPi * f / options.rate));
  for (std::size_t i = 0; i < warped_.size(); i += kCandidateStep) {
    for (const double q : {0.5, 1.0, 2.0, 4.0, 8.0})
      if (q <= options.most_q) add_candidate(EqualiserType::kPeak, warped_[i], q);
    const bool is_low = 2 * i < warped_.size();
    add_candidate(is_low ? EqualiserType::kLowShelf : EqualiserType::kHighShelf, warped_[i], 0.7);
  }
}

std::vector<FitBand> FitSearch::run(bool shelves_first) const {
  const std::size_t most = static_cast<std::size_t>(options_.bands);
  std::vector<FitBand> bands;
  std::vector<double> errors;
  while (bands.size() < most + kExtra) {
    const Curve left = rest(curves_of(bands));
    errors.push_back(rms_of(left));
    const std::size_t n = bands.size();
    if (n > 0 && errors[n] < kNoError) break;
    if (n > kExtra && kMissed * errors[n] > errors[n - kExtra]) break;
    bands.push_back(best(left, bands, shelves_first && bands.size() < 2));
    improve(kSteps, &bands);
  }
  while (bands.size() > 1) {
    std::vector<FitBand> fewer = without_one(bands);
    const double now = rms_of(rest(curves_of(bands))), then = rms_of(rest(curves_of(fewer)));
    if (bands.size() <= most && then > std::max(kNoError, kMissed * now)) break;
    bands = std::move(fewer);
  }
  improve(kLastSteps, &bands);
  return bands;
}

Curve FitSearch::rest(const std::vector<Curve>& curves) const {
  Curve left = wanted_;
  for (const Curve& curve : curves)
    for (std::size_t i = 0; i < left.size(); ++i) left[i] -= curve[i];
  take_mean_away(&left);
  return left;
}

Curve FitSearch::curve_of(const FitBand& band) const {
  const double amp = elementary::exp(band.values[1] * (kLn10 / 40.0)),
               q = elementary::exp(band.values[2]);
  const double corner = elementary::exp(-band.values[0]);
  const bool is_peak = band.type == EqualiserType::kPeak;
  const bool is_low = band.type == EqualiserType::kLowShelf;
  Curve curve;
  curve.reserve(warped_.size());
  for (const double frequency : warped_) {
    const double w = frequency * corner, w2 = w * w, width = w2 / (q * q);
    double ratio = 0.0;
    if (is_peak) {
      const double ends = (1.0 - w2) * (1.0 - w2);
      ratio = (ends + amp * amp * width) / (ends + width / (amp * amp));
    } else {
      const double near = (amp - w2) * (amp - w2) + amp * width;
      const double far = (1.0 - amp * w2) * (1.0 - amp * w2) + amp * width;
      ratio = amp * amp * (is_low ? near / far : far / near);
    }
    curve.push_back(10.0 / kLn10 * elementary::log(ratio));
  }
  return curve;
}

void FitSearch::add_candidate(EqualiserType type, double warped, double q) {
  Candidate c{{type, {elementary::log(warped), kTrialGain, elementary::log(q)}}, {}, 0.0};
  c.curve = curve_of(c.band);
  take_mean_away(&c.curve);
  c.power = product(c.curve, c.curve);
  if (c.power > 0.0) candidates_.push_back(std::move(c));
}

FitBand FitSearch::best(const Curve& left, const std::vector<FitBand>& bands, bool shelf) const {
  FitBand found{EqualiserType::kPeak, {elementary::log(warped_[0]), 0.0, 0.0}};
  double most = -1.0;
  for (const Candidate& c : candidates_) {
    const bool is_peak = c.band.type == EqualiserType::kPeak;
    const auto is_same = [&](const FitBand& b) { return b.type == c.band.type; };
    if (is_peak ? shelf : std::any_of(bands.begin(), bands.end(), is_same)) continue;
    const double match = product(left, c.curve), limit = options_.most_gain / kTrialGain;
    const double times = std::clamp(match / c.power, -limit, limit);
    const double less = times * (2.0 * match - times * c.power);
    if (less <= most) continue;
    most = less;
    found = c.band;
    found.values[1] *= times;
  }
  return found;
}

std::vector<FitBand> FitSearch::without_one(const std::vector<FitBand>& bands) const {
  std::vector<std::pair<double, std::vector<FitBand>>> tries;
  for (std::size_t k = 0; k < bands.size(); ++k) {
    std::vector<FitBand> fewer = bands;
    fewer.erase(fewer.begin() + static_cast<std::ptrdiff_t>(k));
    tries.emplace_back(rms_of(rest(curves_of(fewer))), fewer);
    if (bands[k].type != EqualiserType::kPeak) continue;
    const auto distance = [&](const FitBand& b) {
      return b.type == EqualiserType::kPeak ? std::abs(b.values[0] - bands[k].values[0]) : 1e9;
    };
    FitBand& other = *std::min_element(
        fewer.begin(), fewer.end(),
        [&](const FitBand& x, const FitBand& y) { return distance(x) < distance(y); });
    other.values[1] =
        std::clamp(other.values[1] + bands[k].values[1], -options_.most_gain, options_.most_gain);
    tries.emplace_back(rms_of(rest(curves_of(fewer))), std::move(fewer));
  }
  const auto less = [](const auto& x, const auto& y) { return x.first < y.first; };
  std::stable_sort(tries.begin(), tries.end(), less);
  if (tries.size() > kTries) tries.resize(kTries);
  for (auto& [error, fewer] : tries) {
    improve(kSteps, &fewer);
    error = rms_of(rest(curves_of(fewer)));
  }
  return std::min_element(tries.begin(), tries.end(), less)->second;
}

std::vector<Curve> FitSearch::curves_of(const std::vector<FitBand>& bands) const {
  std::vector<Curve> curves;
  curves.reserve(bands.size());
  for (const FitBand& band : bands) curves.push_back(curve_of(band));
  return curves;
}

double FitSearch::cost(const Curve& left, const std::vector<FitBand>& bands) const {
  double gains = 0.0;
  for (const FitBand& band : bands) gains += band.values[1] * band.values[1];
  return product(left, left) + kRidge * static_cast<double>(left.size()) * gains;
}

void FitSearch::limits(const FitBand& band, double* low, double* high) const {
  const bool is_peak = band.type == EqualiserType::kPeak;
  const double middle = warped_[warped_.size() / 2];
  low[0] = elementary::log(band.type == EqualiserType::kHighShelf ? middle : warped_.front());
  high[0] = elementary::log(band.type == EqualiserType::kLowShelf ? middle : warped_.back());
  high[1] = options_.most_gain;
  low[1] = -high[1];
  low[2] = elementary::log(is_peak ? kLeastQ : kLeastShelfQ);
  high[2] = elementary::log(is_peak ? options_.most_q : kMostShelfQ);
}

void FitSearch::improve(int steps, std::vector<FitBand>* bands) const {
  const std::size_t n = 3 * bands->size();
  std::vector<Curve> curves = curves_of(*bands);
  Curve left = rest(curves);
  double now = cost(left, *bands), damping = 1e-3;
  for (int step = 0; step < steps && damping < 1e8;) {
    std::vector<Curve> slopes;
    for (std::size_t k = 0; k < bands->size(); ++k) add_slopes((*bands)[k], curves[k], &slopes);
    std::vector<double> squares(n * n), down(n);
    for (std::size_t i = 0; i < n; ++i) {
      for (std::size_t j = 0; j <= i; ++j) squares[i * n + j] = product(slopes[i], slopes[j]);
      down[i] = product(slopes[i], left);
      if (i % 3 != 1) continue;
      const double ridge = kRidge * static_cast<double>(left.size());
      squares[i * n + i] += ridge;
      down[i] -= ridge * (*bands)[i / 3].values[1];
    }
    // The same slopes serve until a step helps.
    const double before = now;
    for (; step < steps && damping < 1e8; damping *= 4.0) {
      ++step;
      std::vector<FitBand> moved = move(*bands, squares, down, damping);
      std::vector<Curve> moved_curves = curves_of(moved);
      Curve moved_left = rest(moved_curves);
      const double then = cost(moved_left, moved);
      if (!(then < now)) continue;
      *bands = std::move(moved);
      curves = std::move(moved_curves);
      left = std::move(moved_left);
      now = then;
      damping = std::max(damping / 5.0, 1e-9);
      break;
    }
    if (before - now <= 1e-12 * before) break;
  }
}

void FitSearch::add_slopes(const FitBand& band, const Curve& curve,
                           std::vector<Curve>* slopes) const {
  for (std::size_t v = 0; v < 3; ++v) {
    const double h = 1e-5;
    FitBand other = band;
    other.values[v] += h;
    Curve slope = curve_of(other);
    for (std::size_t i = 0; i < slope.size(); ++i) slope[i] = (slope[i] - curve[i]) / h;
    take_mean_away(&slope);
    slopes->push_back(std::move(slope));
  }
}

std::vector<FitBand> FitSearch::move(const std::vector<FitBand>& bands, std::vector<double> squares,
                                     std::vector<double> down, double damping) const {
  const std::size_t n = down.size();
  for (std::size_t i = 0; i < n; ++i) {
    double low[3], high[3];
    limits(bands[i / 3], low, high);
    const double value = bands[i / 3].values[i % 3];
    const bool stays = down[i] < 0.0 ? value <= low[i % 3] : value >= high[i % 3];
    squares[i * n + i] = squares[i * n + i] * (1.0 + damping) + 1e-9;
    if (!stays) continue;
    for (std::size_t j = 0; j < n; ++j) squares[std::max(i, j) * n + std::min(i, j)] = i == j;
    down[i] = 0.0;
  }
  solve(&squares, &down);
  std::vector<FitBand> moved = bands;
  for (std::size_t i = 0; i < n; ++i) {
    double low[3], high[3];
    limits(bands[i / 3], low, high);
    double& value = moved[i / 3].values[i % 3];
    value = std::clamp(value + down[i], low[i % 3], high[i % 3]);
  }
  return moved;
}

}  // namespace jurn
