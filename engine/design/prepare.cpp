#include "exact.h"

#include "design/prepare.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>
#include <optional>
#include <tuple>
#include <utility>
#include <vector>

#include "Convolution_control.h"
#include "Filter_control.h"
#include "Sections_control.h"
#include "design/error_meter.h"
#include "design/roots.h"
#include "design/spectrum.h"
#include "elementary.h"
#include "number_text.h"
#include "units.h"

namespace jurn {
namespace {

// Below it the error is not worth another order of the sections, in LSB.
constexpr double kGoodEnough = 0.1;
// A section's own gain may stand when the peaks lie within a factor of 4 of 1: float has room.
constexpr int kNearBits = 2;
// The largest root mean square error of a convolution that was measured, as a share of the norm of
// its taps times the level of its input.
constexpr double kConvolutionError = 6.7e-7;
// Of what rings on.
constexpr double kLongestTail = 10.0;  // seconds
constexpr double kMostFrames = std::numeric_limits<int>::max();

std::size_t sections_of(const FilterDesign& design) {
  return design.a.size() / 3;
}

/** Whether no pole lies outside the unit circle. Of sections this is exact; the radius of others is
 * within rounding. */
bool is_stable(const FilterDesign& design, double radius) {
  if (design.kind != FilterDesign::kSections) return radius <= 1.0 + 1e-9;
  for (std::size_t i = 0; i < design.a.size(); i += 3)
    if (design.a[i + 2] > 1.0 || std::abs(design.a[i + 1]) > 1.0 + design.a[i + 2]) return false;
  return true;
}

FilterDesign rounded(FilterDesign design) {
  for (std::vector<double>* all : {&design.b, &design.a})
    for (double& c : *all) c = static_cast<double>(static_cast<float>(c));
  return design;
}

/** Moves powers of two between the sections so that all outputs but the last one, which is the
 * filter's, peak near 0 dB. Returns by how many bits at most a section's output changed. */
int scale_sections(FilterDesign* sections) {
  const std::vector<double> peak = section_peaks(*sections);
  std::vector<int> bits(peak.size(), 0);  // of the output
  int most = 0;
  for (std::size_t k = 0; k + 1 < peak.size(); ++k) {
    if (peak[k] > 0.0 && std::isfinite(peak[k]))
      bits[k] = -static_cast<int>(std::lround(elementary::log(peak[k]) / kLogTwo));
    most = std::max(most, std::abs(bits[k]));
  }
  if (most <= kNearBits) return 0;
  for (std::size_t k = 0; k < peak.size(); ++k) {
    const int change = bits[k] - (k ? bits[k - 1] : 0);
    for (std::size_t i = 3 * k; i < 3 * k + 3; ++i)
      sections->b[i] = std::ldexp(sections->b[i], change);
  }
  return most;
}

std::string lsb(double error) {
  return printed(error < 100.0 ? "%.1f" : "%.0f", error) + " LSB";
}

std::string count_of_sections(const FilterDesign& design) {
  const std::size_t count = sections_of(design);
  return std::to_string(count) + (count == 1 ? " section" : " sections");
}

/** Whether the coefficients run as they are. */
bool runs_as_is(const FilterDesign& design, const PrepareOptions& options) {
  return options.as_is || (design.prepared == options.precision && !options.as_sections);
}

/** The steps of preparing one design. */
class Preparation {
 public:
  Preparation(const FilterDesign& design, const PrepareOptions& options)
      : design_(design), options_(options), as_is_(runs_as_is(design, options)) {}

  Prepared run() {
    if (options_.precision == Precision::kInt16)
      run_records();
    else
      run_in_double();
    result_.tail = tail();
    return std::move(result_);
  }

  Prepared run_as_before() {
    const bool fir = design_.kind == FilterDesign::kFir;
    const bool records = options_.precision == Precision::kInt16;
    result_.design = records ? rounded(design_) : design_;
    result_.runs = records                                   ? Runs::kRecords
                   : fir                                     ? fir_in_double()
                   : design_.kind == FilterDesign::kSections ? Runs::kSections
                                                             : Runs::kDirectForm;
    if (!fir) {
      result_.pole_radius = pole_radius(result_.design);
      result_.stable = is_stable(result_.design, result_.pole_radius);
    }
    result_.tail = tail();
    return std::move(result_);
  }

  /** Runs these sections instead of what run() chose in 16 bits, and measures them. */
  Prepared run_sections(const FilterDesign& chosen, const Prepared& before) {
    result_ = before;
    const auto is_warning = [](const Notice& notice) { return notice.is_warning(); };
    result_.notices.erase(
        std::remove_if(result_.notices.begin(), result_.notices.end(), is_warning),
        result_.notices.end());
    const double radius = pole_radius(design_);
    std::optional<FilterDesign> truth;
    if (design_.kind == FilterDesign::kIir) truth = paired_sections(design_);
    use(chosen, ErrorMeter(truth ? *truth : design_, radius).of(chosen));
    judge(is_stable(design_, radius));
    return std::move(result_);
  }

 private:
  void run_records() {
    result_.runs = Runs::kRecords;
    if (design_.kind == FilterDesign::kFir) {
      result_.design = rounded(design_);
      return;
    }
    const double radius = pole_radius(design_);
    const bool sound = is_stable(design_, radius);
    if (design_.kind == FilterDesign::kIir)
      direct(sound, radius);
    else
      sections(sound, radius);
    judge(sound);
  }

  void run_in_double() {
    result_.design = design_;
    if (design_.kind == FilterDesign::kFir) {
      result_.runs = fir_in_double();
      return;
    }
    const double radius = pole_radius(design_);
    const bool sound = is_stable(design_, radius);
    if (design_.kind == FilterDesign::kIir) direct_in_double(sound, radius);
    judge(sound);
  }

  Runs fir_in_double() const { return by_convolution() ? Runs::kConvolution : Runs::kFir; }

  /** Its error is that of the transforms in float, at most kConvolutionError of the level that
   * white noise at full scale has behind the taps: the largest of a second of samples is 5 times
   * the root mean square. */
  bool by_convolution() const {
    if (!options_.in_blocks || design_.b.size() < kConvolutionTaps ||
        design_.b.size() > JURN_CONVOLUTION_TAPS)
      return false;
    if (design_.b.size() >= kLongTaps) return true;
    if (options_.result == SampleFormat::kFloat) return false;
    double power = 0.0;
    for (const double tap : design_.b) power += tap * tap;
    const double step = options_.result == SampleFormat::kInt16 ? 1.0 : 1.0 / 256.0;
    return 5.0 * kConvolutionError * (32768.0 / std::sqrt(3.0)) * std::sqrt(power) < 0.5 * step;
  }

  void direct_in_double(bool sound, double radius) {
    result_.runs = Runs::kDirectForm;
    if (as_is_) return;
    FilterDesign& design = result_.design;
    if (design.b.size() <= 3 && design.a.size() <= 3) {
      design.kind = FilterDesign::kSections;
      design.b.resize(3);
      design.a.resize(3);
      result_.runs = Runs::kSections;
    } else if (std::optional<FilterDesign> factored = paired_sections(design_)) {
      design = *factored;
      result_.runs = Runs::kSections;
    } else if (design_.a.size() > 3) {
      note(Notice::kUnfactored,
           "its roots cannot be found surely, so it runs as a direct form of order " +
               std::to_string(design_.a.size() - 1));
      if (sound) use(design_, error_in_double(design_, radius));
    }
  }

  int tail() const {
    const FilterDesign& d = result_.design;
    if (d.kind == FilterDesign::kFir) return static_cast<int>(d.b.size()) - 1;
    const double most = std::min(kLongestTail * options_.rate, kMostFrames);
    const double radius = result_.pole_radius;
    if (radius >= 1.0) return static_cast<int>(most);
    const double half_a_step = options_.result == SampleFormat::kInt16 ? 0x1p-16 : 0x1p-24;
    const double frames =
        radius > 0.0 ? elementary::log(half_a_step) / elementary::log(radius) : 0.0;
    return static_cast<int>(std::min(most, frames + static_cast<double>(d.b.size())));
  }

  void use(const FilterDesign& design, const Difference& error) {
    result_.design = design;
    result_.expected_error = error.peak;
    result_.expected_error_rms = error.rms;
  }

  void note(Notice::Kind kind, const std::string& text, Notice::Remedy remedy = Notice::kNone) {
    result_.notices.push_back({kind, text, remedy});
  }

  bool runs_stable(const FilterDesign& design) const {
    return is_stable(design, pole_radius(design));
  }

  void direct(bool sound, double radius) {
    const FilterDesign as_it_is = rounded(design_);
    use(as_it_is, {});
    std::optional<FilterDesign> factored;
    if (sound || options_.as_sections) factored = paired_sections(design_);
    if (factored) scale_sections(&*factored);
    if (sound) {
      const ErrorMeter meter(factored ? *factored : design_, radius);
      use(as_it_is, meter.of(as_it_is));
      const bool stable = runs_stable(as_it_is);
      if (as_is_ || (stable && result_.expected_error <= 1.0 && !options_.as_sections)) return;
      if (factored) {
        const FilterDesign sections = rounded(*factored);
        const Difference error = meter.of(sections);
        if (!options_.as_sections && stable && error.peak >= result_.expected_error) return;
        std::string why;
        if (!stable)
          why = "unstable as a direct form in float, ";
        else if (result_.expected_error > 1.0)
          why = "up to " + lsb(result_.expected_error) + " off as a direct form in float, ";
        use(sections, error);
        return note(Notice::kFactored, why + "runs as " + count_of_sections(sections));
      }
    } else if (factored && !as_is_) {
      use(rounded(*factored), {});
      return note(Notice::kFactored, "runs as " + count_of_sections(result_.design));
    }
    if (!as_is_ && (sound || options_.as_sections))
      note(Notice::kUnfactored, "its coefficients cannot be factored into sections");
  }

  void sections(bool sound, double radius) {
    FilterDesign scaled = design_;
    const int bits = as_is_ ? 0 : scale_sections(&scaled);
    use(rounded(scaled), {});
    bool paired = false;
    if (sound) {
      const ErrorMeter meter(design_, radius);
      use(result_.design, meter.of(result_.design));
      if (!as_is_ && result_.expected_error > kGoodEnough)
        if (std::optional<FilterDesign> other = paired_sections(design_)) {
          scale_sections(&*other);
          const FilterDesign candidate = rounded(*other);
          const Difference error = meter.of(candidate);
          paired = runs_stable(candidate) && error.rms < 0.8 * result_.expected_error_rms;
          if (paired) use(candidate, error);
        }
    }
    if (paired)
      note(Notice::kScaled,
           "sections paired, ordered and scaled anew, which lowers the noise; the filter is the "
           "same");
    else if (bits)
      note(Notice::kScaled, "gains moved between the sections, by up to " +
                                printed("%.0f", to_decibels(2.0) * bits) +
                                " dB, so that each peaks near 0 dB; the filter is the same");
  }

  void judge(bool sound) {
    result_.pole_radius = pole_radius(result_.design);
    result_.stable = is_stable(result_.design, result_.pole_radius);
    const bool records = result_.runs == Runs::kRecords;
    const Notice::Remedy other = options_.as_is ? Notice::kNotAsIs
                                 : records      ? Notice::kInDouble
                                                : Notice::kNone;
    if (!sound)
      note(Notice::kUnstable,
           "unstable, its outermost pole has the radius " + printed("%.9g", pole_radius(design_)));
    else if (!result_.stable)
      note(Notice::kUnstable,
           "unstable once its coefficients are rounded to float, its outermost pole has the "
           "radius " +
               printed("%.9g", result_.pole_radius),
           other);
    else if (result_.pole_radius > 1.0 - 1e-9 && std::isinf(peak_gain(result_.design)))
      note(Notice::kUnstable,
           "at the edge of stability, its gain is infinite at some frequency, and what comes in "
           "there never ends");
    else if (result_.expected_error > 1.0)
      note(Notice::kInexact,
           "up to " + lsb(result_.expected_error) + " (" + lsb(result_.expected_error_rms) +
               " rms) off in " + (records ? "float" : "double") + " at full scale",
           records ? Notice::kInDouble : Notice::kNone);
  }

  const FilterDesign& design_;
  const PrepareOptions& options_;
  const bool as_is_;
  Prepared result_;
};

}  // namespace

CoefficientLimit coefficient_limit(FilterDesign::Kind kind, Precision precision) {
  const bool records = precision == Precision::kInt16;
  const auto limit = [&](std::size_t in_16_bits, std::size_t in_double, const std::string& what) {
    const std::size_t count = records ? in_16_bits : in_double;
    return CoefficientLimit{
        count, std::to_string(count) + " " + what + ", the limit of this filter" +
                   (records && in_double > count
                        ? " in 16 bits; in double it takes " + std::to_string(in_double)
                        : "")};
  };
  switch (kind) {
    case FilterDesign::kFir:
      return limit(JURN_COEFFICIENTS, JURN_CONVOLUTION_TAPS, "taps");
    case FilterDesign::kIir:
      return limit(JURN_COEFFICIENTS, JURN_COEFFICIENTS,
                   "coefficients in numerator or denominator");
    default:
      return limit(JURN_COEFFICIENTS / 3, JURN_SECTIONS_SECTIONS, "sections");
  }
}

bool fits(const FilterDesign& design, Precision precision) {
  const std::size_t most = coefficient_limit(design.kind, precision).count *
                           (design.kind == FilterDesign::kSections ? 3 : 1);
  return design.b.size() <= most && design.a.size() <= most;
}

Prepared prepare(const FilterDesign& design, const PrepareOptions& options) {
  Prepared prepared = Preparation(design, options).run();
  if (prepared.runs != Runs::kRecords || runs_as_is(design, options) || !prepared.stable ||
      (prepared.notices.empty() && prepared.expected_error <= kGoodEnough))
    return prepared;
  // What was ordered and scaled anew may be so once more, even in a circle. Who prepares the result
  // again, as a file of it is when it runs, has to get the same: of a circle, the first in order.
  constexpr std::size_t kMostRounds = 8;
  std::vector<FilterDesign> orders = {prepared.design};
  while (orders.size() < kMostRounds) {
    FilterDesign next = Preparation(orders.back(), options).run().design;
    const auto known = std::find(orders.begin(), orders.end(), next);
    if (known == orders.end()) {
      orders.push_back(std::move(next));
      continue;
    }
    const FilterDesign& chosen =
        *std::min_element(known, orders.end(), [](const FilterDesign& x, const FilterDesign& y) {
          return std::tie(x.b, x.a) < std::tie(y.b, y.a);
        });
    if (!(chosen == prepared.design))
      prepared = Preparation(design, options).run_sections(chosen, prepared);
    break;
  }
  return prepared;
}

Prepared prepared_before(const FilterDesign& design, const PrepareOptions& options) {
  return Preparation(design, options).run_as_before();
}

}  // namespace jurn
