/* Lets a fuzzer choose the steps of the walk that WALK names. */
#include "../walks/walk.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Random random(data, size);
  WALK(random);
  return 0;
}
