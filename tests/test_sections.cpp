/* The sections objects: error against long double, rounding, how long they ring, what a stream that
 * follows another one puts out, and refusals. The walks show the bits. */
#include <gtest/gtest.h>

#include <limits>
#include <memory>

#include "Sections_control.h"
#include "support.h"

namespace {

using Sos = std::vector<double>;

/** Memory that is exactly as long as the size function says. */
class Filter {
 public:
  Filter(Random& random, const Sos& sos, int sections, int lists = 1)
      : size(MORVAX_SectionsFilterSize_API(sections, lists)),
        memory_(random, static_cast<int>(size / sizeof(double))) {
    EXPECT_EQ(MORVAX_SectionsFilterCalcu_API(get(), size, sos.data(), sections, lists), 0);
  }
  Filter(Random& random, const Sos& sos) : Filter(random, sos, static_cast<int>(sos.size() / 6)) {}
  SectionsFilter_ID* get() { return reinterpret_cast<SectionsFilter_ID*>(memory_.data()); }
  const size_t size;

 private:
  GuardedArray<double> memory_;
};

class Stream {
 public:
  Stream(Random& random, int channels, int sections)
      : size(size_of({channels, sections})),
        memory_(random, static_cast<int>(size / sizeof(double))) {
    const Sections_shape shape = {channels, sections};
    EXPECT_EQ(MORVAX_SectionsStreamCalcu_API(get(), size, &shape), 0);
  }
  SectionsStream_ID* get() { return reinterpret_cast<SectionsStream_ID*>(memory_.data()); }
  const size_t size;

 private:
  static size_t size_of(const Sections_shape& shape) {
    return MORVAX_SectionsStreamSize_API(&shape);
  }
  GuardedArray<double> memory_;
};

std::vector<double> run(Stream& stream, Filter& filter, const std::vector<double>& x) {
  std::vector<double> y(x.size());
  MORVAX_SectionsRun_API_double(stream.get(), filter.get(), x.data(), static_cast<int>(x.size()),
                                y.data());
  return y;
}

template <class Sample>
std::vector<Sample> noise(Random& random, size_t count, double offset = 0.0) {
  std::vector<Sample> x(count);
  for (Sample& sample : x) sample = static_cast<Sample>(random.real(1.0) + offset);
  return x;
}

/** Poles at `radius` and an angle, zeros anywhere. */
void add_section(Sos& sos, Random& random, double radius, double angle) {
  const double a0 = random.one_in(2) ? 1.0 : 1.0 + random.real(0.5);
  for (const double x : {1.0 + random.real(0.3), random.real(1.0), random.real(1.0), 1.0,
                         -2 * radius * std::cos(angle), radius * radius})
    sos.push_back(x * a0);
}

Sos random_sos(Random& random, int sections) {
  Sos sos;
  for (int k = 0; k < sections; ++k)
    add_section(sos, random, std::fabs(random.real(0.97)), random.real(3.2));
  return sos;
}

/** A peak of `gain` decibels by the usual formulas. */
Sos peak(double gain, double hertz, double q, double rate) {
  const double a = std::pow(10.0, gain / 40), w = 2 * M_PI * hertz / rate;
  const double alpha = std::sin(w) / (2 * q), c = -2 * std::cos(w);
  return {1 + alpha * a, c, 1 - alpha * a, 1 + alpha / a, c, 1 - alpha / a};
}

/** A Butterworth high-pass of second order. */
Sos high_pass(double hertz, double rate) {
  const double w = 2 * M_PI * hertz / rate, alpha = std::sin(w) / std::sqrt(2.0);
  const double c = std::cos(w);
  return {(1 + c) / 2, -(1 + c), (1 + c) / 2, 1 + alpha, -2 * c, 1 - alpha};
}

Sos joined(Sos a, const Sos& b) {
  a.insert(a.end(), b.begin(), b.end());
  return a;
}

/** The transposed direct form II. */
template <class Real>
std::vector<Real> transposed(const Sos& sos, const std::vector<double>& x) {
  std::vector<Real> y(x.begin(), x.end());
  for (size_t k = 0; k < sos.size(); k += 6) {
    Real h[6], z1 = 0, z2 = 0;
    for (int i = 0; i < 6; ++i)
      h[i] = static_cast<Real>(sos[k + i]) / static_cast<Real>(sos[k + 3]);
    for (Real& sample : y) {
      const Real in = sample, out = h[0] * in + z1;
      z1 = h[1] * in - h[4] * out + z2;
      z2 = h[2] * in - h[5] * out;
      sample = out;
    }
  }
  return y;
}

/** The largest error of a run and of the transposed form in double, as shares of the peak. */
struct Errors {
  long double run = 0, transposed_form = 0, peak = 0;
};
Errors errors_of(Random& random, const Sos& sos, int frames) {
  const std::vector<double> x = noise<double>(random, frames);
  Filter filter(random, sos);
  Stream stream(random, 1, static_cast<int>(sos.size() / 6));
  const std::vector<double> y = run(stream, filter, x);
  const std::vector<long double> exact = transposed<long double>(sos, x);
  const std::vector<double> plain = transposed<double>(sos, x);
  Errors errors;
  for (int i = 0; i < frames; ++i) {
    errors.peak = std::max(errors.peak, std::fabs(exact[i]));
    errors.run = std::max(errors.run, std::fabs(exact[i] - y[i]));
    errors.transposed_form = std::max(errors.transposed_form, std::fabs(exact[i] - plain[i]));
  }
  return errors;
}

TEST(Sections, ErrorIsAtMostThatOfTheTransposedForm) {
  if (std::numeric_limits<long double>::digits < 64) GTEST_SKIP() << "no longer type than double";
  Random random(2);
  const Sos designs[] = {peak(6, 1000, 1, 48000), peak(12, 20, 30, 192000), high_pass(5, 48000),
                         joined(high_pass(20, 48000), peak(-9, 3000, 4, 48000))};
  for (const Sos& sos : designs) {
    const Errors errors = errors_of(random, sos, 200000);
    EXPECT_LE(errors.run, errors.transposed_form) << &sos - designs;
  }
  // Double poles at 0 Hz and at half the rate, where a section's matrix has no room of its own.
  for (const double a1 : {-2.0, 2.0}) {
    const Errors errors = errors_of(random, {1, 0.5, 0.25, 1, a1, 1}, 3000);
    EXPECT_LE(errors.run, 1e-12L * errors.peak) << a1;
  }
  // Random sections, all together: a single one may be lucky.
  long double run = 0, transposed_form = 0;
  for (int trial = 0; trial < 300; ++trial) {
    Sos sos;
    add_section(sos, random, 1 - std::pow(10.0, -std::fabs(random.real(4.0))), random.real(3.14));
    const Errors errors = errors_of(random, sos, 3000);
    run += errors.run / errors.peak;
    transposed_form += errors.transposed_form / errors.peak;
  }
  EXPECT_LE(run, transposed_form);
}

TEST(Sections, Int16IsRoundedToNearestAndLimited) {
  Random random(3);
  for (const double gain : {0.5, 0.75, 2.0, 1.0}) {
    Filter filter(random, {gain, 0, 0, 1, 0, 0});
    Stream stream(random, 1, 1);
    std::vector<short> x(65536), y(x.size());
    for (int i = 0; i < 65536; ++i) x[i] = static_cast<short>(i - 32768);
    MORVAX_SectionsRun_API(stream.get(), filter.get(), x.data(), 65536, y.data());
    for (int i = 0; i < 65536; ++i)
      ASSERT_EQ(y[i], std::min(32767.0, std::max(-32768.0, std::nearbyint(gain * x[i])))) << x[i];
  }
}

/** A design with all its gain in the first section, as SciPy has them: what lies between the
 * sections is far below 1e-30, and is there still. */
TEST(Sections, GainOfADesignInItsFirstSection) {
  Random random(5);
  Sos sos;
  for (int k = 0; k < 10; ++k) {
    const double angle = M_PI * (2 * k + 1) / 40, w = 0.0026;
    const double a1 = -2 * (1 - w * std::cos(angle)), a2 = 1 - 2 * w * std::cos(angle) + w * w;
    sos.insert(sos.end(), {1, 2, 1, 1, a1, a2});
  }
  double gain = 1;
  for (int k = 0; k < 10; ++k) gain *= (1 + sos[6 * k + 4] + sos[6 * k + 5]) / 4;
  for (int i = 0; i < 3; ++i) sos[i] *= gain;
  ASSERT_LT(gain, 1e-50);
  const std::vector<double> x = noise<double>(random, 30000, 0.5);
  const std::vector<long double> exact = transposed<long double>(sos, x);
  Filter filter(random, sos);
  Stream stream(random, 1, 10);
  const std::vector<double> y = run(stream, filter, x);
  for (size_t i = 0; i < x.size(); ++i) ASSERT_NEAR(y[i], static_cast<double>(exact[i]), 1e-9);
  EXPECT_NEAR(y.back(), 0.5, 0.1);
}

TEST(Sections, SilenceBecomesExactAndAFilterRingsAsLongAsItSays) {
  Random random(6);
  for (const Sos& sos : {peak(12, 100, 5, 48000), high_pass(20, 48000), random_sos(random, 6)}) {
    Filter filter(random, sos);
    Stream stream(random, 1, static_cast<int>(sos.size() / 6));
    std::vector<double> x(480000);
    x[0] = 1.0;
    const std::vector<double> y = run(stream, filter, x);
    EXPECT_EQ(y.back(), 0.0);
    double largest = 0;
    for (const double sample : y) largest = std::max(largest, std::fabs(sample));
    for (const double level : {1e-3, 1e-6}) {
      int last = static_cast<int>(y.size());
      while (std::fabs(y[last - 1]) < level * largest) --last;
      EXPECT_EQ(MORVAX_SectionsRing_API(filter.get(), level), last);
    }
  }
  Filter oscillator(random, {1, 0, 0, 1, -1, 1}), unstable(random, {1, 0, 0, 1, -3, 1});
  EXPECT_EQ(MORVAX_SectionsRing_API(oscillator.get(), 1e-6), JURN_SECTIONS_RING);
  EXPECT_EQ(MORVAX_SectionsRing_API(unstable.get(), 1e-6), JURN_SECTIONS_RING);
  Filter wire(random, {}), silent(random, {0, 0, 0, 1, -0.5, 0});
  EXPECT_EQ(MORVAX_SectionsRing_API(wire.get(), 1e-6), 1);
  EXPECT_EQ(MORVAX_SectionsRing_API(silent.get(), 1e-6), 0);
}

TEST(Sections, FollowingFromOrToWhatIsNotStableBeginsInSilence) {
  Random random(12);
  Filter stable(random, {1, 0, 0, 1, -0.5, 0.2}), unstable(random, {1, 0, 0, 1, -3, 1});
  for (const bool ends_stable : {true, false}) {
    Filter &before = ends_stable ? unstable : stable, &after = ends_stable ? stable : unstable;
    Stream old_stream(random, 1, 1), stream(random, 1, 1);
    run(old_stream, before, {1, 0, 0, 0});
    MORVAX_SectionsFollow_API(stream.get(), after.get(), old_stream.get(), before.get());
    EXPECT_EQ(run(stream, after, {0, 0, 0}), std::vector<double>(3)) << ends_stable;
  }
}

/** A change in a peak from one gain to another while a sine runs, over a ramp in blocks of 64.
 * Returns the output; the fade starts at frame 9600. */
std::vector<double> changed_peak(Random& random, double from, double to, double hertz, int ramp,
                                 bool follow) {
  Filter before(random, peak(from, 1000, 1, 48000)), after(random, peak(to, 1000, 1, 48000));
  Stream old_stream(random, 1, 1), stream(random, 1, 1);
  std::vector<double> x(28800), y(x.size());
  for (size_t i = 0; i < x.size(); ++i) x[i] = 0.25 * std::sin(2 * M_PI * hertz / 48000 * i);
  MORVAX_SectionsRun_API_double(old_stream.get(), before.get(), x.data(), 9600, y.data());
  if (follow) MORVAX_SectionsFollow_API(stream.get(), after.get(), old_stream.get(), before.get());
  Sections_voice voices[2] = {{old_stream.get(), before.get(), 1, 0},
                              {stream.get(), after.get(), ramp, 0}};
  for (size_t i = 9600; i < x.size(); i += 64) {
    if (voices[1].done < ramp)
      MORVAX_SectionsFade_API_double(voices, 2, &x[i], 64, &y[i]);
    else
      MORVAX_SectionsRun_API_double(stream.get(), after.get(), &x[i], 64, &y[i]);
  }
  return y;
}

/** What is left of a sine's output when all that it could be itself is taken away: a step of s
 * leaves s. */
double largest_step(const std::vector<double>& y, double hertz) {
  const double c = 2 * std::cos(2 * M_PI * hertz / 48000);
  double largest = 0;
  for (size_t i = 9000; i < y.size(); ++i)
    largest = std::max(largest, std::fabs(y[i] - c * y[i - 1] + y[i - 2]));
  return largest;
}

TEST(Sections, AChangeOfTwelveDecibelsMakesNoStep) {
  Random random(8);
  for (const double hertz : {100.0, 1000.0, 3000.0})
    for (const double to : {-12.0, 0.0, 12.0}) {
      const std::vector<double> y = changed_peak(random, to == 0 ? 12 : 0, to, hertz, 9600, true);
      EXPECT_LT(20 * std::log10(largest_step(y, hertz)), -90) << hertz << ' ' << to;
    }
}

TEST(Sections, FollowingKeepsTheTransientSmall) {
  Random random(9);
  const auto transient = [&](double hertz, bool follow) {
    const std::vector<double> y = changed_peak(random, 12, 6, hertz, 1, follow);
    const std::vector<double> steady = changed_peak(random, 6, 6, hertz, 1, true);
    double error = 0;
    for (size_t i = 9600; i < y.size(); ++i) error = std::max(error, std::fabs(y[i] - steady[i]));
    return error;
  };
  for (const double hertz : {300.0, 1000.0, 3000.0})
    EXPECT_LT(transient(hertz, true), 0.6 * transient(hertz, false)) << hertz;
}

/** Where only the last numerator changes there is no transient; and a fade to an equal filter is
 * none. */
TEST(Sections, FollowingAnEqualFilterChangesNoBit) {
  Random random(10);
  for (const int sections : {1, 3, 9}) {
    const Sos sos = random_sos(random, sections);
    Sos louder = sos;
    for (int i = 0; i < 3; ++i) louder[louder.size() - 6 + i] *= 2;
    Filter filter(random, sos), equal(random, sos), twice(random, louder);
    Stream whole(random, 2, sections), first(random, 2, sections), second(random, 2, sections),
        third(random, 2, sections);
    const std::vector<float> x = noise<float>(random, 2 * 2000);
    std::vector<float> y(x.size()), z(x.size());
    MORVAX_SectionsRun_API_float(whole.get(), filter.get(), x.data(), 2000, y.data());
    MORVAX_SectionsRun_API_float(first.get(), filter.get(), x.data(), 1001, z.data());
    MORVAX_SectionsFollow_API(second.get(), equal.get(), first.get(), filter.get());
    MORVAX_SectionsFollow_API(third.get(), twice.get(), first.get(), filter.get());
    std::vector<float> doubled(2 * 999);
    MORVAX_SectionsRun_API_float(third.get(), twice.get(), &x[2002], 999, doubled.data());
    Sections_voice voices[2] = {{first.get(), filter.get(), 1, 0},
                                {second.get(), equal.get(), 500, 0}};
    for (int i = 1001; i < 2000; i += 37)
      MORVAX_SectionsFade_API_float(voices, 2, &x[2 * i], std::min(37, 2000 - i), &z[2 * i]);
    EXPECT_EQ(std::memcmp(y.data(), z.data(), y.size() * sizeof(float)), 0) << sections;
    for (size_t i = 0; i < doubled.size(); ++i)
      ASSERT_NEAR(doubled[i], 2 * y[2002 + i], 1e-6 * (1 + std::fabs(y[2002 + i])));
  }
}

/** Butterworth low-passes of order 8 with the whole gain in their first section, and sections with
 * gains that only all together are 1: what lies between the sections is very loud or very faint. */
TEST(Sections, FollowingDoesNotBurstWhereGainsLieInOneSection) {
  Random random(13);
  const auto low_pass = [](double hertz) {
    Sos sos;
    const double w = std::tan(M_PI * hertz / 48000);
    for (const int k : {1, 3, 5, 7}) {
      const double damping = 2 * std::sin(M_PI * k / 16);
      sos.insert(sos.end(),
                 {1, 2, 1, 1 + damping * w + w * w, 2 * (w * w - 1), 1 - damping * w + w * w});
    }
    for (int i = 0; i < 3; ++i) sos[i] *= std::pow(w, 8);
    return sos;
  };
  const auto with_gain = [](double gain) {
    Sos sos = {gain, 0.3 * gain, 0.1 * gain, 1, -0.5, 0.2, 1, 0.5, 0.2, 1, -1.2, 0.5};
    return joined(sos, {1 / gain, 0, 0, 1, -0.9, 0});
  };
  const Sos overflowing = {1, 0, 0, 1, 1e60, 0, 1, 0.5, 0.2, 1, -1.2, 0.5, 1, 0, 0, 1, -0.9, 0};
  const struct {
    Sos before, after;
  } changes[] = {{low_pass(1000), low_pass(200)},       {low_pass(60), low_pass(20)},
                 {with_gain(1e140), with_gain(1e-140)}, {with_gain(1e-140), with_gain(1e140)},
                 {with_gain(1e140), with_gain(1)},      {overflowing, with_gain(1)}};
  for (const auto& change : changes) {
    const int sections = static_cast<int>(change.before.size() / 6);
    Filter before(random, change.before), after(random, change.after);
    Stream first(random, 1, sections), second(random, 1, sections), steady(random, 1, sections);
    std::vector<double> x(48000), y(x.size());
    for (double& sample : x) sample = 0.5 + random.real(0.5);
    const std::vector<double> z = run(steady, after, x);
    MORVAX_SectionsRun_API_double(first.get(), before.get(), x.data(), 24001, y.data());
    MORVAX_SectionsFollow_API(second.get(), after.get(), first.get(), before.get());
    MORVAX_SectionsRun_API_double(second.get(), after.get(), &x[24001], 23999, &y[24001]);
    const auto louder = [](double a, double b) { return std::fabs(a) < std::fabs(b); };
    const double peak = std::fabs(*std::max_element(z.begin(), z.end(), louder));
    for (size_t i = 24001; i < x.size(); ++i)
      ASSERT_LT(std::fabs(y[i]), 1.5 * peak) << &change - changes << ' ' << i;
  }
}

TEST(Sections, SetUpsNameWhatDoesNotFit) {
  std::vector<double> memory(4000, 0.0);
  const size_t bytes = memory.size() * sizeof(double);
  auto* const filter = reinterpret_cast<SectionsFilter_ID*>(memory.data());
  auto* const stream = reinterpret_cast<SectionsStream_ID*>(memory.data());
  Sos sos = {1, 0, 0, 1, 0, 0, 1, 0, 0, 1, 0, 0};
  const struct {
    int error, sections, lists;
  } shapes[] = {{JURN_SECTIONS_BAD_CHANNELS, 1, 0},
                {JURN_SECTIONS_BAD_CHANNELS, 1, 65},
                {JURN_SECTIONS_BAD_SECTIONS, -1, 1},
                {JURN_SECTIONS_BAD_SECTIONS, 1025, 1}};
  for (const auto& c : shapes) {
    const Sections_shape shape = {c.lists, c.sections};
    EXPECT_EQ(MORVAX_SectionsFilterSize_API(c.sections, c.lists), 0u);
    EXPECT_EQ(MORVAX_SectionsStreamSize_API(&shape), 0u);
    EXPECT_EQ(MORVAX_SectionsFilterCalcu_API(filter, bytes, sos.data(), c.sections, c.lists),
              c.error);
    EXPECT_EQ(MORVAX_SectionsStreamCalcu_API(stream, bytes, &shape), c.error);
  }
  const Sections_shape shape = {2, 3};
  EXPECT_EQ(MORVAX_SectionsFilterCalcu_API(filter, MORVAX_SectionsFilterSize_API(2, 1) - 1,
                                           sos.data(), 2, 1),
            JURN_SECTIONS_TOO_SMALL);
  EXPECT_EQ(
      MORVAX_SectionsStreamCalcu_API(stream, MORVAX_SectionsStreamSize_API(&shape) - 1, &shape),
      JURN_SECTIONS_TOO_SMALL);
  EXPECT_EQ(MORVAX_SectionsFilterCalcu_API(nullptr, 0, sos.data(), 2, 1), JURN_SECTIONS_TOO_SMALL);
  EXPECT_EQ(MORVAX_SectionsStreamCalcu_API(nullptr, 0, &shape), JURN_SECTIONS_TOO_SMALL);
  for (int i = 6; i < 12; ++i)
    for (const double bad : {static_cast<double>(kNaN), HUGE_VAL, -HUGE_VAL}) {
      Sos wrong = sos;
      wrong[i] = bad;
      EXPECT_EQ(MORVAX_SectionsFilterCalcu_API(filter, bytes, wrong.data(), 2, 1),
                JURN_SECTIONS_BAD_VALUE);
    }
  sos[9] = 0;
  EXPECT_EQ(MORVAX_SectionsFilterCalcu_API(filter, bytes, sos.data(), 2, 1), JURN_SECTIONS_BAD_A0);
  sos[9] = 1e-300, sos[10] = 1e300;
  EXPECT_EQ(MORVAX_SectionsFilterCalcu_API(filter, bytes, sos.data(), 2, 1),
            JURN_SECTIONS_BAD_VALUE);
}

}  // namespace
