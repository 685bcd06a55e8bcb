// Twice the digits of double, where its rounding would drown the result.
#pragma once

#include <cmath>

namespace jurn {

/** An unevaluated sum of two doubles, about 32 digits. */
struct Wide {
  double high = 0.0, low = 0.0;
};

inline Wide operator+(Wide x, Wide y) {
  const double sum = x.high + y.high;
  const double part = sum - x.high;
  const double low = (x.high - (sum - part)) + (y.high - part) + x.low + y.low;
  const double high = sum + low;
  return {high, low - (high - sum)};
}

inline Wide operator*(Wide x, double y) {
  const double product = x.high * y;
  const double low = std::fma(x.high, y, -product) + x.low * y;
  const double high = product + low;
  return {high, low - (high - product)};
}

}  // namespace jurn
