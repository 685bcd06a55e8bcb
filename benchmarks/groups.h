/* Groups of alternatives that are measured against each other.
 *
 * Every round runs each side of a group for a slice of time, one after the other, so that a change
 * of the clock or a neighbour on the machine meets all sides alike; a side's figure is the median
 * of those slices in which nobody else used the core, or the first decile of all if hardly any was
 * undisturbed. Google Benchmark repeats the
 * rounds, filters the groups and writes the figures, in ns per unit of work, as the group's
 * counters. */
#ifndef JURN_BENCHMARKS_GROUPS_H
#define JURN_BENCHMARKS_GROUPS_H

#include <benchmark/benchmark.h>

#include <algorithm>
#include <functional>
#include <random>
#include <string>
#include <vector>

struct Side {
  std::string name;
  double units;  // of work in one run
  std::function<void()> run;
};

/** Registers a group; its sides are made when it is about to run. */
void add_group(const std::string& name, std::function<std::vector<Side>()> make);

/** Registers the group clones/NAME: the side in every instruction set that the CPU has. */
void add_clones(const std::string& name, std::function<Side()> make);

double now_ns();
double quantile(std::vector<double> times, double part);

/** Times single calls; the counters are the dearest of each period of `calls`, and the mean. */
template <class Call>
void time_calls(benchmark::State& state, int calls, Call call) {
  std::vector<double> dearest, mean;
  while (state.KeepRunning()) {
    double most = 0.0, sum = 0.0;
    for (int i = 0; i < calls; ++i) {
      const double start = now_ns();
      call();
      const double time = now_ns() - start;
      most = std::max(most, time);
      sum += time;
    }
    dearest.push_back(most);
    mean.push_back(sum / calls);
  }
  state.counters["dearest"] = quantile(dearest, 0.1);
  state.counters["mean"] = quantile(mean, 0.1);
}

/** White noise, the same in every run; as int16 values it leaves room for gain. */
template <class Value>
std::vector<Value> noise(int count, double amplitude) {
  static std::mt19937 engine(1);
  std::vector<Value> values(count);
  for (Value& v : values)
    v = static_cast<Value>(amplitude * (static_cast<double>(engine()) / 2147483648.0 - 1.0));
  return values;
}

/* The machine itself (machine.cpp): the throughput of separate multiplications and additions, in
 * ns per pair, and the latency of one of them in a chain, in ns. Value is float or double. */
template <class Value>
Side peak(const char* name);
template <class Value>
Side add_latency(const char* name);
template <class Value>
Side multiply_latency(const char* name);

#endif
