// Setups of loudspeakers: the arithmetic beside a plain model, cuts, and fades between setups.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "../allocations.h"
#include "Sections_control.h"
#include "design/equaliser.h"
#include "design/linear_phase.h"
#include "design/setup.h"
#include "streams/setup_voice.h"
#include "streams/stream.h"

namespace jurn {
namespace {

constexpr int kRate = 48000;

SetupStep step_of(SetupStep::Kind kind, std::vector<int> channels) {
  SetupStep step{};
  step.kind = kind;
  step.channels = std::move(channels);
  return step;
}

SetupStep crossover(EqualiserType type, double frequency, std::vector<int> channels) {
  SetupStep step = step_of(SetupStep::kFilter, std::move(channels));
  EqualiserFilter filter{type};
  filter.frequency = frequency;
  filter.order = 4;
  filter.linkwitz_riley = true;
  std::vector<double> rows;
  append_sections(filter, kRate, &rows);
  step.design = sections_of_rows(rows);
  return step;
}

/** One input to woofer and tweeter, the tweeter late and quieter; perhaps with taps for both. */
Setup two_way(double frequency, int delay, double gain, bool has_taps) {
  Setup setup;
  setup.inputs = 1;
  SetupStep mixer = step_of(SetupStep::kMixer, {});
  mixer.outputs = 2;
  mixer.routes = {{0, 0, 1.0}, {0, 1, -0.5}};
  SetupStep late = step_of(SetupStep::kDelay, {1}), quieter = step_of(SetupStep::kGain, {1});
  late.delay = delay;
  quieter.gain = gain;
  setup.steps = {mixer, crossover(EqualiserType::kLowPass, frequency, {0}),
                 crossover(EqualiserType::kHighPass, frequency, {1}), late, quieter};
  if (has_taps) {
    SetupStep taps = step_of(SetupStep::kFilter, {0, 1});
    taps.design.b = {0.5, 0.25, 0.0, -0.125};
    setup.steps.push_back(taps);
  }
  return setup;
}

Format format_for(int inputs, int outputs) {
  Format format;
  format.rate = kRate;
  format.inputs = inputs;
  format.outputs = outputs;
  format.block = 1;
  format.full_scale = 1.0;
  return format;
}

std::unique_ptr<Voice> voice_of(const Setup& setup) {
  PrepareOptions options;
  options.rate = kRate;
  options.result = SampleFormat::kFloat;
  options.in_blocks = false;
  return make_setup_voice(prepare(setup, options), format_for(setup.inputs, setup.outputs()));
}

std::vector<double> tone(std::size_t frames) {
  std::vector<double> x(frames);
  for (std::size_t i = 0; i < frames; ++i)
    x[i] = 0.5 * std::sin(2.0 * 3.14159265358979323846 * 200.0 * static_cast<double>(i) / kRate);
  return x;
}

/** Two interleaved outputs, in pieces of `cut` frames, without a heap. */
std::vector<double> run(Stream* stream, const std::vector<double>& x, std::size_t cut) {
  std::vector<double> y(2 * x.size());
  const long before = allocations.load();
  for (std::size_t i = 0; i < x.size(); i += cut)
    stream->process(x.data() + i, static_cast<int>(std::min(cut, x.size() - i)), y.data() + 2 * i);
  EXPECT_EQ(allocations.load(), before);
  return y;
}

TEST(Setups, ComputeEachStepInTurn) {
  std::vector<double> x = tone(3000);
  for (std::size_t i = 0; i < x.size(); ++i) x[i] += 0.1 * std::sin(static_cast<double>(i * i));
  auto setup = two_way(1500.0, 37, 0.75, true);
  SetupStep more_taps = setup.steps.back();
  more_taps.design.b = {0.5, -0.25};
  setup.steps.push_back(more_taps);
  Stream stream(format_for(1, 2), voice_of(setup));
  const std::vector<double> y = run(&stream, x, 1000);
  stream.reset();
  EXPECT_EQ(run(&stream, x, 77), y);
  for (std::size_t c = 0; c < 2; ++c) {
    std::vector<double> expected = x;
    if (c == 1)
      for (double& sample : expected) sample *= -0.5;
    const FilterDesign& d = setup.steps[1 + c].design;
    for (std::size_t k = 0; k < d.b.size(); k += 3) {
      double s1 = 0.0, s2 = 0.0;
      for (double& sample : expected) {
        const double in = sample, out = d.b[k] * in + s1;
        s1 = d.b[k + 1] * in - d.a[k + 1] * out + s2;
        s2 = d.b[k + 2] * in - d.a[k + 2] * out;
        sample = out;
      }
    }
    if (c == 1) {
      expected.insert(expected.begin(), 37, 0.0);
      for (double& sample : expected) sample *= 0.75;
    }
    for (std::size_t i = 4; i < x.size(); ++i)
      ASSERT_NEAR(y[2 * i + c],
                  0.25 * expected[i] - 0.0625 * expected[i - 2] - 0.0625 * expected[i - 3] +
                      0.03125 * expected[i - 4],
                  1e-12)
          << c << " " << i;
  }
}

/** Sections in a row, the second of another name. */
Setup crossovers(std::size_t count, const std::vector<int>& channels) {
  Setup setup;
  setup.inputs = 2;
  for (std::size_t k = 0; k < count; ++k) {
    setup.steps.push_back(crossover(EqualiserType::kLowPass, 1000.0, channels));
    setup.steps.back().name = k == 1 ? "other" : "low";
  }
  return setup;
}

TEST(Setups, RunSectionsInARowAsOneCascade) {
  const auto three = crossovers(3, {0, 1});
  const auto joined = prepare(three, {}).setup;
  ASSERT_EQ(joined.steps.size(), 1u);
  EXPECT_EQ(joined.steps[0].name, "low, other, low");
  EXPECT_EQ(joined.steps[0].design.b.size(), 18u);
  EXPECT_EQ(prepare(crossovers(1, {0, 1}), {}).setup.steps[0].name, "low");
  // On other channels, behind something else, and where a cascade would be too long: alone.
  auto apart = three;
  apart.steps[1].channels = {1, 0};
  EXPECT_EQ(prepare(apart, {}).setup.steps.size(), 3u);
  apart.steps[1] = step_of(SetupStep::kGain, {0});
  EXPECT_EQ(prepare(apart, {}).setup.steps.size(), 3u);
  const std::size_t most = JURN_SECTIONS_SECTIONS / 2;
  EXPECT_EQ(prepare(crossovers(most + 1, {0}), {}).setup.steps.size(), 2u);
  // A gain before all of it.
  auto louder = three;
  scale(&louder, 1.0);
  EXPECT_EQ(louder.steps.size(), 3u);
  scale(&louder, 0.5);
  Format format = format_for(2, 2);
  Stream plain(format, voice_of(three)), quiet(format, voice_of(louder));
  std::vector<double> x(2000), y(x.size());
  for (std::size_t i = 0; i < x.size(); ++i) x[i] = std::sin(static_cast<double>(i * i));
  plain.process(x.data(), 1000, y.data());
  quiet.process(x.data(), 1000, x.data());
  for (std::size_t i = 0; i < x.size(); ++i) ASSERT_NEAR(2.0 * x[i], y[i], 1e-12) << i;
}

TEST(Setups, FadeFromOneToAnother) {
  const std::vector<double> x = tone(60000);
  for (const bool has_taps : {false, true}) {
    SCOPED_TRACE(has_taps);
    auto first = two_way(500.0, 37, 1.0, has_taps), next = two_way(90.0, 200, 0.5, has_taps);
    if (has_taps) std::swap(first, next);
    for (auto* const setup : {&first, &next})
      setup->steps.insert(setup->steps.begin(), crossover(EqualiserType::kHighPass, 30.0, {0}));
    Stream plain(format_for(1, 2), voice_of(first)), same(format_for(1, 2), voice_of(first)),
        changing(format_for(1, 2), voice_of(first)), last(format_for(1, 2), voice_of(next));
    const std::vector<double> head(x.begin(), x.begin() + 20000), rest(x.begin() + 20000, x.end());
    std::vector<double> end;
    for (Stream* stream : {&plain, &same, &changing, &last}) end = run(stream, head, 480);
    same.change(std::make_unique<Change>(voice_of(first), 4800));
    changing.change(std::make_unique<Change>(voice_of(next), 4800));
    const std::vector<double> unchanged = run(&plain, rest, 480);
    const std::vector<double> again = run(&same, rest, 480), other = run(&last, rest, 480);
    const std::vector<double> begun(rest.begin(), rest.begin() + 1920),
        left(rest.begin() + 1920, rest.end());
    std::vector<double> faded = run(&changing, begun, 480);
    Stream copy(changing);  // within the fade
    const std::vector<double> later = run(&changing, left, 480);
    EXPECT_EQ(run(&copy, left, 480), later);
    faded.insert(faded.end(), later.begin(), later.end());
    EXPECT_FALSE(changing.changing());
    double largest_step = 0.0, tone_step = 0.0;
    for (std::size_t i = 0; i < faded.size(); ++i) {
      // What follows the setup before is the same bits; what heard the past is as near as a tail is
      // told for floats.
      ASSERT_EQ(again[i], unchanged[i]) << i;
      if (i > 30000) {
        ASSERT_NEAR(faded[i], other[i], 0x1p-24) << i;
      }
      if (i < 2) continue;
      largest_step = std::max(largest_step, std::abs(faded[i] - faded[i - 2]));
      tone_step = std::max({tone_step, std::abs(unchanged[i] - unchanged[i - 2]),
                            std::abs(other[i] - other[i - 2])});
    }
    EXPECT_LT(largest_step, 1.1 * tone_step);
  }
}

TEST(Setups, TellGainsAndDelays) {
  auto setup = two_way(1000.0, 30, 0.75, false);
  EqualiserFilter linear{EqualiserType::kLowPass};
  linear.frequency = 5000.0;
  linear.linear_phase = true;
  SetupStep taps = step_of(SetupStep::kFilter, {0});
  taps.design.b = linear_phase_pass(linear, kRate);
  taps.design.delay = static_cast<int>(taps.design.b.size() / 2);
  setup.steps.push_back(taps);
  SetupStep sum = step_of(SetupStep::kMixer, {});
  sum.outputs = 4;  // the second is silent, the third both, the last the tweeter alone
  sum.routes = {{0, 0, 2.0}, {0, 2, 1.0}, {1, 2, 1.0}, {1, 3, 1.0}};
  PreparedSetup before = prepare(setup, {});
  EXPECT_EQ(before.latency(), 0);  // the tweeter's
  setup.steps.push_back(sum);
  const PreparedSetup prepared = prepare(setup, {});
  EXPECT_EQ(prepared.late, (std::vector<int>{taps.design.delay, -1, taps.design.delay, 0}));
  EXPECT_NEAR(prepared.peak_gain[0], 2.0, 1e-3);
  EXPECT_EQ(prepared.peak_gain[1], 0.0);
  EXPECT_NEAR(prepared.peak_gain[3], 0.375, 1e-3);
  EXPECT_GT(prepared.tail, 2 * taps.design.delay);
}

}  // namespace
}  // namespace jurn
