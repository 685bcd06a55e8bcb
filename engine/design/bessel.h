// Bessel filters: of a group delay as even as can be.
#pragma once

#include "design/digital_filter.h"

namespace jurn {

constexpr int kMostBesselOrder = 25;

/** H(s) = t(0) / t(s / w0), t the reverse Bessel polynomial of the order, whose phase at the corner
 * is in the middle of what it turns: asymptotically that of a Butterworth filter. */
RootsAndGain bessel_prototype(int order);

/** Equal to scipy.signal.bessel. Source: W. E. Thomson, Delay networks having maximally flat
 * frequency characteristics, 1949. */
FilterDesign bessel(int order, const Corners& corners, int rate);

}  // namespace jurn
