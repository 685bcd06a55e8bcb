// The filters that equalisers speak of, as second-order sections.
#pragma once

#include <vector>

namespace jurn {

enum class EqualiserType {
  kPeak,
  kLowShelf,
  kHighShelf,
  kLowPass,
  kHighPass,
  kBandPass,
  kNotch,
  kAllPass
};

/** One filter of an equaliser; what is not given is 0. */
struct EqualiserFilter {
  EqualiserType type;
  double frequency = 0.0;  // Hz, below half the rate
  double gain = 0.0;       // dB
  double q = 0.0;
  double octaves = 0.0;
  int order = 0;                // low- and high-pass: Butterworth of this order, instead of a Q,
  bool linkwitz_riley = false;  // or two of half the order, which is even, one after the other
};

constexpr int kMaxPassOrder = 24;

/**
 * Appends six values per section, b0 b1 b2 1 a1 a2. Without an order, one section by the cookbook
 * formulas for audio equalisers: bilinear transforms of analogue prototypes, with the width
 * corrected for the warped frequency axis; shelves and passes without a width get the steepest
 * slope that does not overshoot. With an order, bilinear transforms of the Butterworth prototype,
 * right at the corner, the sections by rising resonance.
 */
void append_sections(const EqualiserFilter& filter, int rate, std::vector<double>* out);

}  // namespace jurn
