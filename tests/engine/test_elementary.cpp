// What designs are computed by: right, and the same bits from every compiler, library and
// processor.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "design/equaliser.h"
#include "design/graphic_equaliser.h"
#include "design/linear_phase.h"
#include "design/prepare.h"
#include "design/spectrum.h"
#include "elementary.h"
#include "units.h"

namespace jurn {
namespace {

/** FNV-1a over the bytes of doubles, from the lowest. */
class Sum {
 public:
  void add(double value) {
    std::uint64_t bits;
    std::memcpy(&bits, &value, sizeof bits);
    for (int byte = 0; byte < 8; ++byte, bits >>= 8) sum_ = (sum_ ^ (bits & 255)) * 1099511628211u;
  }
  void add(const std::vector<double>& values) {
    for (const double value : values) add(value);
  }
  std::uint64_t value() const { return sum_; }

 private:
  std::uint64_t sum_ = 14695981039346656037u;
};

/** The same numbers everywhere. */
class Random {
 public:
  double operator()(double from, double to) {
    state_ = state_ * 6364136223846793005u + 1442695040888963407u;
    return from + (to - from) * (static_cast<double>(state_ >> 11) * 0x1p-53);
  }

 private:
  std::uint64_t state_ = 1;
};

TEST(Elementary, IsRight) {
  struct {
    const char* name;
    double (*function)(double);
    double (*expected)(double);
    double from, to;
  } const cases[] = {{"sin", elementary::sin, std::sin, -1000.0, 1000.0},
                     {"sin", elementary::sin, std::sin, 0.0, 1e-3},
                     {"cos", elementary::cos, std::cos, -1000.0, 1000.0},
                     {"tan", elementary::tan, std::tan, 0.0, 1.5707},
                     {"exp", elementary::exp, std::exp, -700.0, 700.0},
                     {"log", elementary::log, std::log, 0.0, 3.0},
                     {"log", elementary::log, std::log, 0.0, 1e300},
                     {"sinh", elementary::sinh, std::sinh, 0.0, 1e-3},
                     {"sinh", elementary::sinh, std::sinh, -3.0, 3.0},
                     {"power of ten", elementary::power_of_ten,
                      [](double x) { return std::pow(10.0, x); }, -20.0, 20.0}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    Random random;
    for (int i = 0; i < 20000; ++i) {
      const double x = random(c.from, c.to), wanted = c.expected(x);
      ASSERT_NEAR(c.function(x), wanted, 5 * 0x1p-52 * std::abs(wanted)) << x;
    }
  }
  double power = 1.0;
  for (int i = 0; i <= 22; ++i, power *= 10.0) {
    EXPECT_EQ(elementary::power_of_ten(i), power);
    EXPECT_EQ(elementary::power_of_ten(-i), 1.0 / power);
  }
  for (const double x : {-HUGE_VAL, -400.0, 0.0, 400.0, HUGE_VAL}) {
    EXPECT_EQ(elementary::power_of_ten(x), std::pow(10.0, x));
    EXPECT_EQ(elementary::exp(3.0 * x), std::exp(3.0 * x));
  }
  EXPECT_TRUE(std::isnan(elementary::power_of_ten(std::nan(""))));
  // cppcheck-suppress wrongmathcall  // another log than the C library's
  EXPECT_EQ(elementary::log(0.0), -HUGE_VAL);
  EXPECT_EQ(elementary::log(HUGE_VAL), HUGE_VAL);
  const std::complex<double> x(3e200, -4e200), y(-5e-200, 12e-200);
  EXPECT_NEAR(elementary::magnitude(x) / 5e200, 1.0, 1e-15);
  EXPECT_NEAR(std::abs(elementary::quotient(x, x) - 1.0), 0.0, 1e-15);
  EXPECT_NEAR(std::abs(elementary::quotient(y, y * 2.0) - 0.5), 0.0, 1e-15);
}

TEST(Elementary, DesignsHaveTheSameBitsEverywhere) {
  Sum sections, taps, factors;
  Random random;
  for (int type = 0; type <= static_cast<int>(EqualiserType::kTilt); ++type)
    for (int i = 0; i < 100; ++i) {
      EqualiserFilter f{static_cast<EqualiserType>(type)};
      f.frequency = random(10.0, 23000.0);
      f.gain = random(-20.0, 20.0);
      (i % 3 ? f.q : f.octaves) = random(0.1, 5.0);
      std::vector<double> rows;
      append_sections(f, 48000, &rows);
      const bool is_pass = f.type == EqualiserType::kLowPass || f.type == EqualiserType::kHighPass;
      f.order = is_pass ? 1 + i % 10 : 1;
      if (f.type != EqualiserType::kPeak && f.type != EqualiserType::kBandPass &&
          f.type != EqualiserType::kNotch)
        append_sections(f, 48000, &rows);
      append_zeros_and_poles(f.frequency, 0.0, random(10.0, 23000.0), 1.0, 48000, &rows);
      sections.add(rows);
      if (i % 10) continue;
      // A direct form of some of them, whose roots are looked for.
      FilterDesign design{FilterDesign::kIir, {1.0}, {1.0}};
      for (std::size_t at = 0; at < std::min<std::size_t>(rows.size(), 24); at += 6)
        for (std::vector<double>* const c : {&design.b, &design.a}) {
          const double* const factor = rows.data() + at + (c == &design.a ? 3 : 0);
          std::vector<double> product(c->size() + 2);
          for (std::size_t k = 0; k < c->size(); ++k)
            for (std::size_t j = 0; j < 3; ++j) product[k + j] += (*c)[k] * factor[j];
          *c = product;
        }
      const Prepared prepared = prepare(design, {});
      factors.add(prepared.design.b);
      factors.add(prepared.design.a);
      factors.add(peak_gain(design));
    }
  for (const auto type : {EqualiserType::kLowPass, EqualiserType::kBandPass}) {
    EqualiserFilter f{type};
    f.frequency = 1000.0;
    f.q = 0.7;
    taps.add(linear_phase_pass(f, 48000));
  }
  taps.add(
      linear_phase_taps({{20.0, 3.1}, {150.0, -2.7}, {1000.0, 0.4}, {9000.0, -7.3}}, 44100, 4001));
  EXPECT_EQ(sections.value(), 859683691270076738u);
  EXPECT_EQ(taps.value(), 12723026321643299249u);
  EXPECT_EQ(factors.value(), 4107455354984794777u);
}

}  // namespace
}  // namespace jurn
