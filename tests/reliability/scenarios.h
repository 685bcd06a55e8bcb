/* Fixed runs of every kind of the four objects, each boiled down to one number: outputs and final
 * state. Signals and coefficients come from integers alone, so that no C library takes part. */
#ifndef JURN_TESTS_SCENARIOS_H
#define JURN_TESTS_SCENARIOS_H

#include <cstddef>
#include <cstdint>
#include <vector>

/** How a run treats what it promises not to depend on. */
struct Placement {
  /** Called before every block: moves a record of `bytes` bytes to any other place that its
   * alignment allows, and returns that. */
  void* (*move)(void* record, size_t bytes, size_t alignment) = nullptr;
  /** Samples by which the caller's arrays are off the alignment of vectors. */
  int array_offset = 0;
};

struct Scenario {
  const char* name;
  uint64_t (*run)(const Placement&);
};

const std::vector<Scenario>& scenarios();

#endif
