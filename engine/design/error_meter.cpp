#include "exact.h"

#include "design/error_meter.h"

#include <algorithm>
#include <cmath>
#include <complex>
#include <cstddef>
#include <cstdint>
#include <limits>

#include "design/frequency_response.h"
#include "design/roots.h"
#include "design/wide.h"
#include "elementary.h"
#include "units.h"

namespace jurn {
namespace {

/** The angles at which gains are compared: all octaves, and the peaks of the resonances. */
std::vector<double> angles_of(const FilterDesign& sections) {
  std::vector<double> angles{0.0, kPi};
  for (double angle = kPi; angle > 1e-5; angle *= 0.97) angles.push_back(angle);
  for (const std::complex<double>& pole : roots_of(sections, sections.a)) {
    const double size = elementary::magnitude(pole), ahead = size + pole.real();
    const double angle = ahead > 0.0 ? 2.0 * elementary::atan(std::abs(pole.imag()) / ahead) : kPi;
    for (const double aside : {-1.0, -0.5, 0.0, 0.5, 1.0})
      angles.push_back(std::min(std::max(angle + aside * (1.0 - size), 0.0), kPi));
  }
  return angles;
}

/**
 * What filters are measured with, parts of one length at full scale: noise with the same power in
 * every octave, the sum of random values each held twice as long as the one before; white noise,
 * for what is broad and high; a slow sawtooth, for what is low; a burst of white noise and silence;
 * and white noise that fades out, to silence. The generator is written out so that every system
 * makes the same.
 */
std::vector<float> test_signal(std::size_t length) {
  constexpr int rows = 16;
  std::vector<float> signal(5 * length);
  std::int32_t held[rows] = {};
  std::uint32_t random = 1;
  std::int32_t sum = 0;
  const auto next = [&random] {
    random = random * 1664525u + 1013904223u;
    return static_cast<std::int32_t>(random >> 16) - 32768;
  };
  for (std::size_t i = 0; i < length; ++i) {
    int row = 0;
    while (row < rows - 1 && (i >> row & 1)) ++row;
    sum -= held[row];
    held[row] = next();
    sum += held[row];
    // The sum's largest values lie around half of what it could reach.
    signal[i] = static_cast<float>(std::min(std::max(sum / (rows / 2), -32767), 32767));
    const std::int32_t white = next();
    signal[length + i] = static_cast<float>(white);
    const std::uint64_t step = std::uint64_t{65535} * i / length;  // more than 32 bits on the way
    signal[2 * length + i] = static_cast<float>(static_cast<std::int32_t>(step) - 32768);
    if (i < length / 8) signal[3 * length + i] = static_cast<float>(white);
    // Half as loud with every sixteenth of the part.
    const std::int32_t faded = white / (1 << (16 * i / length));
    signal[4 * length + i] = static_cast<float>(faded);
  }
  return signal;
}

/** The library's cascade; in double without its silencing of small outputs. */
template <typename Real>
std::vector<Real> run_sections(const FilterDesign& sections, const std::vector<float>& input) {
  std::vector<Real> y(input.begin(), input.end());
  for (std::size_t k = 0; k < sections.a.size(); k += 3) {
    const Real b0 = static_cast<Real>(sections.b[k]), b1 = static_cast<Real>(sections.b[k + 1]),
               b2 = static_cast<Real>(sections.b[k + 2]), a1 = static_cast<Real>(sections.a[k + 1]),
               a2 = static_cast<Real>(sections.a[k + 2]);
    Real x1 = 0, x2 = 0, y1 = 0, y2 = 0;
    for (Real& sample : y) {
      const Real x0 = sample;
      Real y0 = b0 * x0;
      y0 += b1 * x1 - a1 * y1;
      y0 += b2 * x2 - a2 * y2;
      if (sizeof(Real) == sizeof(float) && std::abs(static_cast<double>(y0)) < 1e-6) y0 = 0;
      x2 = x1;
      x1 = x0;
      y2 = y1;
      y1 = y0;
      sample = y0;
    }
  }
  return y;
}

/** The library's direct form. */
template <typename Real>
std::vector<Real> run_direct(const FilterDesign& design, const std::vector<float>& x) {
  std::vector<Real> b, a, y(x.size());
  for (const double c : design.b) b.push_back(static_cast<Real>(c));
  for (const double c : design.a) a.push_back(static_cast<Real>(c));
  for (std::size_t i = 0; i < x.size(); ++i) {
    Real forward = 0, backward = 0;
    for (std::size_t j = 0; j < b.size() && j <= i; ++j)
      forward += b[j] * static_cast<Real>(x[i - j]);
    for (std::size_t j = 1; j < a.size() && j <= i; ++j) backward += a[j] * y[i - j];
    y[i] = forward - backward;
  }
  return y;
}

template <typename Real>
std::vector<Real> run(const FilterDesign& design, const std::vector<float>& input) {
  return design.kind == FilterDesign::kSections ? run_sections<Real>(design, input)
                                                : run_direct<Real>(design, input);
}

/** The frames of each part: enough for the slowest pole to ring out; a long numerator costs as much
 * per sample. */
std::size_t length_for(const FilterDesign& design, double radius) {
  const double rings = 16.0 / std::max(1.0 - radius, 1e-6);
  std::size_t length = 8192;
  while (static_cast<double>(length) < rings && length < 131072) length *= 2;
  while (length > 8192 && length * design.a.size() > (std::size_t{1} << 23)) length /= 2;
  return length;
}

/** The direct form with twice the digits. */
std::vector<double> run_wide(const FilterDesign& design, const std::vector<float>& x) {
  std::vector<Wide> y(x.size());
  std::vector<double> result(x.size());
  for (std::size_t i = 0; i < x.size(); ++i) {
    Wide sum;
    for (std::size_t j = 0; j < design.b.size() && j <= i; ++j)
      sum = sum + Wide{static_cast<double>(x[i - j]), 0.0} * design.b[j];
    for (std::size_t j = 1; j < design.a.size() && j <= i; ++j) sum = sum + y[i - j] * -design.a[j];
    y[i] = sum;
    result[i] = sum.high;
  }
  return result;
}

template <typename Real>
Difference compare(const std::vector<Real>& got, const std::vector<double>& wanted) {
  Difference d;
  double sum = 0.0;
  for (std::size_t i = 0; i < got.size(); ++i) {
    const double e = std::abs(static_cast<double>(got[i]) - wanted[i]);
    if (!(e <= d.peak)) d.peak = e;
    sum += e * e;
  }
  d.rms = std::sqrt(sum / static_cast<double>(got.size()));
  if (std::isfinite(d.rms)) return d;
  return {std::numeric_limits<double>::infinity(), std::numeric_limits<double>::infinity()};
}

}  // namespace

std::vector<double> section_peaks(const FilterDesign& sections) {
  std::vector<double> result(sections.a.size() / 3);
  for (const double angle : angles_of(sections)) {
    double gain = 1.0;
    for (std::size_t k = 0; k < result.size(); ++k) {
      gain *= elementary::magnitude(section_response_at(sections, k, angle).value);
      // On a pole the gain tells nothing; between sections it may be a number again.
      if (std::isfinite(gain)) result[k] = std::max(result[k], gain);
    }
  }
  return result;
}

ErrorMeter::ErrorMeter(const FilterDesign& truth, double radius)
    : truth_(truth),
      input_(test_signal(length_for(truth, radius))),
      wanted_(run<double>(truth, input_)) {}

Difference ErrorMeter::of(const FilterDesign& design) const {
  Difference d = compare(run<float>(design, input_), wanted_);
  // A tone where the rounded coefficients tell most can be further off than noise is.
  for (const double angle : angles_of(truth_)) {
    const double e = 32767.0 * elementary::magnitude(response_at(design, angle).value -
                                                     response_at(truth_, angle).value);
    if (std::isfinite(e)) d.peak = std::max(d.peak, e);
  }
  return d;
}

Difference error_in_double(const FilterDesign& direct_form, double radius) {
  const std::vector<float> input = test_signal(length_for(direct_form, radius) / 4);
  return compare(run_direct<double>(direct_form, input), run_wide(direct_form, input));
}

}  // namespace jurn
