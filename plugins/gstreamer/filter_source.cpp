#include "filter_source.h"

#include <gst/gst.h>

#include <algorithm>
#include <cmath>
#include <stdexcept>

#include "coefficients/formats.h"
#include "coefficients/parse.h"
#include "design/prepare.h"
#include "design/roots.h"
#include "design/stability.h"

namespace jurn::gst {
namespace {

using jurn::FilterDesign;

// Frames that a recursive filter rings on: until a full-scale sound is below one LSB, and no longer
// than this.
constexpr double kLongestTail = 10.0;  // seconds

int tail_of(const FilterDesign& design, int rate) {
  if (design.kind == FilterDesign::kFir) return static_cast<int>(design.b.size()) - 1;
  double radius = 0.0;
  for (const auto& pole : jurn::roots_of(design, design.a))
    radius = std::max(radius, std::abs(pole));
  const double longest = kLongestTail * rate;
  if (radius >= 1.0) return static_cast<int>(longest);
  const double frames = radius > 0.0 ? std::log(1.0 / 32768.0) / std::log(radius) : 0.0;
  return static_cast<int>(std::min(longest, frames + static_cast<double>(design.b.size())));
}

FilterDesign::Kind kind_of(Kind kind) {
  return kind == Kind::kFir   ? FilterDesign::kFir
         : kind == Kind::kIir ? FilterDesign::kIir
                              : FilterDesign::kSections;
}

jurn::ReadOptions options_for(FilterDesign::Kind kind, const Stream& stream) {
  jurn::ReadOptions options{kind, {}, jurn::Format::kByContent, {}, stream.rate};
  options.limit = kind == FilterDesign::kFir   ? jurn::fir_limit()
                  : kind == FilterDesign::kIir ? jurn::iir_limit()
                                               : jurn::section_limit();
  if (kind != FilterDesign::kSections && stream.precision == jurn::Precision::kDouble)
    options.limit = {JURN_FLOAT_COEFFICIENTS,
                     std::to_string(JURN_FLOAT_COEFFICIENTS) +
                         " coefficients, the limit for float samples; 16-bit samples take " +
                         std::to_string(JURN_COEFFICIENTS)};
  return options;
}

/** One array for taps, two for numerator and denominator, six values each for sections. */
FilterDesign design_of_arrays(const std::vector<std::vector<double>>& arrays, Kind kind) {
  if (kind == Kind::kAutomatic) {
    const auto has_six = [](const std::vector<double>& array) { return array.size() == 6; };
    kind = std::all_of(arrays.begin(), arrays.end(), has_six) ? Kind::kSections
           : arrays.size() == 1                               ? Kind::kFir
                                                              : Kind::kIir;
  }
  FilterDesign design{kind_of(kind), {}, {}};
  if (kind == Kind::kSections) {
    for (const std::vector<double>& section : arrays) {
      if (section.size() != 6)
        throw std::runtime_error("coefficients: a section has " + std::to_string(section.size()) +
                                 " values; b0, b1, b2, a0, a1, a2 are expected");
      design.b.insert(design.b.end(), section.begin(), section.begin() + 3);
      design.a.insert(design.a.end(), section.begin() + 3, section.end());
    }
  } else {
    const std::size_t wanted = kind == Kind::kFir ? 1 : 2;
    if (arrays.size() != wanted)
      throw std::runtime_error("coefficients: has " + std::to_string(arrays.size()) +
                               " arrays; this kind takes " + std::to_string(wanted));
    design.b = arrays[0];
    if (wanted == 2) design.a = arrays[1];
  }
  // The library takes the first denominator entry for 1.
  const std::size_t group = kind == Kind::kSections ? 3 : design.a.size();
  for (std::size_t i = 0; i < design.a.size(); i += group)
    if (design.a[i] != 1.0)
      throw std::runtime_error("coefficients: a denominator starts with " +
                               std::to_string(design.a[i]) +
                               ", not with 1; divide the filter's coefficients by it");
  return design;
}

}  // namespace

void FilterSource::set_file(const std::string& path) {
  *this = FilterSource(kind, gain_db, length);
  source_ = path.empty() ? Source::kNone : Source::kFile;
  path_ = path;
}

void FilterSource::set_equaliser(const std::string& lines) {
  *this = FilterSource(kind, gain_db, length);
  source_ = lines.empty() ? Source::kNone : Source::kEqualiser;
  lines_ = lines;
}

void FilterSource::set_coefficients(const GValue* arrays) {
  std::vector<std::vector<double>> values;
  for (guint i = 0; i < gst_value_array_get_size(arrays); ++i) {
    const GValue* const array = gst_value_array_get_value(arrays, i);
    if (!GST_VALUE_HOLDS_ARRAY(array))
      throw std::runtime_error("coefficients: takes arrays of numbers, like <<0.5,0.5>>");
    values.emplace_back();
    for (guint k = 0; k < gst_value_array_get_size(array); ++k) {
      GValue number = G_VALUE_INIT;
      g_value_init(&number, G_TYPE_DOUBLE);
      if (!g_value_transform(gst_value_array_get_value(array, k), &number) ||
          !std::isfinite(g_value_get_double(&number)))
        throw std::runtime_error("coefficients: holds something that is no finite number");
      values.back().push_back(g_value_get_double(&number));
    }
    if (values.back().empty()) throw std::runtime_error("coefficients: holds an empty array");
  }
  *this = FilterSource(kind, gain_db, length);
  source_ = values.empty() ? Source::kNone : Source::kCoefficients;
  arrays_ = std::move(values);
}

void FilterSource::get_coefficients(GValue* result) const {
  for (const std::vector<double>& array : arrays_) {
    GValue set = G_VALUE_INIT;
    g_value_init(&set, GST_TYPE_ARRAY);
    for (const double value : array) {
      GValue number = G_VALUE_INIT;
      g_value_init(&number, G_TYPE_DOUBLE);
      g_value_set_double(&number, value);
      gst_value_array_append_and_take_value(&set, &number);
    }
    gst_value_array_append_and_take_value(result, &set);
  }
}

FilterDesign FilterSource::read(const Stream& stream) const {
  if (source_ == Source::kCoefficients) {
    FilterDesign design = design_of_arrays(arrays_, kind);
    jurn::check_limit("coefficients", design, options_for(design.kind, stream).limit);
    return design;
  }
  if (source_ == Source::kEqualiser) {
    std::vector<std::string> filters(1);
    for (const char c : lines_)
      if (c == ';' || c == '\n')
        filters.emplace_back();
      else
        filters.back() += c;
    const auto is_empty = [](const std::string& f) { return f.find_first_not_of(" \t") == f.npos; };
    filters.erase(std::remove_if(filters.begin(), filters.end(), is_empty), filters.end());
    const FilterDesign design = jurn::parse_equaliser_words(filters, stream.rate);
    jurn::check_limit("equaliser", design, options_for(design.kind, stream).limit);
    return design;
  }
  if (kind != Kind::kAutomatic) return jurn::load_design(path_, options_for(kind_of(kind), stream));
  // What the file holds shows in what it can be read as; the first reading's error is the one to
  // tell when nothing fits.
  std::string problem;
  for (const auto tried : {FilterDesign::kSections, FilterDesign::kIir, FilterDesign::kFir}) {
    try {
      return jurn::load_design(path_, options_for(tried, stream));
    } catch (const std::exception& error) {
      problem = error.what();
    }
  }
  throw std::runtime_error(problem);
}

std::unique_ptr<PreparedFilter> FilterSource::prepare(const Stream& stream,
                                                      std::vector<std::string>* warnings) const {
  if (kind == Kind::kAverage) {
    if (stream.precision == jurn::Precision::kDouble)
      throw std::runtime_error("kind=average takes 16-bit samples: audio/x-raw,format=S16LE");
    return std::make_unique<PreparedFilter>(length - 1, length, stream.channels);
  }
  const std::string name = source_ == Source::kFile ? path_ : "the filter";
  FilterDesign design = read(stream);
  const auto warn = [&](const std::string& text) {
    if (!text.empty()) warnings->push_back(text);
  };
  warn(jurn::check_stability(name, std::nullopt, &design));
  const double gain = std::pow(10.0, gain_db / 20.0);
  warn(jurn::check_peak(name, design, gain));
  jurn::scale(&design, gain);
  jurn::PrepareOptions options;
  options.precision = stream.precision;
  const jurn::Prepared prepared = jurn::prepare(design, options);
  for (const jurn::Notice& notice : prepared.notices)
    if (notice.is_warning()) warn(name + ": " + notice.text);
  return std::make_unique<PreparedFilter>(tail_of(prepared.design, stream.rate), prepared.design,
                                          stream.precision, stream.channels);
}

}  // namespace jurn::gst
