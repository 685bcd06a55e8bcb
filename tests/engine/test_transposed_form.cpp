// Filters whose state is the caller's: against the convolution sum and feedback, and continued.
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "streams/transposed_form.h"

namespace jurn {
namespace {

std::vector<double> samples(std::size_t count) {
  std::vector<double> x(count);
  for (std::size_t i = 0; i < count; ++i) x[i] = std::sin(static_cast<double>(i * i) / 7.0);
  return x;
}

/** b[0] x[n] + b[1] x[n - 1] + ... - a[1] y[n - 1] - ... in long double. */
std::vector<double> reference(const std::vector<double>& b, const std::vector<double>& a,
                              const std::vector<double>& x) {
  std::vector<long double> y;
  for (std::size_t n = 0; n < x.size(); ++n) {
    long double sum = 0.0L;
    for (std::size_t i = 0; i < b.size() && i <= n; ++i) sum += b[i] * (0.0L + x[n - i]);
    for (std::size_t i = 1; i < a.size() && i <= n; ++i) sum -= a[i] * y[n - i];
    y.push_back(sum);
  }
  return {y.begin(), y.end()};
}

TEST(TransposedForm, GivesTheFilterAndGoesOnFromItsState) {
  const std::vector<double> x = samples(300);
  const std::vector<double> b1 = {0.3, -0.2, 0.1}, a1 = {1.0, -1.2, 0.6};
  const std::vector<double> b2 = {0.9, 0.4, -0.7}, a2 = {1.0, 0.5, 0.3};
  struct Case {
    FilterDesign design;
    std::vector<double> expected;
    std::size_t states;
  };
  const Case cases[] = {
      {{FilterDesign::kFir, {0.5}, {}}, reference({0.5}, {1.0}, x), 0},
      {{FilterDesign::kFir, {0.5, 0.2, -0.9}, {}}, reference({0.5, 0.2, -0.9}, {1.0}, x), 2},
      {{FilterDesign::kIir, b1, a1}, reference(b1, a1, x), 2},
      {{FilterDesign::kIir, {0.5}, a1}, reference({0.5}, a1, x), 2},
      {{FilterDesign::kIir, {0.5, 1.0, 2.0, 3.0, 4.0}, a1},
       reference({0.5, 1.0, 2.0, 3.0, 4.0}, a1, x),
       4},
      {{FilterDesign::kIir, {0.5}, {1.0, 0.1, 0.2, -0.1, 0.3, 0.05}},
       reference({0.5}, {1.0, 0.1, 0.2, -0.1, 0.3, 0.05}, x),
       5},
      {{FilterDesign::kIir, {1.0}, {1.0, -0.5}}, reference({1.0}, {1.0, -0.5}, x), 1},
      {{FilterDesign::kIir, {1.0, 2.0, 3.0, 4.0}, {1.0, -0.5}},
       reference({1.0, 2.0, 3.0, 4.0}, {1.0, -0.5}, x),
       3},
      {{FilterDesign::kSections, {0.3, -0.2, 0.1, 0.9, 0.4, -0.7}, {1.0, -1.2, 0.6, 1.0, 0.5, 0.3}},
       reference(b2, a2, reference(b1, a1, x)),
       4},
  };
  for (const Case& c : cases) {
    const TransposedForm form(c.design);
    ASSERT_EQ(form.states(), c.states);
    std::vector<double> y = x, state(c.states);
    form.run(y.data(), 100, y.data(), state.data());
    form.run(y.data() + 100, 0, y.data() + 100, state.data());
    form.run(y.data() + 100, 200, y.data() + 100, state.data());
    for (std::size_t i = 0; i < x.size(); ++i) ASSERT_NEAR(y[i], c.expected[i], 1e-13) << i;
  }
}

TEST(TransposedForm, HasTheStateOfItsDefinition) {
  // A step through y = x + z with z = 0.5 y: what scipy.signal.lfilter_zi(1, [1, -0.5]) gives.
  const TransposedForm form({FilterDesign::kIir, {1.0}, {1.0, -0.5}});
  std::vector<double> y(8, 1.0), state = {1.0};
  form.run(y.data(), 8, y.data(), state.data());
  EXPECT_EQ(y, std::vector<double>(8, 2.0));
  EXPECT_EQ(state[0], 1.0);
}

}  // namespace
}  // namespace jurn
