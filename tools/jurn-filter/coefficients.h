// Filter designs and the text files that they are read from.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace tool {

/** A filter's coefficients, at the precision of their file. */
struct FilterDesign {
  enum Kind { kFir, kIir, kSections };
  Kind kind;
  std::vector<double> b;  // taps, numerator, or three per section
  std::vector<double> a;  // IIR: denominator from a0 = 1; sections: three per section, a0 = 1
};

/** What a filter may have at most, and how an error names it. */
struct CoefficientLimit {
  std::size_t count;
  std::string reason;
};

/** Numbers separated by white space, commas or both, in any number of lines; # starts a comment.
 * Errors name the file, the line, the value and the limit. */
FilterDesign read_fir(const std::string& path, const CoefficientLimit& limit);

/** Two lines of numbers: numerator, denominator. */
FilterDesign read_iir(const std::string& path, const CoefficientLimit& limit);
FilterDesign read_iir(const std::string& numerator, const std::string& denominator,
                      const CoefficientLimit& limit);

/** Lines of six numbers, one section each: b0 b1 b2 a0 a1 a2. `limit` counts sections. */
FilterDesign read_sections(const std::string& path, const CoefficientLimit& limit);

/** Multiplies the filter's gain. */
void scale(FilterDesign* design, double gain);

}  // namespace tool
