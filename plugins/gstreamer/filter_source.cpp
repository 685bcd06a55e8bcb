#include "filter_source.h"

#include <gst/gst.h>

#include <cmath>
#include <stdexcept>

#include "coefficients/formats.h"
#include "coefficients/kinds.h"
#include "coefficients/parse.h"
#include "design/prepare_once.h"
#include "design/stability.h"
#include "element.h"
#include "streams/changing_stream.h"
#include "streams/stages.h"
#include "units.h"

namespace jurn::gst {
namespace {

using jurn::FilterDesign;

// Frames of the past that a new filter can hear. Where it remembers more, an FIR of more taps than
// that, its late taps begin with silence.
constexpr int kHistory = 1 << 15;

FilterDesign::Kind kind_of(Kind kind) {
  return kind == Kind::kFir   ? FilterDesign::kFir
         : kind == Kind::kIir ? FilterDesign::kIir
                              : FilterDesign::kSections;
}

jurn::ReadOptions options_for(const FilterSource& source, int rate) {
  jurn::ReadOptions options{
      {}, jurn::filter_limits(source.precision), jurn::CoefficientFormat::kByContent, {}, rate};
  options.graphic_taps = jurn::kLiveGraphicTaps;
  if (source.kind != Kind::kAutomatic) options.wanted = kind_of(source.kind);
  return options;
}

/** One array for taps, two for numerator and denominator, six values each for sections: a design as
 * of a file with these arrays. */
FilterDesign design_of_arrays(const std::vector<std::vector<double>>& lists,
                              jurn::ReadOptions options) {
  if (!options.wanted) options.wanted = jurn::kind_of_lists(lists);
  std::vector<jurn::Array> arrays;
  for (const std::vector<double>& list : lists)
    arrays.push_back({"", 1, list.size(), list, {}, {}});
  if (options.wanted == FilterDesign::kSections) {
    for (const std::vector<double>& section : lists)
      if (section.size() != 6)
        throw std::runtime_error("coefficients: a section has " + std::to_string(section.size()) +
                                 " values; b0, b1, b2, a0, a1, a2 are expected");
    jurn::Array& table = arrays[0];
    table.rows = lists.size();
    for (std::size_t i = 1; i < lists.size(); ++i)
      table.values.insert(table.values.end(), lists[i].begin(), lists[i].end());
    arrays.resize(1);
  }
  FilterDesign design = jurn::design_of("coefficients", arrays, options);
  jurn::check_design("coefficients", design, options.limits);
  return design;
}

}  // namespace

void FilterSource::clear(Source next) {
  source_ = next;
  path_.clear();
  lines_.clear();
  bands_.clear();
  arrays_.clear();
  problem_.clear();
  ++setting_;
}

void FilterSource::set_file(const std::string& path) {
  if (path.empty() && source_ != Source::kFile) return;
  clear(path.empty() ? Source::kNone : Source::kFile);
  path_ = path;
}

void FilterSource::set_equaliser(const std::string& lines) {
  if (lines.empty() && source_ != Source::kEqualiser) return;
  clear(lines.empty() ? Source::kNone : Source::kEqualiser);
  std::string line;
  for (const char c : lines + ';') {
    if (c != ';' && c != '\n') {
      line += c;
      continue;
    }
    if (const std::size_t begin = line.find_first_not_of(" \t"); begin != line.npos)
      lines_.push_back(line.substr(begin));
    line.clear();
  }
  try {
    for (const std::string& text : lines_) bands_.push_back(jurn::parse_equaliser_filter(text));
  } catch (const std::exception&) {
    bands_.clear();
  }
}

void FilterSource::set_band(std::size_t index, const jurn::EqualiserFilter& filter) {
  if (index >= bands_.size()) return;
  bands_[index] = filter;
  lines_[index] = jurn::text_of(filter);
  ++setting_;
}

std::string FilterSource::equaliser() const {
  std::string lines;
  for (const std::string& line : lines_) lines += (lines.empty() ? "" : "; ") + line;
  return lines;
}

void FilterSource::set_coefficients(const GValue* arrays) {
  const guint count = gst_value_array_get_size(arrays);
  if (count == 0 && source_ != Source::kCoefficients) return;
  clear(count ? Source::kCoefficients : Source::kNone);
  for (guint i = 0; i < count; ++i) {
    const GValue* const array = gst_value_array_get_value(arrays, i);
    arrays_.emplace_back();
    if (!GST_VALUE_HOLDS_ARRAY(array)) {
      problem_ = "coefficients: takes arrays of numbers, like <<0.5,0.5>>";
      return;
    }
    for (guint k = 0; k < gst_value_array_get_size(array); ++k) {
      GValue number = G_VALUE_INIT;
      g_value_init(&number, G_TYPE_DOUBLE);
      if (!g_value_transform(gst_value_array_get_value(array, k), &number) ||
          !std::isfinite(g_value_get_double(&number)))
        problem_ = "coefficients: holds something that is no finite number";
      arrays_.back().push_back(g_value_get_double(&number));
    }
    if (arrays_.back().empty()) problem_ = "coefficients: holds an empty array";
  }
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

FilterDesign FilterSource::read(int rate) const {
  const jurn::ReadOptions options = options_for(*this, rate);
  if (!problem_.empty()) throw std::runtime_error(problem_);
  if (source_ == Source::kCoefficients) return design_of_arrays(arrays_, options);
  if (source_ == Source::kEqualiser) {
    FilterDesign design = jurn::parse_equaliser_words(lines_, rate);
    jurn::check_design("equaliser", design, options.limits);
    return design;
  }
  return jurn::load_design(path_, options);
}

const FilterDesign& FilterPreparer::read(const FilterSource& source, int rate) {
  const gint64 written = time_of_writing(source.file());
  if (!source.reads_as(read_from_) || read_rate_ != rate || written != written_) {
    read_rate_ = 0;
    design_ = source.read(rate);
    read_from_ = source;
    read_rate_ = rate;
    written_ = written;
  }
  return design_;
}

std::unique_ptr<OfferedFilter> FilterPreparer::prepare(const StreamFormat& format,
                                                       std::vector<std::string>* warnings) {
  const FilterSource& source = next();
  // A file of coefficients is read for its rate.
  if (!format.rate || source.is_empty()) return nullptr;
  const jurn::Format engine = engine_format(format, 1, kHistory);
  if (source.kind == Kind::kAverage) {
    if (source.precision == jurn::Precision::kInt16 && source.length > jurn::kMaxAverage)
      throw std::runtime_error("length=" + std::to_string(source.length) + ": at most " +
                               std::to_string(jurn::kMaxAverage) +
                               " with precision=int16, and any with precision=double");
    return std::make_unique<OfferedFilter>(
        jurn::make_mean(source.length, source.precision, engine));
  }
  FilterDesign design = read(source, format.rate);
  const auto warn = [&](const std::string& text) {
    if (!text.empty()) warnings->push_back(text);
  };
  const std::string name = source.name();
  const double gain = jurn::from_decibels(source.gain_db);
  jurn::check_signs(name, std::nullopt, &design);
  if (const std::string peak = jurn::check_peak(name, design, gain); !peak.empty())
    warn(peak + "; a lower gain avoids it");
  jurn::scale(&design, gain);
  jurn::PrepareOptions options;
  options.precision = source.precision;
  options.result = format.is_float ? jurn::SampleFormat::kFloat : jurn::SampleFormat::kInt16;
  options.rate = format.rate;
  options.in_blocks = false;
  const auto kept = jurn::prepare_once(design, options);
  const jurn::Prepared& prepared = *kept;
  for (const jurn::Notice& notice : prepared.notices)
    if (notice.is_warning())
      warn(name + ": " + notice.text +
           (notice.remedy == jurn::Notice::kInDouble ? "; precision=double avoids it" : ""));
  return std::make_unique<OfferedFilter>(jurn::make_voice(prepared, engine), prepared.design.delay);
}

}  // namespace jurn::gst
