#include "exact.h"

#include "design/equaliser.h"

#include <cmath>

#include "elementary.h"
#include "units.h"

namespace jurn {
namespace {

void set(double* x, double x0, double x1, double x2) {
  x[0] = x0;
  x[1] = x1;
  x[2] = x2;
}

void append_section(const EqualiserFilter& f, int rate, std::vector<double>* out) {
  const double amp = from_decibels(f.gain / 2.0);
  const double w = 2.0 * kPi * f.frequency / rate;
  const double c = elementary::cos(w), s = elementary::sin(w);
  // (1 - c) / 2 and (1 + c) / 2; at low frequencies the difference would have few digits.
  const double half_c = elementary::cos(w / 2.0), half_s = elementary::sin(w / 2.0);
  const double low = half_s * half_s, high = half_c * half_c;
  const double q = f.q > 0.0 ? f.q : std::sqrt(0.5);
  const double alpha =
      f.octaves > 0.0 ? s * elementary::sinh(kLogTwo / 2.0 * f.octaves * w / s) : s / (2.0 * q);
  const double root = 2.0 * std::sqrt(amp) * alpha;
  double b[3] = {1.0 - alpha, -2.0 * c, 1.0 + alpha};  // all-pass
  double a[3] = {1.0 + alpha, -2.0 * c, 1.0 - alpha};
  switch (f.type) {
    case EqualiserType::kPeak:
      set(b, 1.0 + alpha * amp, -2.0 * c, 1.0 - alpha * amp);
      set(a, 1.0 + alpha / amp, -2.0 * c, 1.0 - alpha / amp);
      break;
    case EqualiserType::kLowShelf:
    case EqualiserType::kHighShelf: {
      const double sum = amp + 1.0;
      const double less = f.type == EqualiserType::kLowShelf ? amp - 1.0 : 1.0 - amp;
      set(b, amp * (sum - less * c + root), 2.0 * amp * (less - sum * c),
          amp * (sum - less * c - root));
      set(a, sum + less * c + root, -2.0 * (less + sum * c), sum + less * c - root);
      break;
    }
    case EqualiserType::kLowPass:
      set(b, low, 2.0 * low, low);
      break;
    case EqualiserType::kHighPass:
      set(b, high, -2.0 * high, high);
      break;
    case EqualiserType::kBandPass:
      set(b, alpha, 0.0, -alpha);
      break;
    case EqualiserType::kNotch:
      set(b, 1.0, -2.0 * c, 1.0);
      break;
    case EqualiserType::kAllPass:
    case EqualiserType::kTilt:
    case EqualiserType::kLinkwitzTransform:
      break;
  }
  for (const double x : b) out->push_back(x / a[0]);
  for (const double x : a) out->push_back(x / a[0]);
}

/** A section of first order, (b0 w + b1 s) / (a0 w + a1 s). */
void append_first_order(const EqualiserFilter& f, int rate, std::vector<double>* out) {
  const double w = elementary::tan(kPi * f.frequency / rate);
  const double amp = from_decibels(f.gain / 2.0);
  double b0 = 1.0, b1 = 0.0, a0 = 1.0, a1 = 1.0;  // low-pass
  switch (f.type) {
    case EqualiserType::kHighPass:
      b0 = 0.0;
      b1 = 1.0;
      break;
    case EqualiserType::kLowShelf:
      b0 = amp * amp;
      b1 = a1 = amp;
      break;
    case EqualiserType::kHighShelf:
      b0 = a0 = amp;
      b1 = amp * amp;
      break;
    case EqualiserType::kTilt:
      a0 = b1 = amp;
      break;
    case EqualiserType::kAllPass:
      b1 = -1.0;
      break;
    default:
      break;
  }
  const double sum = a0 * w + a1;
  for (const double x :
       {(b0 * w + b1) / sum, (b0 * w - b1) / sum, 0.0, 1.0, (a0 * w - a1) / sum, 0.0})
    out->push_back(x);
}

void append_butterworth(EqualiserFilter f, int order, int rate, std::vector<double>* out) {
  if (order % 2) append_first_order(f, rate, out);
  for (int k = order / 2 - 1; k >= 0; --k) {
    f.q = 0.5 / elementary::sin(kPi * (2 * k + 1) / (2.0 * order));
    append_section(f, rate, out);
  }
}

}  // namespace

void append_sections(const EqualiserFilter& filter, int rate, std::vector<double>* out) {
  const bool is_pass =
      filter.type == EqualiserType::kLowPass || filter.type == EqualiserType::kHighPass;
  if (filter.type == EqualiserType::kLinkwitzTransform)
    return append_zeros_and_poles(filter.frequency, filter.q, filter.target_frequency,
                                  filter.target_q, rate, out);
  if (filter.type == EqualiserType::kTilt || (filter.order && !is_pass))
    return append_first_order(filter, rate, out);
  if (!filter.order) return append_section(filter, rate, out);
  const int times = filter.linkwitz_riley ? 2 : 1;
  for (int i = 0; i < times; ++i) append_butterworth(filter, filter.order / times, rate, out);
}

void append_zeros_and_poles(double zero_frequency, double zero_q, double pole_frequency,
                            double pole_q, int rate, std::vector<double>* out) {
  const double z = elementary::tan(kPi * zero_frequency / rate);
  const double p = elementary::tan(kPi * pole_frequency / rate);
  const double z_width = zero_q > 0.0 ? z / zero_q : 0.0, p_width = p / pole_q;
  const double a0 = 1.0 + p_width + p * p;
  for (const double x : {1.0 + z_width + z * z, 2.0 * (z * z - 1.0), 1.0 - z_width + z * z, a0,
                         2.0 * (p * p - 1.0), 1.0 - p_width + p * p})
    out->push_back(x / a0);
}

}  // namespace jurn
