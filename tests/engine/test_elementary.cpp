// What designs are computed by. Its bits are for the engine's checksum.
#include <gtest/gtest.h>

#include <cmath>

#include "../random.h"
#include "elementary.h"

namespace jurn {
namespace {

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
                     {"asinh", elementary::asinh, std::asinh, -1e-3, 1e-3},
                     {"asinh", elementary::asinh, std::asinh, -3.0, 3.0},
                     {"asinh", elementary::asinh, std::asinh, 0.0, 1e9},
                     {"atan", elementary::atan, std::atan, -1e-3, 1e-3},
                     {"atan", elementary::atan, std::atan, -3.0, 3.0},
                     {"atan", elementary::atan, std::atan, 0.0, 1e9},
                     {"power of ten", elementary::power_of_ten,
                      [](double x) { return std::pow(10.0, x); }, -20.0, 20.0}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    Random random(1);
    for (int i = 0; i < 20000; ++i) {
      const double half = 0.5 * (c.to - c.from);
      const double x = c.from + half + random.real(half), wanted = c.expected(x);
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
  for (const std::complex<double> z : {x, y, -x, -y, {-4.0, 0.0}, {-4.0, -0.0}, {0.0, 0.0}})
    EXPECT_NEAR(std::abs(elementary::square_root(z) - std::sqrt(z)), 0.0,
                1e-15 * std::abs(std::sqrt(z)))
        << z;
  EXPECT_EQ(elementary::power(3.0, 4), 81.0);
  EXPECT_NEAR(std::abs(elementary::quotient(y, y * 2.0) - 0.5), 0.0, 1e-15);
}

}  // namespace
}  // namespace jurn
