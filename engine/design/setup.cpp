#include "exact.h"

#include "design/setup.h"

#include <algorithm>
#include <complex>
#include <cstddef>
#include <utility>

#include "Sections_control.h"
#include "design/spectrum.h"
#include "elementary.h"
#include "units.h"

namespace jurn {
namespace {

using Gains = std::vector<std::complex<double>>;  // on a grid of frequencies

// Fine enough for the resonances of loudspeakers: 1.5 Hz at 48 kHz.
constexpr std::size_t kPoints = 32768;
constexpr std::size_t kMostPoints = std::size_t{1} << 21;

bool is_sections(const SetupStep& step) {
  return step.kind == SetupStep::kFilter && step.design.kind == FilterDesign::kSections;
}

/** Sections that follow one another on the same channels run as one cascade. */
void append(const SetupStep& step, Setup* setup) {
  SetupStep* const last = setup->steps.empty() ? nullptr : &setup->steps.back();
  if (!last || !is_sections(*last) || !is_sections(step) || last->channels != step.channels ||
      last->design.b.size() + step.design.b.size() > 3 * JURN_SECTIONS_SECTIONS) {
    setup->steps.push_back(step);
    return;
  }
  FilterDesign& whole = last->design;
  whole.b.insert(whole.b.end(), step.design.b.begin(), step.design.b.end());
  whole.a.insert(whole.a.end(), step.design.a.begin(), step.design.a.end());
  if (last->name != step.name) last->name += ", " + step.name;
}

Gains gains_of(const FilterDesign& design, std::size_t points) {
  Gains gains;
  const std::size_t size = std::max(design.b.size(), design.a.size());
  const std::size_t group = design.kind == FilterDesign::kSections ? 3 : size;
  for (std::size_t at = 0; at < size; at += group)
    for (const std::vector<double>* all : {&design.b, &design.a}) {
      if (at >= all->size()) continue;
      const auto first = all->begin() + static_cast<std::ptrdiff_t>(at);
      const std::size_t count = std::min(group, all->size() - at);
      const Gains part = spectrum({first, first + static_cast<std::ptrdiff_t>(count)}, points);
      gains.resize(part.size(), 1.0);
      for (std::size_t k = 0; k < part.size(); ++k)
        gains[k] = all == &design.b ? gains[k] * part[k] : elementary::quotient(gains[k], part[k]);
    }
  return gains;
}

/** The largest gains of the outputs. */
std::vector<double> peak_gains(const Setup& setup) {
  std::size_t points = kPoints;
  for (const SetupStep& step : setup.steps)
    while (points < kMostPoints && points < 2 * step.design.b.size()) points *= 2;
  std::vector<Gains> filters;
  for (const SetupStep& step : setup.steps)
    filters.push_back(step.kind == SetupStep::kFilter ? gains_of(step.design, points) : Gains());
  const std::size_t inputs = static_cast<std::size_t>(setup.inputs);
  std::vector<double> peaks(static_cast<std::size_t>(setup.outputs()));
  std::vector<Gains> ways, mixed;  // of each channel, from each input
  for (std::size_t k = 0; k <= points / 2; ++k) {
    ways.assign(inputs, Gains(inputs));
    for (std::size_t i = 0; i < inputs; ++i) ways[i][i] = 1.0;
    for (std::size_t s = 0; s < setup.steps.size(); ++s) {
      const SetupStep& step = setup.steps[s];
      if (step.kind == SetupStep::kMixer) {
        mixed.assign(static_cast<std::size_t>(step.outputs), Gains(inputs));
        for (const MixerRoute& route : step.routes)
          for (std::size_t i = 0; i < inputs; ++i)
            mixed[static_cast<std::size_t>(route.output)][i] +=
                route.gain * ways[static_cast<std::size_t>(route.input)][i];
        ways.swap(mixed);
        continue;
      }
      const double turn = -2.0 * kPi * static_cast<double>(k) / static_cast<double>(points);
      const std::complex<double> gain = step.kind == SetupStep::kFilter ? filters[s][k]
                                        : step.kind == SetupStep::kDelay
                                            ? elementary::polar(1.0, turn * step.delay)
                                            : step.gain;
      for (const int c : step.channels)
        for (std::complex<double>& way : ways[static_cast<std::size_t>(c)]) way *= gain;
    }
    for (std::size_t o = 0; o < peaks.size(); ++o) {
      double sum = 0.0;
      for (const std::complex<double>& way : ways[o]) sum += elementary::magnitude(way);
      peaks[o] = std::max(peaks[o], sum);
    }
  }
  return peaks;
}

/** The largest sum of what the steps on the ways to each output add; -1 where no way leads. */
template <typename Added>
std::vector<int> longest_ways(const Setup& setup, Added added) {
  std::vector<int> sums(static_cast<std::size_t>(setup.inputs));
  for (std::size_t s = 0; s < setup.steps.size(); ++s) {
    const SetupStep& step = setup.steps[s];
    if (step.kind == SetupStep::kMixer) {
      std::vector<int> mixed(static_cast<std::size_t>(step.outputs), -1);
      for (const MixerRoute& route : step.routes) {
        int& sum = mixed[static_cast<std::size_t>(route.output)];
        sum = std::max(sum, sums[static_cast<std::size_t>(route.input)]);
      }
      sums = mixed;
      continue;
    }
    for (const int c : step.channels)
      if (int& sum = sums[static_cast<std::size_t>(c)]; sum >= 0) sum += added(s);
  }
  return sums;
}

}  // namespace

int Setup::channels_after(std::size_t steps_done) const {
  int channels = inputs;
  for (std::size_t s = 0; s < steps_done; ++s)
    if (steps[s].kind == SetupStep::kMixer) channels = steps[s].outputs;
  return channels;
}

int PreparedSetup::latency() const {
  int least = -1;
  for (const int frames : late)
    if (frames >= 0 && (least < 0 || frames < least)) least = frames;
  return std::max(least, 0);
}

void scale(Setup* setup, double gain) {
  if (gain == 1.0) return;
  SetupStep step{};
  step.kind = SetupStep::kGain;
  step.gain = gain;
  for (int c = 0; c < setup->inputs; ++c) step.channels.push_back(c);
  setup->steps.insert(setup->steps.begin(), std::move(step));
}

PreparedSetup prepare(const Setup& setup, const PrepareOptions& given) {
  PrepareOptions options = given;
  options.precision = Precision::kDouble;
  PreparedSetup result;
  result.setup.inputs = setup.inputs;
  for (const SetupStep& step : setup.steps) append(step, &result.setup);
  for (const SetupStep& step : result.setup.steps) {
    result.filters.emplace_back();
    if (step.kind != SetupStep::kFilter) continue;
    result.filters.back() = prepare(step.design, options);
    for (Notice notice : result.filters.back().notices) {
      notice.text = step.name + ": " + notice.text;
      result.notices.push_back(notice);
    }
  }
  result.late =
      longest_ways(result.setup, [&](std::size_t s) { return result.setup.steps[s].design.delay; });
  const std::vector<int> tails = longest_ways(result.setup, [&](std::size_t s) {
    return result.setup.steps[s].delay + result.filters[s].tail;
  });
  result.tail = std::max(0, *std::max_element(tails.begin(), tails.end()));
  result.peak_gain = peak_gains(result.setup);
  return result;
}

}  // namespace jurn
