// Where the filter of jurnfilter comes from.
#pragma once

#include <glib-object.h>

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "design/equaliser.h"
#include "design/filter_design.h"
#include "design/prepare.h"
#include "settings_preparer.h"

namespace jurn::gst {

/** Samples of the longest mean; of the device's, jurn::kMaxAverage. */
constexpr int kMostAveraged = 1 << 20;

enum class Kind { kAutomatic, kFir, kIir, kSections, kAverage };

/**
 * The filter that the properties ask for: a file, lines of an equaliser, coefficients, or a length;
 * of the first three, each replaces the others, and an empty one only itself. Errors are a
 * std::exception with a sentence for the user.
 */
class FilterSource {
 public:
  void set_file(const std::string& path);
  /** Lines that are none make bands() empty and show when the filter is read. */
  void set_equaliser(const std::string& lines);
  void set_coefficients(const GValue* arrays);
  /** Changes a band of the equaliser; of several frequencies, gains and widths all. */
  void set_band(std::size_t index, const jurn::EqualiserFilter& filter);

  const std::string& file() const { return path_; }
  std::string equaliser() const;
  const std::vector<jurn::EqualiserFilter>& bands() const { return bands_; }
  void get_coefficients(GValue* result) const;

  Kind kind = Kind::kAutomatic;
  double gain_db = 0.0;
  int length = 1;
  jurn::Precision precision = jurn::Precision::kDouble;

  bool is_empty() const { return source_ == Source::kNone && kind != Kind::kAverage; }
  /** Reads the design, without the gain. Not of a mean. */
  jurn::FilterDesign read(int rate) const;
  /** Whether another source reads the same. */
  bool reads_as(const FilterSource& other) const {
    return setting_ == other.setting_ && kind == other.kind && precision == other.precision;
  }
  /** How errors and warnings call the filter. */
  std::string name() const { return source_ == Source::kFile ? path_ : "the filter"; }

 private:
  enum class Source { kNone, kFile, kCoefficients, kEqualiser };

  void clear(Source next);

  Source source_ = Source::kNone;
  int setting_ = 0;  // which time a source was set: the same name may mean another file
  std::string path_;
  std::vector<std::string> lines_;  // of the equaliser, one for each band
  std::vector<jurn::EqualiserFilter> bands_;
  std::vector<std::vector<double>> arrays_;
  std::string problem_;  // of the arrays
};

/** Reads filters, once for all gains, and prepares them as jurn-filter does. */
class FilterPreparer final : public SettingsPreparer<FilterSource> {
 public:
  using SettingsPreparer::SettingsPreparer;

 private:
  std::unique_ptr<OfferedFilter> prepare(const StreamFormat& format,
                                         std::vector<std::string>* warnings) override;
  const jurn::FilterDesign& read(const FilterSource& source, int rate);

  // The worker's own.
  FilterSource read_from_;  // what was read last, and for what
  int read_rate_ = 0;
  gint64 written_ = 0;
  jurn::FilterDesign design_{};
};

}  // namespace jurn::gst
