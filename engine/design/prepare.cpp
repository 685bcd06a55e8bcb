#include "design/prepare.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdio>
#include <optional>

#include "design/meter.h"
#include "design/roots.h"
#include "units.h"

namespace jurn {
namespace {

// Below it the error is not worth another order of the sections, in LSB.
constexpr double kGoodEnough = 0.1;
// A section's own gain may stand when the peaks lie within a factor of 4 of 1: float has room.
constexpr int kNearBits = 2;

std::size_t sections_of(const FilterDesign& design) {
  return design.a.size() / 3;
}

double largest_radius(const FilterDesign& design) {
  double radius = 0.0;
  for (const std::complex<double>& pole : roots_of(design, design.a))
    radius = std::max(radius, std::abs(pole));
  return radius;
}

/** Whether no pole lies outside the unit circle. Of sections this is exact; the radius of others is
 * within rounding. */
bool is_stable(const FilterDesign& design, double radius) {
  if (design.kind != FilterDesign::kSections) return radius <= 1.0 + 1e-9;
  for (std::size_t i = 0; i < design.a.size(); i += 3)
    if (design.a[i + 2] > 1.0 || std::abs(design.a[i + 1]) > 1.0 + design.a[i + 2]) return false;
  return true;
}

FilterDesign rounded(FilterDesign design, Precision precision) {
  if (precision == Precision::kDouble) return design;
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
      bits[k] = -static_cast<int>(std::lround(std::log2(peak[k])));
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

std::string shown(const char* format, double value) {
  char text[32];
  std::snprintf(text, sizeof text, format, value);
  return text;
}

std::string lsb(double error) {
  return shown(error < 100.0 ? "%.1f LSB" : "%.0f LSB", error);
}

std::string count_of_sections(const FilterDesign& design) {
  const std::size_t count = sections_of(design);
  return std::to_string(count) + (count == 1 ? " section" : " sections");
}

const char* name_of(Precision precision) {
  return precision == Precision::kInt16 ? "float" : "double";
}

/** The steps of preparing one design. */
class Preparation {
 public:
  Preparation(const FilterDesign& design, const PrepareOptions& options)
      : design_(design), options_(options) {}

  Prepared run() {
    if (design_.kind == FilterDesign::kFir) {
      result_.design = rounded(design_, options_.precision);
      return std::move(result_);
    }
    const double radius = largest_radius(design_);
    const bool sound = is_stable(design_, radius);
    if (design_.kind == FilterDesign::kIir)
      direct(sound, radius);
    else
      sections(sound, radius);
    judge(sound);
    return std::move(result_);
  }

 private:
  void use(const FilterDesign& design, const Difference& error) {
    result_.design = design;
    result_.expected_error = error.peak;
    result_.expected_error_rms = error.rms;
  }

  void note(Notice::Kind kind, const std::string& text) { result_.notices.push_back({kind, text}); }

  bool runs_stable(const FilterDesign& design) const {
    return is_stable(design, largest_radius(design));
  }

  void direct(bool sound, double radius) {
    const FilterDesign as_it_is = rounded(design_, options_.precision);
    use(as_it_is, {});
    std::optional<FilterDesign> factored;
    if (sound || options_.as_sections) factored = paired_sections(design_);
    if (factored) scale_sections(&*factored);
    if (sound) {
      const Meter meter(factored ? *factored : design_, radius, options_.precision);
      use(as_it_is, meter.of(as_it_is));
      const bool stable = runs_stable(as_it_is);
      if (options_.as_is || (stable && result_.expected_error <= 1.0 && !options_.as_sections))
        return;
      if (factored) {
        const FilterDesign sections = rounded(*factored, options_.precision);
        const Difference error =
            options_.precision == Precision::kDouble ? Difference{} : meter.of(sections);
        if (!options_.as_sections && stable && error.peak >= result_.expected_error) return;
        std::string why;
        if (!stable)
          why = std::string("unstable as a direct form in ") + name_of(options_.precision) + ", ";
        else if (result_.expected_error > 1.0)
          why = "up to " + lsb(result_.expected_error) + " off as a direct form in " +
                name_of(options_.precision) + ", ";
        use(sections, error);
        return note(Notice::kFactored, why + "runs as " + count_of_sections(sections));
      }
    } else if (factored && !options_.as_is) {
      use(rounded(*factored, options_.precision), {});
      return note(Notice::kFactored, "runs as " + count_of_sections(result_.design));
    }
    if (!options_.as_is && (sound || options_.as_sections))
      note(Notice::kUnfactored, "its coefficients cannot be factored into sections");
  }

  void sections(bool sound, double radius) {
    FilterDesign scaled = design_;
    const int bits = options_.as_is ? 0 : scale_sections(&scaled);
    use(rounded(scaled, options_.precision), {});
    bool paired = false;
    // In double, sections are exact whatever their order.
    if (sound && options_.precision == Precision::kInt16) {
      const Meter meter(design_, radius, options_.precision);
      use(result_.design, meter.of(result_.design));
      if (!options_.as_is && result_.expected_error > kGoodEnough)
        if (std::optional<FilterDesign> other = paired_sections(design_)) {
          scale_sections(&*other);
          const FilterDesign candidate = rounded(*other, options_.precision);
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
                                shown("%.0f dB", to_decibels(2.0) * bits) +
                                ", so that each peaks near 0 dB; the filter is the same");
  }

  void judge(bool sound) {
    result_.pole_radius = largest_radius(result_.design);
    result_.stable = is_stable(result_.design, result_.pole_radius);
    if (!result_.stable)
      note(Notice::kUnstable,
           (sound ? std::string("unstable once its coefficients are rounded to ") +
                        name_of(options_.precision) + ", its"
                  : std::string("unstable, its")) +
               " outermost pole has the radius " + shown("%.9g", result_.pole_radius));
    else if (result_.expected_error > 1.0)
      note(Notice::kInexact, std::string("up to ") + lsb(result_.expected_error) + " (" +
                                 lsb(result_.expected_error_rms) + " rms) off in " +
                                 name_of(options_.precision) + " at full scale");
  }

  const FilterDesign& design_;
  const PrepareOptions& options_;
  Prepared result_;
};

}  // namespace

Prepared prepare(const FilterDesign& design, const PrepareOptions& options) {
  return Preparation(design, options).run();
}

}  // namespace jurn
