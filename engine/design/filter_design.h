// Filter designs.
#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace jurn {

/** Int16 is what runs on a device: the library's filters for 16-bit streams, in float. Double is
 * for everything else: sections, FIRs and convolution in double precision or close to it. */
enum class Precision { kInt16, kDouble };

/** A filter's coefficients, at the precision of their file. */
struct FilterDesign {
  enum Kind { kFir, kIir, kSections };
  Kind kind = kFir;
  std::vector<double> b;  // taps, numerator, or three per section
  std::vector<double> a;  // IIR: denominator from a0 = 1; sections: three per section, a0 = 1
  /** Frames by which the result is late only because of how the filter is made; whoever can, drops
   * them. */
  int delay = 0;
  /** The precision that it was prepared for before, as an exported file tells: there it runs as it
   * is. */
  std::optional<Precision> prepared = std::nullopt;
};

inline bool operator==(const FilterDesign& x, const FilterDesign& y) {
  return x.kind == y.kind && x.b == y.b && x.a == y.a && x.delay == y.delay &&
         x.prepared == y.prepared;
}

/** What a filter may have at most, and how an error names it. */
struct CoefficientLimit {
  std::size_t count;
  std::string reason;
};

/**
 * A design from arrays of a caller's: throws where there are none, where they do not belong
 * together, where a number is infinite or none, and for an a0 of 0; others are divided out.
 * Sections have three numbers each in both arrays, and an FIR an empty `a`.
 */
FilterDesign checked_design(FilterDesign::Kind kind, std::vector<double> b, std::vector<double> a);

/** Sections from rows of six values, b0 b1 b2 1 a1 a2, and as such. */
FilterDesign sections_of_rows(const std::vector<double>& rows);
std::vector<double> rows_of_sections(const FilterDesign& sections);

/** How many coefficients of `b`, and of `a`, at most belong to one section or filter. */
std::size_t group_of(const FilterDesign& design);

/** Multiplies the filter's gain. */
void scale(FilterDesign* design, double gain);

}  // namespace jurn

/** Equal designs have one hash. */
template <>
struct std::hash<jurn::FilterDesign> {
  std::size_t operator()(const jurn::FilterDesign& design) const;
};
