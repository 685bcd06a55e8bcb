// FIRs of linear phase whose largest error is as small as can be.
#pragma once

#include <cstddef>
#include <vector>

#include "design/digital_filter.h"

namespace jurn {

/** From one frequency in Hz to another: the gain that is wanted, and how much its error counts. */
struct GainBand {
  double from, to, gain, weight = 1.0;
};

constexpr std::size_t kMostEquirippleTaps = 1001;

/**
 * The taps with the least largest weighted error over the bands, by Remez' exchange on a grid of 16
 * points for each free coefficient; what lies between the bands is free. It is late by (taps - 1) /
 * 2 frames. Throws where the exchange finds no end: bands that are too narrow or too far apart for
 * so many taps.
 *
 * Equal to scipy.signal.remez. Source: T. W. Parks, J. H. McClellan, Chebyshev approximation for
 * nonrecursive digital filters with linear phase, 1972.
 */
FilterDesign equiripple(int taps, const std::vector<GainBand>& bands, int rate);

/** The bands of a filter with a transition so wide around each corner, in Hz; where it stops, an
 * error counts `weight` times. */
std::vector<GainBand> bands_of(const Corners& corners, double transition, double weight, int rate);

}  // namespace jurn
