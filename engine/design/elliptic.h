// Elliptic (Cauer) filters: with an even ripple where they let pass and where they stop, and so the
// steepest between these.
#pragma once

#include "design/digital_filter.h"

namespace jurn {

/** |H(jw)|^2 = 1 / (1 + e^2 R(w)^2), R the rational Chebyshev function of the order: at most
 * `ripple` dB below 0 dB up to the corner, and at least `attenuation` dB beyond the transition. */
RootsAndGain elliptic_prototype(int order, double ripple, double attenuation);

/** Equal to scipy.signal.ellip. Source: S. J. Orfanidis, Lecture notes on elliptic filter design,
 * 2006; its elliptic functions by the arithmetic-geometric mean and by R. C. Carlson's R_F. */
FilterDesign elliptic(int order, double ripple, double attenuation, const Corners& corners,
                      int rate);

}  // namespace jurn
