// Coefficients as files that other programs read, exactly as they run.
#pragma once

#include <string>

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

/** The bytes of a file. Numbers are written with as many digits as give the same value again. */
std::string export_design(const FilterDesign& design, ExportFormat format,
                          const ExportOptions& options);

/** A C identifier as close to a name as possible: "low-pass 2" becomes "low_pass_2". */
std::string identifier_of(const std::string& name);

}  // namespace jurn
