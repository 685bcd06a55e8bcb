// Coefficients as files that other programs read, exactly as they run.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "design/prepare.h"

namespace jurn {

enum class ExportFormat {
  kHeader,  // C99 and C++: arrays and the functions that set up and run the library's filter
  kNumPy,   // .npy: taps; two rows, numerator and denominator; or sections, six columns
  kMatlab,  // .mat of level 4: b; b and a; or sos
  kText     // the same numbers as text, one tap, polynomial or section per line
};

struct ExportOptions {
  Precision precision = Precision::kInt16;
  std::string name = "filter";  // of the functions and arrays of a header; a C identifier
  std::string remark;           // one or more lines about the filter, for header and text
};

/**
 * What a file says of itself, so that it is read as what it is and runs as it is: "prepared:
 * sections, int16" in a comment of header and text; "sections, int16" in the variable `prepared`
 * of .mat, and in a second array of .npy, which NumPy passes over.
 */
struct Mark {
  FilterDesign::Kind kind;
  Precision precision;
};
constexpr char kMarkName[] = "prepared";
std::string text_of(const Mark& mark);
/** The mark that a text begins with. */
std::optional<Mark> parse_mark(std::string_view text);

/** The bytes of a file, with its mark. Numbers are written with as many digits as give the same
 * value again. */
std::string export_design(const FilterDesign& design, ExportFormat format,
                          const ExportOptions& options);

/** A C identifier as close to a name as possible: "low-pass 2" becomes "low_pass_2". */
std::string identifier_of(const std::string& name);

}  // namespace jurn
