// Chebyshev filters: with an even ripple where they let pass (type I), or where they stop (type
// II).
#pragma once

#include "design/digital_filter.h"

namespace jurn {

/** |H(jw)|^2 = 1 / (1 + e^2 T(w)^2), T the Chebyshev polynomial of the order; `ripple` dB below 0
 * dB at most up to the corner, and so much there. */
RootsAndGain chebyshev1_prototype(int order, double ripple);

/** |H(jw)|^2 = 1 / (1 + 1 / (e^2 T(1/w)^2)): at least `attenuation` dB from the corner on. */
RootsAndGain chebyshev2_prototype(int order, double attenuation);

/** Equal to scipy.signal.cheby1 and cheby2. Source: T. W. Parks, C. S. Burrus, Digital Filter
 * Design, 1987, chapter 7. */
FilterDesign chebyshev1(int order, double ripple, const Corners& corners, int rate);
FilterDesign chebyshev2(int order, double attenuation, const Corners& corners, int rate);

}  // namespace jurn
