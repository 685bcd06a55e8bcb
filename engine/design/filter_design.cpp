#include "design/filter_design.h"

namespace jurn {

void scale(FilterDesign* design, double gain) {
  // The gain of a cascade is its first section's matter.
  const std::size_t count = design->kind == FilterDesign::kSections ? 3 : design->b.size();
  for (std::size_t i = 0; i < count; ++i) design->b[i] *= gain;
}

}  // namespace jurn
