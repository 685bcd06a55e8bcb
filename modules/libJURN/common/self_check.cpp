#include "exact_arithmetic.h"

#include "JURN_self_check.h"

#define JURN_CLONE_BODY "../self_check.inl"
#include "simd/for_each_clone.h"

int MORVAX_SelfCheck_API(void) {
  return JURN_CALL_CLONE(self_check());
}
