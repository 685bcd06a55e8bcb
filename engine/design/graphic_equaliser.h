// Graphic equalisers as filters of linear phase.
#pragma once

#include <cstddef>
#include <vector>

namespace jurn {

struct GraphicPoint {
  double frequency;  // Hz
  double gain;       // dB
};

/**
 * `count` taps, an odd number, whose gain goes through the points: straight lines in dB over the
 * logarithm of the frequency, level beyond the first and the last. The inverse transform of that,
 * shortened by a Hann window, which smooths details narrower than about 4 rate / count Hz. The
 * result is late by (count - 1) / 2 frames.
 */
std::vector<double> linear_phase_taps(const std::vector<GraphicPoint>& points, int rate,
                                      std::size_t count);

constexpr std::size_t kMostGraphicTaps = 1048575;
/** For filters that run tap by tap, and that are late by half of them. */
constexpr std::size_t kLiveGraphicTaps = 1249;

/** How many taps that takes for details of 10 Hz, if there may be so many: an odd number. */
std::size_t graphic_taps(int rate, std::size_t most);

}  // namespace jurn
