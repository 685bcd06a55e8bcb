// Low-, high- and band-passes of linear phase, as FIRs.
#pragma once

#include <cstddef>
#include <vector>

#include "design/equaliser.h"

namespace jurn {

/**
 * The taps of a pass with `linear_phase`, an odd number: a sinc under Kaiser's window of 100 dB, as
 * long as the transition asks for, about 6.4 rate / transition. At its corners the gain is 1/2,
 * half the transition further it is within 1e-5 of 1 or 0, and a low- and a high-pass of one corner
 * and transition sum to a delay of (count - 1) / 2 frames, by which the result is late. The
 * band-pass has its corners where `octaves` or `q` puts them.
 *
 * Source: J. F. Kaiser, Nonrecursive digital filter design using the I0-sinh window function, 1974.
 */
std::vector<double> linear_phase_pass(const EqualiserFilter& filter, int rate);

/** How many taps that are. */
std::size_t linear_phase_count(const EqualiserFilter& filter, int rate);

/** Where a transition is in Hz: of the filter, or what stands for 0. Corners are one or two. */
struct LinearPhaseBand {
  double low, high;  // corners; 0 or half the rate where there is none
  double transition;
};
LinearPhaseBand linear_phase_band(const EqualiserFilter& filter, int rate);

constexpr std::size_t kMostLinearTaps = 1048575;

}  // namespace jurn
