// Checks of a design before it runs.
#pragma once

#include <complex>
#include <optional>
#include <string>
#include <vector>

#include "coefficients.h"

namespace tool {

/** The roots of a polynomial whose highest power comes first: the zeros of a numerator, the poles
 * of a denominator. Roots at 0 that trailing zeros stand for are among them. */
std::vector<std::complex<double>> roots(std::vector<double> polynomial);

/** Poles or zeros of a whole design, of `a` or `b`. */
std::vector<std::complex<double>> roots_of(const FilterDesign& design,
                                           const std::vector<double>& coefficients);

/**
 * Reports poles outside the unit circle. When the filter is unstable but would be stable with the
 * signs of all feedback coefficients turned, the program that wrote it likely adds the feedback:
 * this is an error until `negate` says whether to turn them. Returns the warning, or nothing.
 */
std::string check_stability(const std::string& path, std::optional<bool> negate,
                            FilterDesign* design);

/** Warns of a filter that would clip a full-scale signal. `gain` comes on top of the design's. */
std::string check_peak(const std::string& path, const FilterDesign& design, double gain);

}  // namespace tool
