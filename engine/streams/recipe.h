// What makes a voice again from bytes.
#pragma once

#include "design/prepare.h"
#include "streams/state_bytes.h"
#include "streams/voice.h"

namespace jurn {

/** What makes a voice that does not convolve. */
struct Recipe {
  Voice::Kind kind = Voice::Kind::kWire;
  int length = 0;  // of a mean
  Precision precision = Precision::kDouble;
  Prepared prepared;  // of a design: what runs, the coefficients and the tail
};

Recipe recipe_of(Voice::Kind kind, Runs runs, const FilterDesign& design, int tail);
Recipe recipe_of_mean(int length, Precision precision);

/** Passes it either way, but for the kind. What was read is checked. */
void pass(StateBytes* state, Recipe* recipe);

/** Writes a voice, which that recipe makes. */
void write(StateBytes* to, Recipe recipe, Voice* voice);

}  // namespace jurn
