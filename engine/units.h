// Decibels, pi and the logarithms of two and ten.
#pragma once

#include <cmath>

#include "elementary.h"

namespace jurn {

inline constexpr double kPi = 3.14159265358979323846;
inline constexpr double kLogTwo = 0.69314718055994530942;
inline constexpr double kLogTen = 2.30258509299404568402;

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
  return elementary::power_of_ten(decibels / 20.0);
}

}  // namespace jurn
