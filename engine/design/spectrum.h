// Frequency responses of coefficient lists.
#pragma once

#include <complex>
#include <cstddef>
#include <vector>

#include "design/filter_design.h"

namespace jurn {

/** The discrete Fourier transform of real coefficients, padded with zeros to a power of two of at
 * least `size` points; the first half and the point in its middle are returned. */
std::vector<std::complex<double>> spectrum(const std::vector<double>& coefficients,
                                           std::size_t size);

/** The largest gain of a filter over all frequencies, on a fine grid. */
double peak_gain(const FilterDesign& design);
/** The same of filters in series. */
double peak_gain(const std::vector<FilterDesign>& chain);

}  // namespace jurn
