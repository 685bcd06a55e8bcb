// Zeros and poles: found from coefficients, and put together to sections.
#pragma once

#include <complex>
#include <optional>
#include <vector>

#include "design/filter_design.h"

namespace jurn {

/** The roots of a polynomial whose highest power comes first: the zeros of a numerator, the poles
 * of a denominator. Roots at 0 that trailing zeros stand for are among them; leading zeros are
 * skipped. Those of a real polynomial come as exact conjugates, two roots side by side. */
std::vector<std::complex<double>> roots(std::vector<double> polynomial);

/** Poles or zeros of a whole design, of `a` or `b`. */
std::vector<std::complex<double>> roots_of(const FilterDesign& design,
                                           const std::vector<double>& coefficients);

/** The radius of the outermost pole; 0 where there is none. */
double pole_radius(const FilterDesign& design);

/**
 * The filter as second-order sections: every pair of poles with the zeros nearest to it, the pairs
 * in the order of rising radius. Numerators begin with 1 but for the first, which has the gain;
 * what the filter delays comes in sections of its own at the end. Nothing when the order is too
 * high to find the roots surely (64), when the gain is 0 or leaves the numbers, or when the roots
 * do not give back the coefficients.
 */
std::optional<FilterDesign> paired_sections(const FilterDesign& design);

}  // namespace jurn
