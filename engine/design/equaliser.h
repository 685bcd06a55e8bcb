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
  kAllPass,
  kTilt,
  kLinkwitzTransform
};

/** One filter of an equaliser; what is not given is 0. */
struct EqualiserFilter {
  EqualiserType type;
  double frequency = 0.0;  // Hz, below half the rate; where a tilt has 0 dB
  double gain = 0.0;       // dB; of a tilt: what the highest frequencies have above the lowest
  double q = 0.0;
  double octaves = 0.0;
  int order = 0;                // low- and high-pass: Butterworth of this order, instead of a Q,
  bool linkwitz_riley = false;  // or two of half the order, which is even, one after the other;
                                // shelf and all-pass: 1 for those of first order
  // Of a Linkwitz transform, which makes a high-pass of `frequency` and `q` one of these.
  double target_frequency = 0.0, target_q = 0.0;
  // Low-, high- and band-pass: an FIR of linear phase instead, see linear_phase.h. `transition` is
  // in Hz, 0 for half the corner.
  bool linear_phase = false;
  double transition = 0.0;
};

constexpr int kMaxPassOrder = 24;

/**
 * Appends six values per section, b0 b1 b2 1 a1 a2. Without an order, one section by the cookbook
 * formulas for audio equalisers: bilinear transforms of analogue prototypes, with the width
 * corrected for the warped frequency axis; shelves and passes without a width get the steepest
 * slope that does not overshoot. With an order, bilinear transforms of the Butterworth prototype,
 * right at the corner, the sections by rising resonance. Of first order, right at the corner, too:
 *
 *   low shelf   (A² w + A s) / (w + A s)       all-pass   (w - s) / (w + s)
 *   high shelf  (A w + A² s) / (A w + s)       tilt       (w + A s) / (A w + s)
 *
 * with A = 10^(gain / 40), so that a shelf has half its gain at w. Not for filters of linear phase.
 */
void append_sections(const EqualiserFilter& filter, int rate, std::vector<double>* out);

/**
 * Appends the bilinear transform of (s² + s z / Qz + z²) / (s² + s p / Qp + p²), which is 1 at half
 * the rate, right at both frequencies (Hz). A `zero_q` of 0 stands for an infinite one: a notch.
 */
void append_zeros_and_poles(double zero_frequency, double zero_q, double pole_frequency,
                            double pole_q, int rate, std::vector<double>* out);

}  // namespace jurn
