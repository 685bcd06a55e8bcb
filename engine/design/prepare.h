// From a design to the coefficients that run.
//
// The filters for 16-bit streams store and add in float. A design that is right in double can be
// spoilt there: a section whose output stays below 1e-6 is silenced, a direct form of high order
// becomes unstable by the rounding of its coefficients, poles near the unit circle amplify the
// rounding of every step. Preparing a design mends what can be mended and measures the rest.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "design/filter_design.h"

namespace jurn {

/** What the samples of a result hold. */
enum class SampleFormat { kInt16, kInt24, kFloat };

/** What a filter is prepared for. */
struct PrepareOptions {
  Precision precision = Precision::kDouble;
  SampleFormat result = SampleFormat::kInt16;
  int rate = 48000;
  /** Whether the calls can be multiples of a block, which convolution needs. */
  bool in_blocks = true;
  /** Runs the coefficients as they are, only rounded to the precision; measures them all the same.
   */
  bool as_is = false;
  /** Makes sections of a direct form also where it would do as it is. */
  bool as_sections = false;
};

inline bool operator==(const PrepareOptions& x, const PrepareOptions& y) {
  return x.precision == y.precision && x.result == y.result && x.rate == y.rate &&
         x.in_blocks == y.in_blocks && x.as_is == y.as_is && x.as_sections == y.as_sections;
}

/** The coefficients that a filter may have: taps, coefficients of a numerator or denominator, or
 * sections. */
CoefficientLimit coefficient_limit(FilterDesign::Kind kind, Precision precision);
/** Whether a design is within these. */
bool fits(const FilterDesign& design, Precision precision);

/** What preparing found or did. Texts are clauses without a file's name and without a full stop, so
 * that a front end can put the name before and the name of its option behind. */
struct Notice {
  enum Kind {
    kScaled,     // gains moved between the sections, or sections paired and ordered anew
    kFactored,   // a direct form became sections
    kUnstable,   // what runs has poles outside the unit circle
    kInexact,    // what runs is more than one LSB away from the design
    kUnfactored  // sections were asked for or needed, and its roots cannot be found surely
  };
  enum Remedy {
    kNone,
    kInDouble,  // runs it in double
    kNotAsIs    // lets it be mended
  };
  Kind kind;
  std::string text;
  Remedy remedy = kNone;

  /** Whether the result differs from the design: kUnstable, kInexact and kUnfactored. */
  bool is_warning() const { return kind >= kUnstable; }
};

/** What runs a filter. */
enum class Runs {
  kRecords,      // the 16-bit records
  kSections,     // the sections in double
  kFir,          // tap by tap in double
  kConvolution,  // by transforms, in float
  kDirectForm    // numerator and feedback in double
};

struct Prepared {
  Runs runs = Runs::kSections;
  /** Exactly what runs: with kInt16 every value is a float's. A direct form may have become
   * sections. */
  FilterDesign design;
  bool stable = true;
  double pole_radius = 0.0;  // of the outermost pole of what runs
  /** Largest and root mean square difference between what runs and the design in double, in LSB of
   * 16 bits and before the conversion to int16: measured at full scale on noise, white and with the
   * same power in every octave, and on a slow sawtooth; the largest also computed for tones at full
   * scale. 0 where nothing recursive runs. Infinite for a filter that is unstable as it runs only.
   */
  double expected_error = 0.0;
  double expected_error_rms = 0.0;
  /** Frames after which what the filter rings on with is below half a step of the result, and 10
   * seconds at most. */
  int tail = 0;
  std::vector<Notice> notices;
};

/**
 * Prepares a design to run.
 *
 * In double, recursive filters run as sections: a direct form of second order as one, higher ones
 * by their roots, which are multiplied back to see that nothing was lost. Where it was, and where a
 * numerator is longer than a section's, the direct form runs in double. An FIR runs tap by tap in
 * double; from kConvolutionTaps taps on by convolution, which is faster, if its error stays below
 * half a step of the result's samples; and from kLongTaps on in any case.
 *
 * In 16 bits, sections: where the gain from the input to some section's output peaks further than
 * 12 dB from 0 dB, powers of two move between the sections until all peak within 3 dB; the product
 * stays, and powers of two round nothing. Where it lowers the error, zeros are paired with the
 * nearest poles and the sections ordered by rising pole radius. Direct form: becomes sections where
 * it would be unstable or more than 1 LSB off as it is. FIR: only rounded.
 *
 * A design that is unstable in itself runs as it is, and so does one that says that it is prepared
 * for this precision; both are measured all the same. What was prepared, prepares to itself. In 16
 * bits it takes milliseconds: it runs the filter over tens of thousands of samples.
 */
Prepared prepare(const FilterDesign& design, const PrepareOptions& options = {});

/**
 * What runs of a design that was prepared before, elsewhere or for a device: neither mended nor
 * measured again, and without a notice, in no time worth mentioning.
 */
Prepared prepared_before(const FilterDesign& design, const PrepareOptions& options = {});

constexpr std::size_t kConvolutionTaps = 64;
constexpr std::size_t kLongTaps = 4096;

}  // namespace jurn
