#include "design/prepare.h"

#include <algorithm>
#include <cmath>
#include <complex>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <limits>
#include <optional>

#include "design/roots.h"
#include "units.h"

namespace tool {
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

/** The angles at which gains are compared: all octaves, and the peaks of the resonances. */
std::vector<double> angles_of(const FilterDesign& sections) {
  std::vector<double> angles{0.0, kPi};
  for (double angle = kPi; angle > 1e-5; angle *= 0.97) angles.push_back(angle);
  for (const std::complex<double>& pole : roots_of(sections, sections.a)) {
    const double angle = std::abs(std::arg(pole));
    for (const double aside : {-1.0, -0.5, 0.0, 0.5, 1.0})
      angles.push_back(std::min(std::max(angle + aside * (1.0 - std::abs(pole)), 0.0), kPi));
  }
  return angles;
}

/** One group of coefficients of a design, a section or all, at exp(-i angle). */
std::complex<double> value_of(const std::vector<double>& c, std::size_t begin, std::size_t end,
                              std::complex<double> back) {
  std::complex<double> value = 0.0;
  while (end > begin) value = value * back + c[--end];
  return value;
}

std::complex<double> response(const FilterDesign& design, double angle) {
  const std::complex<double> back = std::polar(1.0, -angle);
  if (design.kind != FilterDesign::kSections)
    return value_of(design.b, 0, design.b.size(), back) /
           value_of(design.a, 0, design.a.size(), back);
  std::complex<double> result = 1.0;
  for (std::size_t k = 0; k < design.b.size(); k += 3)
    result *= value_of(design.b, k, k + 3, back) / value_of(design.a, k, k + 3, back);
  return result;
}

/** Largest gain from the input to each section's output. */
std::vector<double> peaks(const FilterDesign& sections) {
  std::vector<double> result(sections_of(sections));
  for (const double angle : angles_of(sections)) {
    const std::complex<double> back = std::polar(1.0, -angle);
    double gain = 1.0;
    for (std::size_t k = 0; k < result.size(); ++k) {
      gain *= std::abs(value_of(sections.b, 3 * k, 3 * k + 3, back) /
                       value_of(sections.a, 3 * k, 3 * k + 3, back));
      // On a pole the gain tells nothing; between sections it may be a number again.
      if (std::isfinite(gain)) result[k] = std::max(result[k], gain);
    }
  }
  return result;
}

/** Moves powers of two between the sections so that all outputs but the last one, which is the
 * filter's, peak near 0 dB. Returns by how many bits at most a section's output changed. */
int scale_sections(FilterDesign* sections) {
  const std::vector<double> peak = peaks(*sections);
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

/** What filters are measured with, three parts of a length at full scale: noise with the same power
 * in every octave, the sum of random values each held twice as long as the one before; white noise,
 * for what is broad and high; and a slow sawtooth, for what is low. The generator is written out so
 * that every system makes the same. */
std::vector<float> test_signal(std::size_t length) {
  constexpr int rows = 16;
  std::vector<float> signal(3 * length);
  std::int32_t held[rows] = {};
  std::uint32_t random = 1;
  std::int32_t sum = 0;
  const auto next = [&random] {
    random = random * 1664525u + 1013904223u;
    return static_cast<std::int32_t>(random >> 16) - 32768;
  };
  for (std::size_t i = 0; i < length; ++i) {
    int row = 0;
    while (row < rows - 1 && (i >> row & 1)) ++row;
    sum -= held[row];
    held[row] = next();
    sum += held[row];
    // The sum's largest values lie around half of what it could reach.
    signal[i] = static_cast<float>(std::min(std::max(sum / (rows / 2), -32767), 32767));
    signal[length + i] = static_cast<float>(next());
    const std::uint64_t step = std::uint64_t{65535} * i / length;  // more than 32 bits on the way
    signal[2 * length + i] = static_cast<float>(static_cast<std::int32_t>(step) - 32768);
  }
  return signal;
}

/** The library's cascade; in double without its silencing of small outputs. */
template <typename Real>
std::vector<Real> run_sections(const FilterDesign& sections, const std::vector<float>& input) {
  std::vector<Real> y(input.begin(), input.end());
  for (std::size_t k = 0; k < sections.a.size(); k += 3) {
    const Real b0 = static_cast<Real>(sections.b[k]), b1 = static_cast<Real>(sections.b[k + 1]),
               b2 = static_cast<Real>(sections.b[k + 2]), a1 = static_cast<Real>(sections.a[k + 1]),
               a2 = static_cast<Real>(sections.a[k + 2]);
    Real x1 = 0, x2 = 0, y1 = 0, y2 = 0;
    for (Real& sample : y) {
      const Real x0 = sample;
      Real y0 = b0 * x0;
      y0 += b1 * x1 - a1 * y1;
      y0 += b2 * x2 - a2 * y2;
      if (sizeof(Real) == sizeof(float) && std::abs(static_cast<double>(y0)) < 1e-6) y0 = 0;
      x2 = x1;
      x1 = x0;
      y2 = y1;
      y1 = y0;
      sample = y0;
    }
  }
  return y;
}

/** The library's direct form. */
template <typename Real>
std::vector<Real> run_direct(const FilterDesign& design, const std::vector<float>& x) {
  std::vector<Real> b, a, y(x.size());
  for (const double c : design.b) b.push_back(static_cast<Real>(c));
  for (const double c : design.a) a.push_back(static_cast<Real>(c));
  for (std::size_t i = 0; i < x.size(); ++i) {
    Real forward = 0, backward = 0;
    for (std::size_t j = 0; j < b.size() && j <= i; ++j)
      forward += b[j] * static_cast<Real>(x[i - j]);
    for (std::size_t j = 1; j < a.size() && j <= i; ++j) backward += a[j] * y[i - j];
    y[i] = forward - backward;
  }
  return y;
}

template <typename Real>
std::vector<Real> run(const FilterDesign& design, const std::vector<float>& input) {
  return design.kind == FilterDesign::kSections ? run_sections<Real>(design, input)
                                                : run_direct<Real>(design, input);
}

struct Difference {
  double peak = 0.0, rms = 0.0;
};

/** Measures what runs against the design in double. */
class Meter {
 public:
  Meter(const FilterDesign& truth, double radius, Precision precision)
      : truth_(truth), precision_(precision) {
    // Each part is long enough for the slowest pole to ring out; a long numerator costs as much per
    // sample.
    const double rings = 16.0 / std::max(1.0 - radius, 1e-6);
    std::size_t length = 8192;
    while (static_cast<double>(length) < rings && length < 131072) length *= 2;
    while (length > 8192 && length * truth.a.size() > (std::size_t{1} << 23)) length /= 2;
    input_ = test_signal(length);
    wanted_ = run<double>(truth, input_);
  }

  Difference of(const FilterDesign& design) const {
    if (precision_ == Precision::kDouble) return compare(run<double>(design, input_));
    Difference d = compare(run<float>(design, input_));
    // A tone where the rounded coefficients tell most can be further off than noise is.
    for (const double angle : angles_of(truth_)) {
      const double e = 32767.0 * std::abs(response(design, angle) - response(truth_, angle));
      if (std::isfinite(e)) d.peak = std::max(d.peak, e);
    }
    return d;
  }

 private:
  template <typename Real>
  Difference compare(const std::vector<Real>& got) const {
    Difference d;
    double sum = 0.0;
    for (std::size_t i = 0; i < got.size(); ++i) {
      const double e = std::abs(static_cast<double>(got[i]) - wanted_[i]);
      if (!(e <= d.peak)) d.peak = e;
      sum += e * e;
    }
    d.rms = std::sqrt(sum / static_cast<double>(got.size()));
    if (std::isfinite(d.rms)) return d;
    return {std::numeric_limits<double>::infinity(), std::numeric_limits<double>::infinity()};
  }

  FilterDesign truth_;
  Precision precision_;
  std::vector<float> input_;
  std::vector<double> wanted_;
};

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

}  // namespace tool
