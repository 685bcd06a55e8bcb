// Decibels and pi.
#pragma once

#include <cmath>

namespace jurn {

inline constexpr double kPi = 3.14159265358979323846;

/** A ratio of amplitudes in decibels. */
inline double to_decibels(double ratio) {
  return 20.0 * std::log10(ratio);
}

/** A ratio of powers in decibels. */
inline double power_to_decibels(double ratio) {
  return 10.0 * std::log10(ratio);
}

/** The ratio of amplitudes that decibels stand for. */
inline double from_decibels(double decibels) {
  return std::pow(10.0, decibels / 20.0);
}

}  // namespace jurn
