// How far a filter that is about to run lies from its design.
#pragma once

#include <vector>

#include "design/filter_design.h"

namespace jurn {

/** Largest gain from the input to each section's output. */
std::vector<double> section_peaks(const FilterDesign& sections);

/** In LSB, at full scale. */
struct Difference {
  double peak = 0.0, rms = 0.0;
};

/** Measures what runs in float against the design in double. */
class ErrorMeter {
 public:
  /** The radius is that of the design's outermost pole. */
  ErrorMeter(const FilterDesign& truth, double radius);
  Difference of(const FilterDesign& design) const;

 private:
  FilterDesign truth_;
  std::vector<float> input_;
  std::vector<double> wanted_;
};

/** What a direct form in double loses to one with twice the digits. */
Difference error_in_double(const FilterDesign& direct_form, double radius);

}  // namespace jurn
