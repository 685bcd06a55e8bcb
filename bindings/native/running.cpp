#include "exact.h"

#include "running.h"

#include "errors.h"

namespace jurn::bindings {

void Running::run(const short*, int, short*) {
  throw Error(kUsageError, "this object does not filter int16 samples");
}
void Running::run(const float*, int, float*) {
  throw Error(kUsageError, "this object does not filter floats");
}
void Running::run(const short*, int, float*) {
  throw Error(kUsageError, "this object does not filter int16 samples to floats");
}
void Running::run(const float* const*, int, float* const*) {
  throw Error(kUsageError, "this object takes its channels interleaved");
}
void Running::change(const Wanted&, int) {
  throw Error(kUsageError, "this object has no coefficients to fade to");
}
int Running::push(short) {
  throw Error(kUsageError, "this object has no running sum");
}
std::string Running::stored() {
  throw Error(kUsageError, "this object cannot be stored");
}
void Running::restore(std::string_view) {
  throw Error(kUsageError, "this object cannot be stored");
}

std::unique_ptr<Running> restored(What what, std::string_view data) {
  if (what >= What::kSections) return restored_stream(what, data);
  std::unique_ptr<Running> object = make_record(what, 1, nullptr);
  object->restore(data);
  return object;
}

}  // namespace jurn::bindings
