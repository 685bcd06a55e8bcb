#include "exact.h"

#include "design/stability.h"

#include <algorithm>
#include <cmath>

#include "design/roots.h"
#include "design/spectrum.h"
#include "errors.h"
#include "number_text.h"
#include "units.h"

namespace jurn {
namespace {

// Of a double pole on the circle, rounding moves the computed radius by less.
constexpr double kRadiusTolerance = 1e-7;

// A gain that rounds to 0.0 dB is no news.
constexpr double kClipTolerance = 0.05;

std::string decibels(double gain) {
  return printed("%.1f", to_decibels(gain)) + " dB";
}

FilterDesign negated(FilterDesign design) {
  const std::size_t group = design.kind == FilterDesign::kSections ? 3 : design.a.size();
  for (std::size_t i = 0; i < design.a.size(); ++i)
    if (i % group) design.a[i] = -design.a[i];
  return design;
}

}  // namespace

void check_signs(const std::string& path, std::optional<bool> negate, FilterDesign* design) {
  if (negate) {
    if (*negate) *design = negated(std::move(*design));
    return;
  }
  const double radius = pole_radius(*design);
  if (radius <= 1.0 + kRadiusTolerance || pole_radius(negated(*design)) >= 1.0) return;
  throw Error(kInputError,
              path + ": the filter is unstable, its outermost pole has the radius " +
                  printed("%.9g", radius) +
                  "; with the signs of a turned it is stable, so they look negated: --negate-a "
                  "turns them, --keep-a runs it as it is");
}

std::string check_peak(const std::string& path, const FilterDesign& design, double gain) {
  if (pole_radius(design) > 1.0 + kRadiusTolerance) return {};
  const double peak = gain * peak_gain(design);
  if (std::isinf(peak)) return path + ": the filter's gain is infinite at some frequency";
  if (!(to_decibels(peak) >= kClipTolerance)) return {};
  return path + ": the filter's largest gain is " + decibels(peak) +
         ", by which a full-scale signal would clip";
}

}  // namespace jurn
