#include <algorithm>
#include <chrono>
#include <cstring>

#include "groups.h"
#include "simd/clones.h"

namespace {

constexpr double kSlice = 150e3;  // ns
constexpr int kRounds = 101;
constexpr int kAttempts = 3;  // to get a quiet slice

const char* const kCloneNames[] = {"baseline", "AVX2", "AVX-512"};

double time_of(const Side& side, int runs) {
  const double start = now_ns();
  for (int i = 0; i < runs; ++i) side.run();
  return now_ns() - start;
}

/** Whether nobody else uses the core right now: a few microseconds of arithmetic at the peak and of
 * copies in the first cache take no longer than ever before. On virtual machines and cores with two
 * threads only this tells. The baseline does not wait until wide arithmetic wakes up. */
bool quiet() {
  static const std::function<void()> saturate = peak<float>("").run;
  static char from[8192], to[8192];
  static const Side probe = {"", 1.0, [] {
                               saturate();
                               for (int i = 0; i < 10; ++i) {
                                 memcpy(to, from, sizeof to);
                                 benchmark::ClobberMemory();
                               }
                             }};
  static double shortest = 1e9;
  JURN_clone_hook = JURN_CLONE_BASELINE;
  const double time = std::min(time_of(probe, 1), time_of(probe, 1));
  JURN_clone_hook = JURN_CLONE_FASTEST;
  shortest = std::min(shortest, time);
  return time < 1.1 * shortest;
}

/** ns per unit of one slice. */
double slice(const Side& side, int runs, bool* was_quiet) {
  double time = 0.0;
  *was_quiet = false;
  for (int i = 0; i < kAttempts && !*was_quiet; ++i) {
    side.run();  // its data back into the caches
    const bool before = quiet();
    time = time_of(side, runs) / (runs * side.units);
    *was_quiet = before && quiet();
  }
  return time;
}

void run_group(benchmark::State& state, const std::vector<Side>& sides) {
  std::vector<int> runs;
  for (const Side& side : sides) {
    double shortest = time_of(side, 1);
    for (int i = 0; i < 5; ++i) shortest = std::min(shortest, time_of(side, 1));
    runs.push_back(static_cast<int>(std::clamp(kSlice / std::max(shortest, 1.0), 1.0, 1e5)));
  }
  std::vector<std::vector<double>> all(sides.size()), undisturbed(sides.size());
  while (state.KeepRunning())
    for (size_t i = 0; i < sides.size(); ++i) {
      bool was_quiet;
      const double time = slice(sides[i], runs[i], &was_quiet);
      all[i].push_back(time);
      if (was_quiet) undisturbed[i].push_back(time);
    }
  size_t least = kRounds;
  for (const auto& times : undisturbed) least = std::min(least, times.size());
  for (size_t i = 0; i < sides.size(); ++i)
    state.counters[sides[i].name] =
        least >= kRounds / 20 ? quantile(undisturbed[i], 0.5) : quantile(all[i], 0.1);
  state.counters["quiet slices"] = static_cast<double>(least);
}

}  // namespace

double now_ns() {
  const auto now = std::chrono::steady_clock::now().time_since_epoch();
  return std::chrono::duration<double, std::nano>(now).count();
}

double quantile(std::vector<double> times, double part) {
  const auto place = times.begin() + static_cast<int>(part * static_cast<double>(times.size()));
  std::nth_element(times.begin(), place, times.end());
  return *place;
}

void add_group(const std::string& name, std::function<std::vector<Side>()> make) {
  benchmark::RegisterBenchmark(name.c_str(), [make](benchmark::State& state) {
    run_group(state, make());
  })->Iterations(kRounds);
}

void add_clones(const std::string& name, std::function<Side()> make) {
  add_group("clones/" + name, [make] {
    std::vector<Side> sides;
    for (int clone = JURN_CLONE_BASELINE; clone <= JURN_best_clone(); ++clone) {
      const Side side = make();
      sides.push_back({kCloneNames[clone], side.units, [side, clone] {
                         JURN_clone_hook = static_cast<JURN_Clone>(clone);
                         side.run();
                         JURN_clone_hook = JURN_CLONE_FASTEST;
                       }});
    }
    return sides;
  });
}

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::AddCustomContext("instruction_set", kCloneNames[JURN_best_clone()]);
  benchmark::AddCustomContext("compiler", JURN_COMPILER);
  benchmark::RunSpecifiedBenchmarks();
  return 0;
}
