// A measured response brought to a target by an equaliser.
#pragma once

#include <vector>

#include "design/equaliser.h"
#include "design/graphic_equaliser.h"

namespace jurn {

constexpr int kMostFitBands = 32;

struct FitOptions {
  int rate = 48000;                         // of the equaliser, Hz
  int bands = 10;                           // at most, 1 to kMostFitBands
  double most_gain = 12.0;                  // dB up and down, 0.1 to 24
  double most_q = 6.0;                      // of peaks, 0.5 to 20
  double lowest = 20.0, highest = 20000.0;  // Hz, where it corrects
};

/** How far a response is from its target, at equal levels. */
struct FitError {
  double rms = 0.0, largest = 0.0;  // dB
  double frequency = 0.0;           // of the largest, Hz
};

struct Fit {
  std::vector<EqualiserFilter> filters;  // by rising frequency, in numbers of few digits
  double preamp = 0.0;                   // dB, what keeps the equaliser from clipping: 0 or less
  FitError before, after;
  // For a picture: levels in dB, at the height where the equaliser was fitted.
  std::vector<double> frequency, measured, target, corrected;
};

/**
 * Peaks and at most one shelf of each side, whose decibels e_k bring a measurement m to a target t:
 * the least
 *
 *   sum over i of (m(f_i) + sum over k of e_k(f_i) - t(f_i) - level)^2
 *
 * at frequencies f_i of 48 an octave, where m and t are means of their points. The level is free:
 * how loud somebody measured does not matter. Bands come one by one, each where it helps most, and
 * all are improved together by the damped least squares of Levenberg and Marquardt over log f, gain
 * and log Q, within the limits; it is tried with and without beginning at the shelves. Fewer bands
 * where more would not help.
 *
 * Points rise in frequency. Throws where the points and the options have less than an octave in
 * common, and for options beyond their limits. Not for a thread that plays: some tenths of a
 * second.
 */
Fit fit_equaliser(const std::vector<GraphicPoint>& measured,
                  const std::vector<GraphicPoint>& target, const FitOptions& options);

}  // namespace jurn
