// The search of fit.h: which bands, and their values. A search makes much of the last bit, so it
// takes no function of the C library whose last bit differs from one to the next.
#pragma once

#include <cstddef>
#include <vector>

#include "design/fit.h"

namespace jurn {

using Curve = std::vector<double>;  // dB, at the frequencies of a search

double product(const Curve& x, const Curve& y);
double rms_of(const Curve& curve);
void take_mean_away(Curve* curve);

constexpr double kMissed = 1.01;  // times the error at which no band is missed

/** A band as the search sees it: logarithms of the warped frequency tan(pi f / rate) and of Q. */
struct FitBand {
  EqualiserType type;
  double values[3];  // ln of the warped frequency, dB, ln Q
};
FitBand band_of(const EqualiserFilter& filter, int rate);
EqualiserFilter filter_of(const FitBand& band, int rate);

class FitSearch {
 public:
  /** Frequencies rise by a constant factor; `options` and `wanted` have to outlive the search. */
  FitSearch(const FitOptions& options, const Curve& frequencies, const Curve& wanted);

  std::vector<FitBand> run(bool shelves_first) const;

  /** What is left to do behind these curves, with its mean taken away: the level is free. */
  Curve rest(const std::vector<Curve>& curves) const;
  /** The filter's decibels, by its analogue prototype: the bilinear transform only warps. */
  Curve curve_of(const FitBand& band) const;

 private:
  struct Candidate {
    FitBand band;
    Curve curve;  // at kTrialGain, without its mean
    double power;
  };

  void add_candidate(EqualiserType type, double warped, double q);
  /** The band that takes most of the rest away: decibels of a shape grow almost as its gain. */
  FitBand best(const Curve& left, const std::vector<FitBand>& bands, bool shelf) const;
  /** Without the band that is missed least, once the others are improved. Two bands that share one
   * hill become one. */
  std::vector<FitBand> without_one(const std::vector<FitBand>& bands) const;
  std::vector<Curve> curves_of(const std::vector<FitBand>& bands) const;
  double cost(const Curve& left, const std::vector<FitBand>& bands) const;
  /** Of the three values. Shelves stay in their half: the level is free, so that a low one could
   * take the place of a high one. */
  void limits(const FitBand& band, double* low, double* high) const;
  /** Levenberg and Marquardt: steps along the slopes, damped until they help. */
  void improve(int steps, std::vector<FitBand>* bands) const;
  /** Differences of a band's curve for its three values, per unit, without their means. */
  void add_slopes(const FitBand& band, const Curve& curve, std::vector<Curve>* slopes) const;
  /** One step; values at a limit that lean outwards stay where they are. */
  std::vector<FitBand> move(const std::vector<FitBand>& bands, std::vector<double> squares,
                            std::vector<double> down, double damping) const;

  const FitOptions& options_;
  const Curve& wanted_;
  std::vector<double> warped_;  // frequencies
  std::vector<Candidate> candidates_;
};

}  // namespace jurn
