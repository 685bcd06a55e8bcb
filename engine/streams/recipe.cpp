#include "exact.h"

#include "streams/recipe.h"

#include "streams/live_filter.h"

namespace jurn {
namespace {

/** Whether what was read can be made into a voice. */
bool is_sound(const Recipe& recipe) {
  const FilterDesign& design = recipe.prepared.design;
  const bool in_16_bits = recipe.precision == Precision::kInt16;
  switch (recipe.kind) {
    case Voice::Kind::kWire:
      return true;
    case Voice::Kind::kMean:
      return recipe.length >= 1 && (!in_16_bits || recipe.length <= kMaxAverage);
    case Voice::Kind::kSections:
      return recipe.prepared.runs == Runs::kSections && design.kind == FilterDesign::kSections &&
             fits(design, Precision::kDouble);
    case Voice::Kind::kFir:
      return recipe.prepared.runs == Runs::kFir && design.kind == FilterDesign::kFir;
    case Voice::Kind::kDirectForm:
      return recipe.prepared.runs == Runs::kDirectForm && design.kind == FilterDesign::kIir;
    case Voice::Kind::kInt16:
      return recipe.prepared.runs == Runs::kRecords && fits(design, Precision::kInt16);
    default:
      return false;
  }
}

}  // namespace

Recipe recipe_of(Voice::Kind kind, Runs runs, const FilterDesign& design, int tail) {
  Recipe recipe;
  recipe.kind = kind;
  recipe.prepared.runs = runs;
  recipe.prepared.design = design;
  recipe.prepared.tail = tail;
  return recipe;
}

Recipe recipe_of_mean(int length, Precision precision) {
  Recipe recipe;
  recipe.kind = Voice::Kind::kMean;
  recipe.length = length;
  recipe.precision = precision;
  recipe.prepared.tail = length - 1;
  return recipe;
}

void pass(StateBytes* state, Recipe* recipe) {
  FilterDesign& design = recipe->prepared.design;
  int kind = design.kind;
  for (int* const value : {&recipe->length, &kind, &recipe->prepared.tail}) state->pass(value);
  state->pass(&recipe->precision);
  state->pass(&recipe->prepared.runs);
  state->pass_sized(&design.b);
  state->pass_sized(&design.a);
  StateBytes::check(kind >= FilterDesign::kFir && kind <= FilterDesign::kSections &&
                    recipe->prepared.tail >= 0);
  design.kind = static_cast<FilterDesign::Kind>(kind);
  if (state->reads()) StateBytes::check(is_sound(*recipe));
}

void write(StateBytes* to, Recipe recipe, Voice* voice) {
  to->pass(&recipe.kind);
  pass(to, &recipe);
  voice->pass_state(to);
}

}  // namespace jurn
