// From an analogue low-pass prototype to a digital filter of second-order sections.
#pragma once

#include <complex>
#include <vector>

#include "design/filter_design.h"

namespace jurn {

enum class Pass { kLow, kHigh, kBand, kStop };

/** What a filter lets pass. */
struct Corners {
  Pass pass = Pass::kLow;
  double low = 0.0;   // Hz; of a low- or high-pass the only one
  double high = 0.0;  // Hz, of a band-pass or band-stop
};

/** A transfer function: gain * prod(s - zeros) / prod(s - poles). Complex roots stand beside their
 * conjugates, or far from them; each has one. */
struct RootsAndGain {
  std::vector<std::complex<double>> zeros, poles;
  double gain = 1.0;
};

constexpr int kMostPrototypeOrder = 50;

/** Throws where corners are not between 0 and half the rate, or do not rise. */
void check_corners(const Corners& corners, int rate);
/** Throws where an order is not between 1 and `most`. */
void check_order(int order, int most = kMostPrototypeOrder);
/** Throws where a number of decibels, which `name` says, is not above 0. */
void check_decibels(double decibels, const char* name);

/** By how much a power of so many decibels is more than 1. */
double excess(double decibels);
std::complex<double> product_of_negated(const std::vector<std::complex<double>>& roots);

/**
 * The digital filter of a prototype whose corner is 1 rad/s: moved to the corners, which are warped
 * beforehand, by s -> s / w0, w0 / s, (s^2 + w0^2) / (B s) or its inverse, and brought to the unit
 * circle by the bilinear transform z = (4 + s) / (4 - s). A band-pass or band-stop has twice the
 * order. The sections are those of SciPy's output="sos", with the gain in the first.
 *
 * Sources: A. V. Oppenheim, R. W. Schafer, Discrete-Time Signal Processing, chapter 7; SciPy's
 * documentation of zpk2sos for the pairs and their order.
 */
FilterDesign digital_filter(const RootsAndGain& prototype, const Corners& corners, int rate);

}  // namespace jurn
