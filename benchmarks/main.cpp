#include <algorithm>
#include <chrono>

#include "clones.h"
#include "groups.h"

namespace {

constexpr double kSlice = 150e3;  // ns
constexpr int kRounds = 151;

const char* const kCloneNames[] = {"baseline", "AVX2", "AVX-512"};

double time_of(const Side& side, int runs) {
  const double start = now_ns();
  for (int i = 0; i < runs; ++i) side.run();
  return now_ns() - start;
}

void run_group(benchmark::State& state, const std::vector<Side>& sides) {
  std::vector<int> runs;
  for (const Side& side : sides) {
    double shortest = time_of(side, 1);
    for (int i = 0; i < 5; ++i) shortest = std::min(shortest, time_of(side, 1));
    runs.push_back(static_cast<int>(std::clamp(kSlice / std::max(shortest, 1.0), 1.0, 1e5)));
  }
  std::vector<std::vector<double>> times(sides.size());
  while (state.KeepRunning())
    for (size_t i = 0; i < sides.size(); ++i) {
      sides[i].run();  // its data back into the caches
      times[i].push_back(time_of(sides[i], runs[i]) / (runs[i] * sides[i].units));
    }
  for (size_t i = 0; i < sides.size(); ++i) state.counters[sides[i].name] = low(times[i]);
}

}  // namespace

double now_ns() {
  const auto now = std::chrono::steady_clock::now().time_since_epoch();
  return std::chrono::duration<double, std::nano>(now).count();
}

double low(std::vector<double> times) {
  const auto decile = times.begin() + times.size() / 10;
  std::nth_element(times.begin(), decile, times.end());
  return *decile;
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
                         JURN_clone_hook = JURN_best_clone();
                       }});
    }
    return sides;
  });
}

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::AddCustomContext("instruction_set", kCloneNames[JURN_clone()]);
  benchmark::AddCustomContext("compiler", JURN_COMPILER);
  benchmark::RunSpecifiedBenchmarks();
  return 0;
}
