#include "exact_arithmetic.h"

#include "samples.h"

#define JURN_CLONE_BODY "../samples.inl"
#include "simd/for_each_clone.h"

void JURN_to_float(float* out, const short* in, int count) {
  return JURN_CALL_CLONE(to_float(out, in, count));
}
void JURN_to_short(short* out, const float* in, int count) {
  return JURN_CALL_CLONE(to_short(out, in, count));
}
void JURN_split_to_float(float* left, float* right, const short* in, int frames) {
  return JURN_CALL_CLONE(split(left, right, in, frames));
}
void JURN_split(short* left, short* right, const short* in, int frames) {
  return JURN_CALL_CLONE(split(left, right, in, frames));
}
void JURN_join_to_short(short* out, const float* left, const float* right, int frames) {
  return JURN_CALL_CLONE(join(out, left, right, frames));
}
void JURN_join(short* out, const short* left, const short* right, int frames) {
  return JURN_CALL_CLONE(join(out, left, right, frames));
}
