// Butterworth filters: as flat as can be where they let pass, -3 dB at the corners.
#pragma once

#include "design/digital_filter.h"

namespace jurn {

/** |H(jw)|^2 = 1 / (1 + w^(2 order)): poles evenly on the left half of the unit circle. */
RootsAndGain butterworth_prototype(int order);

/** Equal to scipy.signal.butter. Source: S. Butterworth, On the theory of filter amplifiers, 1930.
 */
FilterDesign butterworth(int order, const Corners& corners, int rate);

}  // namespace jurn
