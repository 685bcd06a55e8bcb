#include "exact_arithmetic.h"

#include "groups.h"

#if defined(__x86_64__)
#define JURN_REGISTER "x"
#else
#define JURN_REGISTER "w"
#endif
#define JURN_CLONE_BODY "machine.inl"
#include "simd/for_each_clone.h"

namespace {

constexpr int kSteps = 1000;
constexpr int kPairs = 8;

int vector_bytes() {
  const JURN_Clone clone = JURN_clone(JURN_KERNEL_OTHER);
  return clone == JURN_CLONE_AVX512 ? 64 : clone == JURN_CLONE_AVX2 ? 32 : 16;
}

void saturate(float) {
  return JURN_CALL_CLONE(saturate_float(kSteps));
}
void saturate(double) {
  return JURN_CALL_CLONE(saturate_double(kSteps));
}

/** A chain in which every operation waits for the one before it. */
template <class Value, class Operation>
Side chain(const char* name, Value start, Operation operation) {
  return {name, 8.0 * kSteps, [start, operation] {
            Value x = start;
            for (int i = 0; i < kSteps; ++i)
              for (int k = 0; k < 8; ++k) {
                operation(x);
                asm volatile("" : "+" JURN_REGISTER(x));
              }
          }};
}

}  // namespace

template <class Value>
Side peak(const char* name) {
  const double lanes = static_cast<double>(vector_bytes()) / sizeof(Value);
  return {name, lanes * kPairs * kSteps, [] { saturate(Value()); }};
}
template <class Value>
Side add_latency(const char* name) {
  return chain(name, Value(0), [](Value& x) { x += x; });
}
template <class Value>
Side multiply_latency(const char* name) {
  return chain(name, Value(1), [](Value& x) { x *= x; });
}

template Side peak<float>(const char*);
template Side peak<double>(const char*);
template Side add_latency<float>(const char*);
template Side add_latency<double>(const char*);
template Side multiply_latency<float>(const char*);
template Side multiply_latency<double>(const char*);
