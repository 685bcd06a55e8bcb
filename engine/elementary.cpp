#include "exact.h"

#include "elementary.h"

#include <algorithm>
#include <cmath>

namespace jurn::elementary {
namespace {

// Logarithms and a quarter of a turn, in parts of which the first have so few digits that their
// multiples are exact.
constexpr double kQuarter[] = {0x1.921fb544p+0, 0x1.0b4611a6p-34, 0x1.3198a2e037073p-69};  // pi / 2
constexpr double kTwo[] = {0x1.62e42fefp-1, 0x1.473de6af278edp-34};
constexpr double kTen = 0x1.26bb1bbb55516p+1;

/** Sine and cosine of an angle within an eighth of a turn, by Taylor's series. */
double short_sin(double x) {
  double sum = 0.0;
  for (int n = 20; n > 0; n -= 2) sum = -x * x / (n * (n + 1)) * (1.0 + sum);
  // The small part last, so that it is rounded where it is small.
  return x + x * sum;
}
double short_cos(double x) {
  double sum = 0.0;
  for (int n = 19; n > 1; n -= 2) sum = -x * x / (n * (n + 1)) * (1.0 + sum);
  const double half = 0.5 * x * x;
  return 1.0 - (half + half * sum);
}

/** The rest of an angle after quarters of a turn, whose number goes to `quarters`, 0 to 3. */
double within_an_eighth(double x, int* quarters) {
  const double count = std::floor(x / kQuarter[0] + 0.5);
  *quarters = static_cast<int>(count - 4.0 * std::floor(count / 4.0));
  return x - count * kQuarter[0] - count * kQuarter[1] - count * kQuarter[2];
}

double turned_sin(double rest, int quarters) {
  const double value = quarters % 2 ? short_cos(rest) : short_sin(rest);
  return quarters / 2 % 2 ? -value : value;
}

/** e^x - 1 for |x| below 0.4. */
double short_exp(double x) {
  double sum = 0.0;
  for (int n = 16; n > 1; --n) sum = x / n * (1.0 + sum);
  return x + x * sum;
}

}  // namespace

double sin(double x) {
  int quarters;
  const double rest = within_an_eighth(x, &quarters);
  return turned_sin(rest, quarters);
}

double cos(double x) {
  int quarters;
  const double rest = within_an_eighth(x, &quarters);
  return turned_sin(rest, quarters + 1);
}

double tan(double x) {
  return sin(x) / cos(x);
}

double exp(double x) {
  if (x < -745.0) return 0.0;
  if (!(x < 710.0)) return x * HUGE_VAL;  // or no number
  const double count = std::floor(x / kTwo[0] + 0.5);
  const double rest = x - count * kTwo[0] - count * kTwo[1];
  return std::ldexp(1.0 + short_exp(rest), static_cast<int>(count));
}

double power_of_ten(double x) {
  if (!(std::abs(x) < 400.0)) return exp(3.0 * x);  // 0, infinite, or no number
  const double whole = std::floor(x + 0.5);
  const double tens = power(10.0, static_cast<int>(std::abs(whole)));
  const double part = exp((x - whole) * kTen);
  return whole < 0.0 ? part / tens : part * tens;
}

double sinh(double x) {
  if (std::abs(x) > 0.3) return 0.5 * (exp(x) - exp(-x));
  double sum = 0.0;
  for (int n = 14; n > 0; n -= 2) sum = x * x / (n * (n + 1)) * (1.0 + sum);
  return x + x * sum;
}

double asinh(double x) {
  const double root = std::sqrt(x * x + 1.0), size = std::abs(x);
  const double first = std::copysign(log(size + root), x);
  // Where the logarithm is near 0 it has lost digits.
  return size > 1.0 ? first : first - (sinh(first) - x) / root;
}

double atan(double x) {
  if (std::abs(x) > 1.0)
    return std::copysign(kQuarter[0], x) - atan(1.0 / x) + std::copysign(kQuarter[1], x);
  // An approximation within 0.005, and each step leaves a third of the error's cube.
  double angle = x / (1.0 + 0.28 * x * x);
  for (int step = 0; step < 3; ++step)
    angle -= (sin(angle) - x * cos(angle)) / (cos(angle) + x * sin(angle));
  return angle;
}

double power(double x, int count) {
  double product = 1.0;
  for (; count > 0; --count) product *= x;
  return product;
}

double log(double x) {
  if (x == 0.0) return -HUGE_VAL;
  if (!(x < HUGE_VAL)) return x;
  int count;
  double part = std::frexp(x, &count);
  if (part < 0.7) {
    part *= 2.0;
    --count;
  }
  const double at = (part - 1.0) / (part + 1.0);
  double sum = 0.0;
  for (int n = 23; n > 1; n -= 2) sum = at * at * (1.0 / n + sum);
  return count * kTwo[0] + (count * kTwo[1] + 2.0 * (at + at * sum));
}

std::complex<double> polar(double radius, double angle) {
  return {radius * cos(angle), radius * sin(angle)};
}

double magnitude(std::complex<double> z) {
  const double size = std::max(std::abs(z.real()), std::abs(z.imag()));
  if (!(size > 0.0 && std::isfinite(size))) return size;
  const double re = z.real() / size, im = z.imag() / size;
  return size * std::sqrt(re * re + im * im);
}

std::complex<double> square_root(std::complex<double> z) {
  const double half = std::sqrt(0.5 * (magnitude(z) + std::abs(z.real())));
  if (half == 0.0) return z;
  if (z.real() >= 0.0) return {half, z.imag() / (2.0 * half)};
  return {std::abs(z.imag()) / (2.0 * half), std::copysign(half, z.imag())};
}

std::complex<double> quotient(std::complex<double> x, std::complex<double> y) {
  const double size = std::max(std::abs(y.real()), std::abs(y.imag()));
  const double re = y.real() / size, im = y.imag() / size, norm = re * re + im * im;
  return {(x.real() * re + x.imag() * im) / norm / size,
          (x.imag() * re - x.real() * im) / norm / size};
}

}  // namespace jurn::elementary
