// FIRs of linear phase by the window method.
#pragma once

#include <cstddef>

#include "design/digital_filter.h"
#include "design/windows.h"

namespace jurn {

constexpr std::size_t kMostWindowedTaps = 32767;

/** Throws where a number of taps is not accepted: an even one has no gain at half the rate, and so
 * makes neither a high-pass nor a band-stop. */
void check_taps(int taps, std::size_t most, Pass pass);

/**
 * The ideal filter's response, sinc functions, times a window; scaled so that the gain is 1 in the
 * middle of the first band that passes: at 0 Hz, at half the rate, or between two corners. The
 * corners are where the gain is about 1/2. It is late by (taps - 1) / 2 frames.
 *
 * Equal to scipy.signal.firwin. Source: A. V. Oppenheim, R. W. Schafer, Discrete-Time Signal
 * Processing, chapter 7.
 */
FilterDesign windowed_fir(int taps, Window kind, double beta, const Corners& corners, int rate);

}  // namespace jurn
