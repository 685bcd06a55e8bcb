// Where the filter of jurnfilter comes from.
#pragma once

#include <glib-object.h>

#include <memory>
#include <string>
#include <vector>

#include "design/filter_design.h"
#include "fading_filter.h"

namespace jurn::gst {

enum class Kind { kAutomatic, kFir, kIir, kSections, kAverage };

/** A stream that a filter is prepared for. */
struct Stream {
  int rate = 0;
  int channels = 0;
  jurn::Precision precision = jurn::Precision::kInt16;
};

/**
 * The filter that the properties ask for: a file, lines of an equaliser, coefficients, or a length;
 * of the first three, each replaces the others. Errors are a std::exception with a sentence for the
 * user.
 */
class FilterSource {
 public:
  FilterSource() = default;

  void set_file(const std::string& path);
  void set_equaliser(const std::string& lines);
  void set_coefficients(const GValue* arrays);

  const std::string& file() const { return path_; }
  const std::string& equaliser() const { return lines_; }
  void get_coefficients(GValue* result) const;

  Kind kind = Kind::kAutomatic;
  double gain_db = 0.0;
  int length = 1;

  bool is_empty() const { return source_ == Source::kNone && kind != Kind::kAverage; }

  /** Reads, checks and prepares the filter as jurn-filter does. */
  std::unique_ptr<PreparedFilter> prepare(const Stream& stream,
                                          std::vector<std::string>* warnings) const;

 private:
  enum class Source { kNone, kFile, kCoefficients, kEqualiser };

  FilterSource(Kind k, double gain, int samples) : kind(k), gain_db(gain), length(samples) {}

  jurn::FilterDesign read(const Stream& stream) const;

  Source source_ = Source::kNone;
  std::string path_, lines_;
  std::vector<std::vector<double>> arrays_;
};

}  // namespace jurn::gst
