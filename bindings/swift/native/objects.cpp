#include "exact.h"

#include "../include/jurn_objects.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <memory>
#include <new>
#include <string>
#include <utility>
#include <vector>

#include "coefficients/formats.h"
#include "design/frequency_response.h"
#include "design/spectrum.h"
#include "designs.h"
#include "running.h"

struct JurnObject {
  std::unique_ptr<jurn::bindings::Running> running;
};

namespace {

using jurn::FilterDesign;
using jurn::bindings::Wanted;
using jurn::bindings::What;

static_assert(JURN_INT16_FILTER == static_cast<int>(What::kFilter) &&
              JURN_STREAM == static_cast<int>(What::kStream) &&
              JURN_ROOM == static_cast<int>(What::kConvolution));
static_assert(JURN_KIND_TAPS == static_cast<int>(FilterDesign::kFir) &&
              JURN_KIND_SECTIONS == static_cast<int>(FilterDesign::kSections) &&
              JURN_KIND_MEAN == static_cast<int>(jurn::bindings::kMean) &&
              JURN_KIND_ROUTES == static_cast<int>(jurn::bindings::kRoutes));

void* allocated(std::size_t bytes) {
  void* const memory = std::malloc(std::max<std::size_t>(bytes, 1));
  if (!memory) throw std::bad_alloc();
  return memory;
}

void* copied(const void* from, std::size_t bytes) {
  return std::memcpy(allocated(bytes), from, bytes);
}

char* copied(const std::string& text) {
  return static_cast<char*>(copied(text.c_str(), text.size() + 1));
}

/** What a function gives, or nothing and a sentence. */
template <typename Function>
auto guarded(JurnError error, Function function) -> decltype(function()) {
  try {
    return function();
  } catch (const std::bad_alloc&) {  // Swift has a sentence for it
  } catch (const std::exception& e) {
    const std::size_t size = std::strlen(e.what()) + 1;
    if (void* const copy = std::malloc(size))
      *error = static_cast<char*>(std::memcpy(copy, e.what(), size));
  }
  return decltype(function())();
}

std::vector<double> listed(const double* values, std::size_t count) {
  return {values, values + count};
}

Wanted wanted_of(const JurnCoefficients& c) {
  return {c.kind,
          listed(c.b, c.b_count),
          listed(c.a, c.a_count),
          {c.routes, c.routes + c.route_numbers}};
}

FilterDesign design_of(const JurnCoefficients& c) {
  FilterDesign design = jurn::checked_design(static_cast<FilterDesign::Kind>(c.kind),
                                             listed(c.b, c.b_count), listed(c.a, c.a_count));
  design.delay = c.delay;
  return design;
}

JurnCoefficients* answer(const FilterDesign& design) {
  const std::size_t values = design.b.size() + design.a.size();
  auto* const c =
      static_cast<JurnCoefficients*>(allocated(sizeof(JurnCoefficients) + values * sizeof(double)));
  auto* const b = reinterpret_cast<double*>(c + 1);
  double* const a = std::copy(design.b.begin(), design.b.end(), b);
  std::copy(design.a.begin(), design.a.end(), a);
  *c = {design.kind, design.delay, b, design.b.size(), a, design.a.size(), nullptr, 0};
  return c;
}

JurnObject* object_of(std::unique_ptr<jurn::bindings::Running> running) {
  auto object = std::make_unique<JurnObject>();
  object->running = std::move(running);
  return object.release();
}

}  // namespace

void jurn_free(void* memory) {
  std::free(memory);
}

JurnObject* jurn_make_int16_filter(int channels, const JurnCoefficients* coefficients,
                                   JurnError error) {
  return guarded(error, [&] {
    const Wanted wanted = wanted_of(*coefficients);
    return object_of(jurn::bindings::make_record(What::kFilter, channels, &wanted));
  });
}

JurnObject* jurn_make_stream(int what, int rate, int inputs, int outputs, int block, int longest,
                             const JurnCoefficients* coefficients, JurnError error) {
  return guarded(error, [&] {
    return object_of(jurn::bindings::make_stream(static_cast<What>(what),
                                                 {rate, inputs, outputs, block, longest},
                                                 wanted_of(*coefficients)));
  });
}

JurnObject* jurn_restore(int what, const uint8_t* state, size_t size, JurnError error) {
  return guarded(error, [&] {
    return object_of(jurn::bindings::restored(static_cast<What>(what),
                                              {reinterpret_cast<const char*>(state), size}));
  });
}

void jurn_free_object(JurnObject* object) {
  delete object;
}

int jurn_rate(const JurnObject* object) {
  return object->running->rate();
}
int jurn_inputs(const JurnObject* object) {
  return object->running->inputs();
}
int jurn_outputs(const JurnObject* object) {
  return object->running->outputs();
}
int jurn_block(const JurnObject* object) {
  return object->running->block();
}
int jurn_tail(const JurnObject* object) {
  return object->running->tail();
}
void jurn_reset(JurnObject* object) {
  object->running->reset();
}

int jurn_change(JurnObject* object, const JurnCoefficients* to, int fade, JurnError error) {
  return guarded(error, [&] {
    object->running->change(wanted_of(*to), fade);
    return 1;
  });
}

uint8_t* jurn_state(JurnObject* object, size_t* size, JurnError error) {
  return guarded(error, [&] {
    const std::string state = object->running->stored();
    *size = state.size();
    return static_cast<uint8_t*>(copied(state.data(), state.size()));
  });
}

void jurn_run_int16(JurnObject* object, const int16_t* in, int frames, int16_t* out) {
  object->running->run(in, frames, out);
}
void jurn_run_float(JurnObject* object, const float* in, int frames, float* out) {
  object->running->run(in, frames, out);
}
void jurn_run_planar(JurnObject* object, const float* const* in, int frames, float* const* out) {
  object->running->run(in, frames, out);
}

JurnCoefficients* jurn_check(const JurnCoefficients* design, JurnError error) {
  return guarded(error, [&] { return answer(design_of(*design)); });
}

JurnCoefficients* jurn_read(const char* name, const uint8_t* content, size_t size, int rate,
                            JurnError error) {
  return guarded(error, [&] {
    return answer(
        jurn::bindings::read_design(name, {reinterpret_cast<const char*>(content), size}, rate));
  });
}

JurnCoefficients* jurn_words(const char* lines, int rate, JurnError error) {
  return guarded(error, [&] { return answer(jurn::bindings::design_of_words(lines, rate)); });
}

JurnCoefficients* jurn_prepare(const JurnCoefficients* design, int rate, int in_int16,
                               JurnFindings* findings, JurnError error) {
  return guarded(error, [&] {
    const auto prepared = jurn::bindings::prepared(
        design_of(*design), rate, in_int16 ? jurn::Precision::kInt16 : jurn::Precision::kDouble);
    JurnCoefficients* const result = answer(prepared->design);
    *findings = {prepared->stable, prepared->pole_radius, prepared->expected_error, prepared->tail,
                 copied(jurn::bindings::notices_of(*prepared))};
    return result;
  });
}

int jurn_response(const JurnCoefficients* design, double frequency, double* three,
                  JurnError error) {
  return guarded(error, [&] {
    const jurn::ResponsePoint point = jurn::response_at(design_of(*design), frequency);
    three[0] = point.value.real();
    three[1] = point.value.imag();
    three[2] = point.delay;
    return 1;
  });
}

int jurn_peak(const JurnCoefficients* design, double* gain, JurnError error) {
  return guarded(error, [&] {
    *gain = jurn::peak_gain(design_of(*design));
    return 1;
  });
}

char* jurn_description(const JurnCoefficients* design, JurnError error) {
  return guarded(error, [&] { return copied(jurn::description_of(design_of(*design))); });
}
