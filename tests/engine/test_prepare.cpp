// What runs for a design, and what is said of it.
#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <string>
#include <vector>

#include "design/equaliser.h"
#include "design/frequency_response.h"
#include "design/prepare_once.h"
#include "design/roots.h"
#include "design/windowed_fir.h"
#include "errors.h"

namespace jurn {
namespace {

FilterDesign sections_of(const std::vector<EqualiserFilter>& filters) {
  std::vector<double> rows;
  for (const EqualiserFilter& filter : filters) append_sections(filter, 48000, &rows);
  return sections_of_rows(rows);
}

/** Seven bands as a listener might set them. */
FilterDesign equaliser(unsigned seed) {
  const auto next = [&seed](double least, double most) {
    seed = seed * 1664525u + 1013904223u;
    return least + (most - least) * (seed >> 8) / 16777216.0;
  };
  std::vector<EqualiserFilter> filters(7);
  for (EqualiserFilter& filter : filters) {
    filter.type = next(0.0, 1.0) < 0.7 ? EqualiserType::kPeak : EqualiserType::kLowShelf;
    filter.frequency = 20.0 * std::pow(10.0, next(0.0, 2.9));
    filter.gain = next(-9.0, 9.0);
    if (filter.type == EqualiserType::kPeak) filter.q = next(0.4, 6.0);
  }
  return sections_of(filters);
}

/** (1 - p/z)^order, whose roots rounding tears apart. */
std::vector<double> power_of(double pole, int order) {
  std::vector<double> result{1.0};
  for (int k = 0; k < order; ++k) {
    result.push_back(0.0);
    for (std::size_t i = result.size() - 1; i > 0; --i) result[i] -= pole * result[i - 1];
  }
  return result;
}

TEST(Design, RefusesWhatDoesNotBelongTogether) {
  const auto refuses = [](FilterDesign::Kind kind, std::size_t b, std::size_t a) {
    EXPECT_THROW(checked_design(kind, std::vector<double>(b, 1.0), std::vector<double>(a, 1.0)),
                 Error)
        << kind << ", " << b << ", " << a;
  };
  for (const auto kind : {FilterDesign::kFir, FilterDesign::kIir, FilterDesign::kSections})
    refuses(kind, 0, 0);
  refuses(FilterDesign::kFir, 3, 3);
  refuses(FilterDesign::kIir, 3, 0);
  refuses(FilterDesign::kSections, 4, 4);
  refuses(FilterDesign::kSections, 3, 6);
}

TEST(Design, RefusesWhatADivisionLeavesNoNumbersOf) {
  EXPECT_THROW(checked_design(FilterDesign::kIir, {1e300, 1.0}, {1e-300, 0.0}), Error);
  EXPECT_THROW(windowed_fir(2, Window::kHann, 0.0, {Pass::kLow, 1000.0}, 48000), Error);
}

TEST(Response, IsThatOfTheDefinition) {
  const FilterDesign designs[] = {{FilterDesign::kFir, {0.5, -0.25, 1.0, 0.125}, {}},
                                  {FilterDesign::kIir, {0.3, 0.2, -0.7}, {1.0, -0.5}},
                                  {FilterDesign::kSections, {0.3, 0.2, -0.7}, {1.0, -0.5, 0.25}}};
  for (const FilterDesign& design : designs)
    for (const double w : {0.1, 1.0, 2.9}) {
      const auto direct = [&](double at) {
        const auto sum = [at](const std::vector<double>& c) {
          std::complex<double> result = 0.0;
          for (std::size_t k = 0; k < c.size(); ++k)
            result += c[k] * std::polar(1.0, -at * static_cast<double>(k));
          return result;
        };
        return sum(design.b) / (design.a.empty() ? 1.0 : sum(design.a));
      };
      const ResponsePoint point = response_at(design, w);
      EXPECT_NEAR(std::abs(point.value - direct(w)), 0.0, 1e-12) << w;
      std::complex<double> of_impulse = 0.0;
      const std::vector<double> impulse = impulse_response(design);
      for (std::size_t n = 0; n < impulse.size(); ++n)
        of_impulse += impulse[n] * std::polar(1.0, -w * static_cast<double>(n));
      EXPECT_NEAR(std::abs(of_impulse - point.value), 0.0, 1e-4) << w;
      const double slope = std::arg(direct(w + 1e-5) / direct(w - 1e-5)) / 2e-5;
      EXPECT_NEAR(point.delay, -slope, 1e-6) << w;
    }
}

TEST(Prepare, GivesWhatPreparesToItself) {
  std::vector<FilterDesign> designs{{FilterDesign::kFir, {0.1, 0.2, 0.3}, {}},
                                    {FilterDesign::kIir, {1e-4, 2e-4}, power_of(0.9, 4)},
                                    {FilterDesign::kIir, {0.1}, {1.0, -0.5}}};
  // The last three are ordered anew a second time.
  for (const unsigned seed : {1u, 2u, 12u, 41u, 55u}) designs.push_back(equaliser(seed));
  for (const FilterDesign& design : designs)
    for (const Precision precision : {Precision::kInt16, Precision::kDouble}) {
      PrepareOptions options;
      options.precision = precision;
      const Prepared once = prepare(design, options);
      EXPECT_TRUE(prepare(once.design, options).design == once.design) << &design - &designs[0];
    }
}

TEST(Prepare, IsKeptByDesignAndUse) {
  const FilterDesign design = equaliser(1);
  PrepareOptions options;
  options.precision = Precision::kInt16;
  const auto first = prepare_once(design, options);
  EXPECT_EQ(first, prepare_once(design, options));
  EXPECT_TRUE(first->design == prepare(design, options).design);
  PrepareOptions others[6] = {options, options, options, options, options, options};
  others[0].precision = Precision::kDouble;
  others[1].result = SampleFormat::kFloat;
  others[2].rate = 44100;
  others[3].in_blocks = false;
  others[4].as_is = true;
  others[5].as_sections = true;
  for (const PrepareOptions& other : others) EXPECT_NE(first, prepare_once(design, other));
  // Equal designs have one hash, others another one.
  const std::hash<FilterDesign> hash;
  FilterDesign equal = design, longer = design, late = design;
  equal.b.push_back(0.0);
  longer.b.push_back(-0.0);
  late.delay = 1;
  EXPECT_EQ(hash(equal), hash(longer));
  EXPECT_NE(hash(design), hash(longer));
  EXPECT_NE(hash(design), hash(late));
  FilterDesign louder = design;
  scale(&louder, 2.0);
  EXPECT_NE(first, prepare_once(louder, options));
  EXPECT_EQ(first, prepare_once(design, options));
}

TEST(Prepare, SaysNothingOfEverydayFilters) {
  const struct {
    EqualiserType type;
    double frequency, gain, q;
    int order;
  } everyday[] = {
      {EqualiserType::kHighPass, 20, 0, 0, 0},   {EqualiserType::kHighPass, 40, 0, 0, 4},
      {EqualiserType::kHighPass, 80, 0, 0, 8},   {EqualiserType::kLowShelf, 100, 6, 0, 0},
      {EqualiserType::kPeak, 21, 5, 1.4, 0},     {EqualiserType::kPeak, 60, -6, 4, 0},
      {EqualiserType::kNotch, 50, 0, 30, 0},     {EqualiserType::kLowPass, 30, 0, 0, 4},
      {EqualiserType::kHighShelf, 8000, 4, 0, 0}};
  for (const auto& e : everyday) {
    EqualiserFilter filter{e.type};
    filter.frequency = e.frequency;
    filter.gain = e.gain;
    filter.q = e.q;
    filter.order = e.order;
    const Prepared prepared = prepare(sections_of({filter}));
    EXPECT_EQ(prepared.runs, Runs::kSections) << e.frequency;
    EXPECT_TRUE(prepared.notices.empty()) << e.frequency;
  }
}

TEST(Prepare, TellsEachFactOnceAndWithWhatHelps) {
  const FilterDesign unstable{FilterDesign::kIir, {1.0}, {1.0, -2.1, 1.2}};
  const FilterDesign integrator{FilterDesign::kIir, {1.0}, {1.0, -1.0}};
  for (const Precision precision : {Precision::kInt16, Precision::kDouble})
    for (const FilterDesign* design : {&unstable, &integrator}) {
      PrepareOptions options;
      options.precision = precision;
      int warnings = 0;
      for (const Notice& notice : prepare(*design, options).notices) {
        if (!notice.is_warning()) continue;
        ++warnings;
        EXPECT_EQ(notice.kind, Notice::kUnstable);
        EXPECT_EQ(notice.remedy, Notice::kNone) << notice.text;  // nothing would make it stable
      }
      EXPECT_EQ(warnings, 1);
    }
  // Poles whose squares are beyond the numbers of double.
  const Prepared far = prepare({FilterDesign::kIir, {1.0}, {1.0, 2e160, 1.0}}, {});
  EXPECT_EQ(far.notices.at(0).text, "unstable, its outermost pole has the radius inf");
  // A low peak on the device: off, and double helps.
  EqualiserFilter low{EqualiserType::kPeak};
  low.frequency = 20.0;
  low.gain = 6.0;
  low.q = 4.0;
  PrepareOptions device;
  device.precision = Precision::kInt16;
  const Prepared prepared = prepare(sections_of({low}), device);
  ASSERT_FALSE(prepared.notices.empty());
  EXPECT_EQ(prepared.notices.back().kind, Notice::kInexact);
  EXPECT_EQ(prepared.notices.back().remedy, Notice::kInDouble);
}

TEST(Prepare, PairsSectionsAnewThatWouldBeNoise) {
  const double angles[] = {0.02, 0.1, 0.5, 1.5};
  FilterDesign crossed{FilterDesign::kSections, {}, {}};
  for (int i = 0; i < 4; ++i) {
    const double zero = 1.05 * angles[3 - i];  // that of another pole
    crossed.b.insert(crossed.b.end(), {1.0, -2.0 * 0.989 * std::cos(zero), 0.989 * 0.989});
    crossed.a.insert(crossed.a.end(), {1.0, -2.0 * 0.99 * std::cos(angles[i]), 0.99 * 0.99});
  }
  PrepareOptions options;
  options.precision = Precision::kInt16;
  const Prepared paired = prepare(crossed, options);
  options.as_is = true;
  EXPECT_LT(100.0 * paired.expected_error_rms, prepare(crossed, options).expected_error_rms);
  ASSERT_FALSE(paired.notices.empty());
  EXPECT_EQ(paired.notices[0].text.find("sections paired, ordered"), 0u);
}

TEST(Roots, AreAsExactAsTheyCanBe) {
  EXPECT_EQ(roots(power_of(-1.0, 8)), std::vector<std::complex<double>>(8, -1.0));
  const auto apart = roots({1.0, 1e8, 1.0});
  ASSERT_EQ(apart.size(), 2u);
  EXPECT_DOUBLE_EQ(apart[0].real(), -1e8);
  EXPECT_DOUBLE_EQ(apart[1].real(), -1e-8);
  std::vector<double> circle(71);
  circle.front() = 1.0;
  circle.back() = -1.0;
  const auto seventy = roots(circle);
  EXPECT_EQ(seventy.size(), 70u);
  for (const std::complex<double>& z : seventy) EXPECT_NEAR(std::abs(z), 1.0, 1e-12);
}

TEST(Prepare, MeasuresADirectFormWhoseRootsAreNotSure) {
  // Seventy poles: no roots of so high an order are looked for.
  FilterDesign design{FilterDesign::kIir, {1.0}, std::vector<double>(71)};
  design.a[0] = 1.0;
  design.a[70] = -0.5;
  const Prepared harmless = prepare(design);
  EXPECT_EQ(harmless.runs, Runs::kDirectForm);
  EXPECT_LT(harmless.expected_error, 1e-6);
  // A numerator longer than a section's, over a short feedback, loses nothing.
  design = {FilterDesign::kIir, std::vector<double>(200, 0.005), {1.0, -0.9}};
  EXPECT_TRUE(prepare(design).notices.empty());
}

TEST(Prepare, RingsUntilHalfAStepOfTheResult) {
  const FilterDesign decay{FilterDesign::kIir, {0.1}, {1.0, -0.9}};
  PrepareOptions options;
  options.result = SampleFormat::kInt16;
  EXPECT_EQ(prepare(decay, options).tail, 108);  // 3 + log(2^-16) / log(0.9)
  options.result = SampleFormat::kInt24;
  EXPECT_EQ(prepare(decay, options).tail, 160);
}

TEST(Prepare, RunsFirsByWhatTheResultNeeds) {
  FilterDesign fir{FilterDesign::kFir, std::vector<double>(63, 1.0 / 63.0), {}};
  EXPECT_EQ(prepare(fir).runs, Runs::kFir);
  fir.b.assign(1000, 1e-3);
  EXPECT_EQ(prepare(fir).runs, Runs::kConvolution);
  PrepareOptions options;
  options.result = SampleFormat::kFloat;
  EXPECT_EQ(prepare(fir, options).runs, Runs::kFir);
  options.result = SampleFormat::kInt16;
  options.in_blocks = false;
  EXPECT_EQ(prepare(fir, options).runs, Runs::kFir);
  fir.b.assign(1000, 0.5);  // so loud that the transform's error would reach half a step
  EXPECT_EQ(prepare(fir).runs, Runs::kFir);
}

}  // namespace
}  // namespace jurn
