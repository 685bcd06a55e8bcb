// Twice the digits of double, where its rounding would drown the result.
#pragma once

#include <cstdint>
#include <cstring>

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

/** The upper 26 of the 53 bits of x, rounded, so that 26 are left below. */
inline double upper_bits(double x) {
  std::uint64_t bits;
  std::memcpy(&bits, &x, sizeof x);
  bits = (bits + (1U << 26)) >> 27 << 27;
  std::memcpy(&x, &bits, sizeof x);
  return x;
}

/** What x y has lost by rounding to product (Dekker 1971). Not by std::fma, which rounds wrongly in
 * some C libraries, that of MinGW among them. */
inline double rounding_of(double x, double y, double product) {
  const double x_high = upper_bits(x), x_low = x - x_high;
  const double y_high = upper_bits(y), y_low = y - y_high;
  return x_low * y_low - (((product - x_high * y_high) - x_low * y_high) - x_high * y_low);
}

inline Wide operator*(Wide x, double y) {
  const double product = x.high * y;
  const double low = rounding_of(x.high, y, product) + x.low * y;
  const double high = product + low;
  return {high, low - (high - product)};
}

}  // namespace jurn
