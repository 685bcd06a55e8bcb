/* What the engine makes of designs, files' contents and audio, boiled down to one number for each
 * part: coefficients, texts, warnings, refusals and samples. Whatever turns a bit of these shows in
 * a line; on every compiler and processor they are the same.
 *
 *   engine_checksum             prints the lines
 *   engine_checksum EXPECTED    names those that differ from the file, exit code 1 */
#include "exact.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "../random.h"
#include "design/by_family.h"
#include "design/equiripple.h"
#include "design/error_meter.h"
#include "design/export.h"
#include "design/export_code.h"
#include "design/fit.h"
#include "design/frequency_response.h"
#include "design/linear_phase.h"
#include "design/roots.h"
#include "design/spectrum.h"
#include "design/stability.h"
#include "design/windowed_fir.h"
#include "elementary.h"
#include "errors.h"
#include "number_text.h"
#include "streams/block_stream.h"
#include "streams/long_filter.h"
#include "streams/rounding.h"
#include "streams/setup_voice.h"
#include "streams/stages.h"
#include "streams/stamp.h"
#include "streams/transposed_form.h"

namespace jurn {
namespace {

/** Takes values of every type. */
class Sum {
 public:
  template <typename... Values>
  void operator()(const Values&... values) {
    (add(values), ...);
  }
  std::string text() const { return stamp_.text().data(); }

 private:
  void add(double x) {
    if (x != x) x = 1e308;  // any of those that are no number
    unsigned char bytes[sizeof x];
    std::uint64_t bits;
    std::memcpy(&bits, &x, sizeof x);
    for (unsigned char& byte : bytes) byte = static_cast<unsigned char>(bits & 0xFF), bits >>= 8;
    stamp_.add(bytes, sizeof bytes);
  }
  void add(const std::complex<double>& z) { (*this)(z.real(), z.imag()); }
  void add(const std::string& text) {
    (*this)(text.size());
    for (const char c : text) add(static_cast<double>(static_cast<unsigned char>(c)));
  }
  void add(const char* text) { add(std::string(text)); }
  template <typename T>
  void add(const std::vector<T>& values) {
    (*this)(values.size());
    for (const T& value : values) add(value);
  }
  void add(const FilterDesign& d) { (*this)(d.kind, d.b, d.a, d.delay, d.prepared.has_value()); }
  void add(const Difference& d) { (*this)(d.peak, d.rms); }
  void add(const Notice& n) { (*this)(n.kind, n.text, n.remedy, n.is_warning()); }
  void add(const Prepared& p) {
    (*this)(static_cast<int>(p.runs), p.design, p.stable, p.pole_radius, p.expected_error,
            p.expected_error_rms, p.tail, p.notices);
  }
  void add(const EqualiserFilter& f) {
    (*this)(static_cast<int>(f.type), f.frequency, f.gain, f.q);
  }
  void add(const FitError& e) { (*this)(about(e.rms), about(e.largest), e.frequency); }
  void add(const Routing& r) {
    (*this)(r.inputs, r.outputs, r.longest());
    for (const Route& route : r.routes) (*this)(route.input, route.output, route.taps);
  }

  Stamp stamp_;

 public:
  /** Of what the C library takes part in: its last digits are not the engine's. */
  static std::string about(double x) {
    return x != x ? "none" : printed("%.6g", std::fabs(x) < 1e-9 ? 0.0 : x);
  }
  static std::vector<std::string> about(const std::vector<double>& values) {
    std::vector<std::string> texts;
    for (const double x : values) texts.push_back(about(x));
    return texts;
  }
};

/** What a function gives, or its refusal. */
template <typename Function>
void attempt(Sum& sum, const Function& function) {
  try {
    function();
  } catch (const Error& error) {
    sum(error.kind, error.what());
  }
}

std::vector<double> reals(Random& random, std::size_t count, double scale = 1.0) {
  std::vector<double> values(count);
  random.uniform(values.data(), static_cast<int>(count), scale);
  return values;
}

/** From least to most, as many of them in every octave. */
double spread(Random& random, double least, double most) {
  return least * elementary::exp(std::fabs(random.real(1.0)) * elementary::log(most / least));
}

EqualiserFilter any_band(Random& random) {
  EqualiserFilter f;
  f.type = static_cast<EqualiserType>(random.in(0, 9));
  f.frequency = spread(random, 20.0, 20000.0);
  f.gain = random.real(15.0);
  f.target_frequency = spread(random, 15.0, 100.0);
  f.target_q = 0.5 + std::fabs(random.real(1.0));
  const bool passes = f.type == EqualiserType::kLowPass || f.type == EqualiserType::kHighPass;
  const bool wide = f.type == EqualiserType::kPeak || f.type == EqualiserType::kNotch ||
                    f.type == EqualiserType::kBandPass;
  if (passes && random.one_in(2)) {
    f.linkwitz_riley = random.one_in(2);
    f.order = f.linkwitz_riley ? 2 * random.in(1, 6) : random.in(1, 12);
  } else if (wide && random.one_in(2)) {
    f.octaves = spread(random, 0.1, 3.0);
  } else if (!passes && !wide && f.type != EqualiserType::kLinkwitzTransform && random.one_in(3)) {
    f.order = 1;
  } else if (wide || f.type == EqualiserType::kAllPass ||
             f.type == EqualiserType::kLinkwitzTransform || random.one_in(2)) {
    f.q = spread(random, 0.3, 12.0);
  }
  return f;
}

FilterDesign any_equaliser(Random& random) {
  std::vector<double> rows;
  for (int bands = random.in(1, 5); bands > 0; --bands)
    append_sections(any_band(random), 48000, &rows);
  return sections_of_rows(rows);
}

FamilyDesign any_family(Random& random) {
  FamilyDesign f;
  f.family = static_cast<Family>(random.in(0, 6));
  const bool fir = f.family >= Family::kWindowed;
  f.order = fir ? random.in(3, 60) : random.in(1, random.one_in(8) ? 30 : 8);
  f.corners.pass = static_cast<Pass>(random.in(0, 3));
  f.corners.low = spread(random, 30.0, 8000.0);
  if (f.corners.pass >= Pass::kBand) f.corners.high = f.corners.low * spread(random, 1.1, 2.4);
  f.ripple = spread(random, 0.01, 3.0);
  f.attenuation = spread(random, 10.0, 100.0);
  f.window = static_cast<Window>(random.in(0, 5));
  f.beta = std::fabs(random.real(12.0));
  f.transition = spread(random, 500.0, 2000.0);
  f.weight = spread(random, 0.1, 10.0);
  return f;
}

/** One direct form instead of sections, one after the other. */
FilterDesign direct_form(const FilterDesign& sections) {
  FilterDesign direct{FilterDesign::kIir, {1.0}, {1.0}};
  const auto multiply = [](std::vector<double>* all, const double* part) {
    std::vector<double> product(all->size() + 2);
    for (std::size_t i = 0; i < all->size(); ++i)
      for (std::size_t k = 0; k < 3; ++k) product[i + k] += (*all)[i] * part[k];
    while (product.size() > 1 && product.back() == 0.0) product.pop_back();
    *all = product;
  };
  for (std::size_t k = 0; k < sections.b.size(); k += 3) {
    multiply(&direct.b, &sections.b[k]);
    multiply(&direct.a, &sections.a[k]);
  }
  return direct;
}

/** What people bring: equalisers, families, direct forms, taps, and some that are spoilt. */
FilterDesign any_design(Random& random, std::size_t most_taps = 6000) {
  const int kind = random.in(0, 9);
  FilterDesign design;
  if (kind < 3) design = any_equaliser(random);
  if (kind >= 3 && kind < 7) {
    FamilyDesign family = any_family(random);
    family.family = static_cast<Family>(random.in(0, 4));
    if (family.order > 6) family.order = 6;
    design = design_of_family(family, 48000);
    if (kind > 4) design = direct_form(design);
  }
  if (kind == 7) {  // of any stability
    const std::size_t order = static_cast<std::size_t>(random.in(1, 5));
    design = {FilterDesign::kIir, reals(random, order + 2), reals(random, order + 1, 0.7)};
    design.a[0] = 1.0;
  }
  if (kind > 7) {
    const int taps = random.one_in(4) ? static_cast<int>(most_taps) : random.in(1, 300);
    design.b = reals(random, static_cast<std::size_t>(taps), 1.0 / taps);
    design.delay = random.in(0, taps / 2);
  }
  if (random.one_in(12)) design.b[0] = 0.0;
  if (random.one_in(12)) scale(&design, spread(random, 1e-7, 1e5));
  if (random.one_in(12)) design.prepared = static_cast<Precision>(random.in(0, 1));
  return design;
}

void elementary_functions(Sum& sum) {
  Random random(1);
  using namespace elementary;
  for (int i = 0; i < 4000; ++i) {
    const double x = spread(random, 1e-9, 1e6) * (i % 3 ? 1.0 : -1.0);
    const double power = random.real(i % 2 ? 30.0 : 800.0);
    const std::complex<double> z(spread(random, 1e-200, 1e200), x);
    sum(sin(x), cos(x), tan(x), exp(power), power_of_ten(0.43 * power), sinh(power),
        log(std::fabs(x)), asinh(x), atan(x), polar(x, power), magnitude(z),
        quotient(z, {power, x}), square_root({x, power}));
  }
  for (const double x : {0.0, -0.0, 1e-320, 0.5, 1.0, 2.0, 709.9, -745.2, 1e300, HUGE_VAL})
    sum(exp(x), exp(-x), sinh(x), log(std::fabs(x)), power_of_ten(x), magnitude({x, -x}),
        quotient({x, 1.0}, {1.0, x}));
  for (int i = -330; i < 320; ++i) sum(power_of_ten(i));
}

void families(Sum& sum) {
  Random random(2);
  for (int i = 0; i < 500; ++i)
    attempt(sum, [&] { sum(design_of_family(any_family(random), i % 2 ? 48000 : 44100)); });
  // Each limit, and just beyond it.
  for (int i = 0; i < 400; ++i) {
    FamilyDesign wrong = any_family(random);
    const int which = i % 8;
    if (which == 0)
      wrong.order = random.one_of({0, 1, 2, 25, 26, 50, 51, 1001, 1002, 32767, 32768});
    if (which == 1) wrong.corners.low = random.one_of({0, -1, 24000, 23999});
    if (which == 2) wrong.corners.high = random.one_of({0, 24000, 23999});
    if (which == 3) wrong.corners.high = wrong.corners.low;
    if (which == 4) wrong.ripple = random.one_of({0, -1, 20});
    if (which == 5) wrong.attenuation = random.one_of({0, -1, 1, 300});
    if (which == 6) wrong.transition = random.one_of({0, -1, 1, 20000});
    if (which == 7) wrong.weight = random.one_of({0, -1, 1000});
    if (wrong.family == Family::kEquiripple && wrong.order > 100 && wrong.order <= 1001) continue;
    attempt(sum, [&] { sum(design_of_family(wrong, 48000)); });
  }
  for (int kind = 0; kind < 6; ++kind)
    for (const std::size_t count : {1u, 2u, 3u, 10u, 33u})
      sum(window(static_cast<Window>(kind), count, 8.6), bessel_i0(0.7 * count));
  const auto optimum = [&](int taps, const std::vector<GainBand>& bands) {
    attempt(sum, [&] { sum(equiripple(taps, bands, 48000)); });
  };
  const std::vector<GainBand> three = {
      {0.0, 2000.0, 0.0}, {3000.0, 6000.0, 1.0, 2.0}, {8000.0, 24000.0, 0.0}};
  for (const int taps : {0, 1, 2, 3, 4, 30, 31, 77, 1002}) optimum(taps, three);
  optimum(21, {{1000.0, 2000.0, 1.0}});
  optimum(21, {{3000.0, 2000.0, 1.0}, {4000.0, 5000.0, 0.0}});
  optimum(21, {{0.0, 2000.0, 1.0}, {1000.0, 5000.0, 0.0}});
  optimum(21, {{0.0, 2000.0, 1.0, 0.0}, {4000.0, 25000.0, 0.0}});
}

void equalisers(Sum& sum) {
  Random random(3);
  for (int i = 0; i < 1000; ++i) {
    std::vector<double> rows{1.0};
    const EqualiserFilter band = any_band(random);
    append_sections(band, 44100, &rows);
    const double zeros = spread(random, 20.0, 20000.0), poles = spread(random, 20.0, 20000.0);
    append_zeros_and_poles(zeros, i % 4 ? 0.7 : 0.0, poles, 1.3, 48000, &rows);
    sum(rows);
  }
  for (int i = 0; i < 60; ++i) {
    EqualiserFilter band = any_band(random);
    band.type = static_cast<EqualiserType>(random.in(3, 5));
    band.linear_phase = true;
    if (band.type == EqualiserType::kBandPass && band.octaves == 0.0) band.q = 1.0;
    band.transition = random.one_in(3) ? 0.0 : spread(random, 400.0, 4000.0);
    if (band.frequency < 300.0) band.frequency = 300.0;
    sum(linear_phase_count(band, 48000), linear_phase_pass(band, 48000));
    const LinearPhaseBand edges = linear_phase_band(band, 48000);
    sum(edges.low, edges.high, edges.transition);
    std::vector<GraphicPoint> points;
    for (double f = 25.0; f < 22000.0; f *= spread(random, 1.2, 4.0))
      points.push_back({f, random.real(12.0)});
    sum(linear_phase_taps(points, i % 2 ? 48000 : 44100, 2 * random.in(1, 300) + 1));
    sum(graphic_taps(random.one_of({8000, 44100, 192000}),
                     i % 2 ? kLiveGraphicTaps : kMostGraphicTaps));
  }
}

void fits(Sum& sum) {
  Random random(4);
  for (int i = 0; i < 3; ++i) {
    std::vector<GraphicPoint> measured, target;
    // The last one so dense that means are taken of some points.
    for (double f = i == 1 ? 900.0 : 15.0; f < 23000.0;
         f *= i == 2 ? spread(random, 1.002, 1.04) : spread(random, 1.05, 1.3))
      measured.push_back(
          {f, random.real(1.0) + 8.0 * elementary::sin(elementary::log(f) * (i + 1))});
    target = {{20.0, 3.0}, {200.0, 0.0}, {20000.0, -2.0 * i}};
    FitOptions options;
    options.bands = 2 + 3 * i;
    options.most_gain = 12.0 - 2.0 * i;
    if (i == 1) options.rate = 32000;
    if (i == 2) options.lowest = 100.0, options.highest = 8000.0, options.most_q = 2.0;
    const auto fit = [&](const std::vector<GraphicPoint>& points, const FitOptions& o) {
      attempt(sum, [&] {
        const Fit f = fit_equaliser(points, target, o);
        sum(f.filters, f.preamp, f.before, f.after, f.frequency, Sum::about(f.measured),
            Sum::about(f.target), Sum::about(f.corrected));
      });
    };
    fit(measured, options);
    if (i > 0) continue;
    const std::function<void(FitOptions*)> alterations[] = {
        [](FitOptions* o) { o->bands = 0; },        [](FitOptions* o) { o->bands = 33; },
        [](FitOptions* o) { o->most_gain = 0.09; }, [](FitOptions* o) { o->most_gain = 24.1; },
        [](FitOptions* o) { o->most_q = 0.49; },    [](FitOptions* o) { o->most_q = 20.1; },
        [](FitOptions* o) { o->lowest = 12000.0; }, [](FitOptions* o) { o->lowest = 30000.0; },
        [](FitOptions* o) { o->highest = 39.9; },   [](FitOptions* o) { o->highest = 40.1; },
        [](FitOptions* o) { o->lowest = 10000.0; }};  // an octave and no more
    for (const auto& alter : alterations) {
      FitOptions beyond = options;
      alter(&beyond);
      fit(measured, beyond);
    }
    for (std::ptrdiff_t few = 0; few < 3; ++few)
      fit({measured.end() - few, measured.end()}, options);
  }
}

void prepared_designs(Sum& sum) {
  Random random(5);
  for (int i = 0; i < 260; ++i) {
    const FilterDesign design = any_design(random);
    PrepareOptions options;
    options.precision = static_cast<Precision>(random.in(0, 2) != 0);
    options.result = static_cast<SampleFormat>(random.in(0, 2));
    options.rate = random.one_of({8000, 48000, 192000});
    options.in_blocks = !random.one_in(3);
    options.as_is = random.one_in(4);
    options.as_sections = random.one_in(4);
    if (!fits(design, options.precision)) options.precision = Precision::kDouble;
    sum(prepare(design, options), prepared_before(design, options),
        fits(design, options.precision));
  }
  for (const std::vector<double>& edge :  // of stability
       {std::vector<double>{1.0, -1.8, 1.0}, {1.0, -2.0, 1.0}, {1.0, -1.0, 0.0}})
    for (const auto kind : {FilterDesign::kIir, FilterDesign::kSections})
      sum(prepare({kind, {1.0, 0.0, 0.0}, edge}),
          check_peak("file", {kind, {1.0, 0.0, 0.0}, edge}, 1.0));
  for (const auto kind : {FilterDesign::kFir, FilterDesign::kIir, FilterDesign::kSections})
    for (const auto precision : {Precision::kInt16, Precision::kDouble}) {
      const CoefficientLimit limit = coefficient_limit(kind, precision);
      sum(limit.count, limit.reason);
      for (int more = 0; more < 2; ++more) {
        const std::size_t each = kind == FilterDesign::kSections ? 3 : 1;
        sum(fits({kind, std::vector<double>(limit.count * each + more), {}}, precision));
        if (each == 3 || kind == FilterDesign::kIir)
          sum(fits({kind, {}, std::vector<double>(limit.count * each + more)}, precision));
      }
    }
}

void responses_and_roots(Sum& sum) {
  Random random(6);
  for (int i = 0; i < 90; ++i) {
    const FilterDesign design = any_design(random, 500);
    const double radius = pole_radius(design);
    sum(Sum::about(radius), design.b.size() <= 30 ? roots(design.b) : roots(design.a));
    if (design.kind != FilterDesign::kFir) {
      const auto sections = paired_sections(design);
      sum(sections ? *sections : design, group_of(design));
      if (sections && radius < 1.0) sum(Sum::about(section_peaks(*sections)));
      if (sections) sum(Sum::about(section_response_at(*sections, 0, 0.3).delay));
    }
    if (design.kind == FilterDesign::kIir && radius < 1.0 && i % 3 == 0)
      sum(error_in_double(design, radius));
    for (const double w : {0.01, 1.0, 3.0}) {
      const ResponsePoint point = response_at(design, w);
      sum(point.value, Sum::about(point.delay));
    }
    if (radius < 1.0) sum(Sum::about(peak_gain(design)), impulse_response(design));
    if (radius < 0.999 && i % 4 == 0) {
      const Response r = respond(design, 48000);
      sum(Sum::about(r.frequency), Sum::about(r.magnitude), Sum::about(r.phase), r.step, r.impulse,
          Sum::about(r.delay), r.has_roots, r.poles.size(), r.zeros.size());
    }
    FilterDesign turned = design;
    for (const std::optional<bool> negate : {std::optional<bool>(), {true}, {false}}) {
      if (random.one_in(2))
        for (std::size_t k = 0; k < turned.a.size(); ++k)
          if (k % group_of(turned) != 0) turned.a[k] = -turned.a[k];
      attempt(sum, [&] { check_signs("file", negate, &turned), sum(turned); });
    }
    sum(check_peak("file", design, 1.0), check_peak("file", design, spread(random, 0.1, 1e4)));
  }
  // Nothing passes a section of zeros.
  const FilterDesign shut{
      FilterDesign::kSections, {0.0, 0.0, 0.0, 1.0, 0.5, 0.0}, {1, 0, 0, 1, 0, 0}};
  sum(paired_sections(shut).has_value());
  for (int i = 0; i < 300; ++i)
    attempt(sum, [&] {
      std::vector<double> b = reals(random, static_cast<std::size_t>(random.in(0, 7)));
      std::vector<double> a = reals(random, static_cast<std::size_t>(random.in(0, 7)));
      if (random.one_in(4)) (random.one_in(2) ? b : a).push_back(random.any_bits<float>());
      if (random.one_in(4) && !a.empty()) a[0] = 0.0;
      sum(checked_design(static_cast<FilterDesign::Kind>(random.in(0, 2)), b, a));
    });
}

void exports(Sum& sum) {
  Random random(7);
  for (int i = 0; i < 60; ++i) {
    const FilterDesign design = any_design(random, 300);
    ExportOptions options;
    options.precision = static_cast<Precision>(random.in(0, 1));
    if (random.one_in(2)) options.name = identifier_of("3 low-pass\xC3\xA9" + std::to_string(i));
    if (random.one_in(2)) options.remark = "one line\nanother one";
    for (int format = 0; format < 4; ++format)
      attempt(sum, [&] { sum(export_design(design, static_cast<ExportFormat>(format), options)); });
    for (int format = 0; format < 3; ++format)
      attempt(sum, [&] { sum(code_of(design, static_cast<CodeFormat>(format), "name", 48000)); });
  }
  for (const std::size_t count : {20u, 21u})  // as many as Web Audio takes, and one more
    for (const bool longer_b : {true, false})
      attempt(sum, [&] {
        FilterDesign design{FilterDesign::kIir, {1.0}, {1.0, 0.5}};
        (longer_b ? design.b : design.a).resize(count);
        sum(code_of(design, CodeFormat::kWebAudio, "name", 48000));
      });
  for (const std::size_t count : {201u, 202u})  // JURN_FLOAT_COEFFICIENTS, and one more
    attempt(sum, [&] {
      const FilterDesign design{FilterDesign::kFir, std::vector<double>(count, 0.5), {}};
      ExportOptions options;
      options.precision = Precision::kDouble;
      sum(export_design(design, ExportFormat::kHeader, options));
    });
  for (const char* const name : {"", "a", "9", "_", "Az09", "-"}) sum(identifier_of(name));
  for (const char* const text :
       {"", "sections, int16 and more", "taps, double", "FIR, int16", "x"}) {
    const std::optional<Mark> mark = parse_mark(text);
    sum(mark ? text_of(*mark) : "none");
  }
  for (const double x : {0.0, -1.5, 1e-300, 123456789.0, 0.1, HUGE_VAL})
    for (const char* const format : {"%.3g", "%.0f", "%g", "%.6f", "%+.2e"})
      sum(printed(format, x), number_text(x), number_text(static_cast<float>(x)));
}

Setup any_setup(Random& random) {
  Setup setup;
  setup.inputs = random.in(1, 3);
  int channels = setup.inputs;
  for (int steps = random.in(0, 6); steps > 0; --steps) {
    SetupStep step{};
    step.kind = static_cast<SetupStep::Kind>(random.in(0, 3));
    step.name = "step " + std::to_string(random.in(1, 3));
    for (int c = 0; c < channels; ++c)
      if (!random.one_in(3)) step.channels.push_back(c);
    if (step.kind == SetupStep::kMixer) {
      step.channels.clear();
      step.outputs = random.in(1, 4);
      for (int routes = random.in(0, 6); routes > 0; --routes)
        step.routes.push_back(
            {random.in(0, channels - 1), random.in(0, step.outputs - 1), random.real(1.0)});
      channels = step.outputs;
    }
    if (step.kind == SetupStep::kFilter) do
        step.design = any_design(random, 100);
      while (pole_radius(step.design) >= 1.0);
    if (step.kind == SetupStep::kDelay) step.delay = random.in(0, 300);
    if (step.kind == SetupStep::kGain) step.gain = random.real(2.0);
    setup.steps.push_back(step);
  }
  return setup;
}

/** Runs a stream in calls of any length, as any type of samples. */
void run(Sum& sum, Random& random, Stream& stream, int calls) {
  const Format& format = stream.format();
  const int block = stream.voice().block() > 1 || stream.changing() ? format.block : 1;
  const std::size_t inputs = static_cast<std::size_t>(format.inputs);
  const std::size_t outputs = static_cast<std::size_t>(format.outputs);
  for (; calls > 0; --calls) {
    const std::size_t frames = static_cast<std::size_t>(block * random.in(1, block == 1 ? 900 : 6));
    std::vector<double> in = reals(random, frames * inputs, format.full_scale),
                        out(frames * outputs);
    if (random.one_in(8)) in[frames / 2] = random.one_in(2) ? kNaN : HUGE_VAL;
    if (random.one_in(6)) std::fill(in.begin(), in.end(), 0.0);
    if (random.one_in(3)) {
      std::vector<float> narrow(in.begin(), in.end()), result(out.size());
      stream.process(narrow.data(), static_cast<int>(frames), result.data());
      out.assign(result.begin(), result.end());
    } else if (random.one_in(3) && format.full_scale > 1.0) {
      std::vector<short> rounded(in.size()), result(out.size());
      std::int64_t clipped = 0;
      to_int16(in.data(), in.size(), rounded.data(), &clipped);
      stream.process(rounded.data(), static_cast<int>(frames), result.data());
      out.assign(result.begin(), result.end());
    } else if (random.one_in(2)) {
      std::vector<const double*> from;
      std::vector<double*> to;
      for (std::size_t c = 0; c < inputs; ++c) from.push_back(&in[c * frames]);
      for (std::size_t c = 0; c < outputs; ++c) to.push_back(&out[c * frames]);
      stream.process(from.data(), static_cast<int>(frames), to.data());
    } else {
      stream.process(in.data(), static_cast<int>(frames), out.data());
    }
    sum(out, stream.changing(), stream.tail(), stream.bad_samples());
  }
}

std::unique_ptr<Voice> any_voice(Random& random, const Format& format) {
  const Precision precision = static_cast<Precision>(random.in(0, 1));
  const bool square = format.inputs == format.outputs;
  switch (square ? random.in(0, 5) : random.in(0, 1)) {
    case 0: {
      Routing routing{format.inputs, format.outputs, {}};
      for (int routes = random.in(1, 4); routes > 0; --routes)
        routing.routes.push_back({random.in(0, format.inputs - 1), random.in(0, format.outputs - 1),
                                  reals(random, static_cast<std::size_t>(random.in(1, 700)), 0.1)});
      if (random.one_in(2)) add_input(&routing, 0.5);
      const int longest = std::max(routing.longest(), random.one_of({1, 300, 5000}));
      return make_convolution(routing, longest, precision, format);
    }
    case 1:
      return make_wire(format);
    case 2:
      return make_mean(random.one_of({1, 2, 3, 50, 2156}), precision, format);
    case 3: {
      PrepareOptions options;
      options.rate = format.rate;
      Setup setup;
      do setup = any_setup(random);
      while (setup.inputs != format.inputs || setup.outputs() != format.outputs);
      return make_setup_voice(prepare(setup, options), format);
    }
    default:
      PrepareOptions options;
      options.precision = precision;
      options.in_blocks = format.block > 1;
      FilterDesign design;
      do design = any_design(random, 400);
      while (pole_radius(design) >= 1.0);
      options.as_is = random.one_in(2);
      return make_voice(options.as_is ? prepared_before(design, options) : prepare(design, options),
                        format);
  }
}

void streams(Sum& sum) {
  for (unsigned seed = 0; seed < 120; ++seed) {
    Random random(seed);
    Format format;
    format.rate = random.one_of({44100, 48000});
    format.inputs = random.in(1, 3);
    format.outputs = random.one_in(3) ? random.in(1, 3) : format.inputs;
    format.block = random.one_of({16, 48, 64, 600});
    format.full_scale = random.one_in(2) ? 1.0 : 32768.0;
    format.history = random.one_of({0, 2000, 20000});
    format.is_live = random.one_in(2);
    auto stream = std::make_unique<Stream>(format, any_voice(random, format));
    sum(static_cast<int>(stream->voice().kind()), stream->voice().memory(),
        stream->voice().block());
    for (int changes = random.in(1, 5); changes > 0; --changes) {
      run(sum, random, *stream, random.in(0, 6));
      if (format.history > 0)
        stream->change(
            std::make_unique<Change>(any_voice(random, format), changes % 2 ? 2000 : 90));
      run(sum, random, *stream, random.in(0, 6));
      if (random.one_in(5)) stream->reset();
      if (random.one_in(3)) {
        const std::size_t frames = static_cast<std::size_t>(format.block / 2);
        const auto in =
            reals(random, frames * static_cast<std::size_t>(format.inputs), format.full_scale);
        std::vector<double> ahead(frames * static_cast<std::size_t>(format.outputs));
        stream->preview(in.data(), static_cast<int>(frames), ahead.data());
        sum(ahead);
      }
      if (random.one_in(3))
        attempt(sum, [&] {
          StateBytes to;
          stream->store(&to);
          const std::string bytes = to.sealed("stream");
          StateBytes from(bytes, "stream");
          stream = std::make_unique<Stream>(&from, random.one_in(2) ? &format : nullptr);
        });
      if (random.one_in(4)) attempt(sum, [&] { stream = std::make_unique<Stream>(*stream); });
    }
    run(sum, random, *stream, 3);
    int retired = 0;
    Change* const all = stream->take_retired();
    for (Change* old = all; old; old = old->next) ++retired;
    free_changes(all);
    sum(retired);
  }
}

void setups(Sum& sum) {
  for (unsigned seed = 0; seed < 60; ++seed) {
    Random random(seed);
    Setup setup = any_setup(random);
    if (random.one_in(3)) scale(&setup, random.one_in(2) ? 1.0 : 0.5);
    PrepareOptions options;
    options.precision = static_cast<Precision>(random.in(0, 1));
    const PreparedSetup prepared = prepare(setup, options);
    sum(prepared.setup.steps.size(), prepared.filters, prepared.late,
        Sum::about(prepared.peak_gain), prepared.tail, prepared.notices, prepared.latency());
    for (const SetupStep& step : prepared.setup.steps) sum(step.name, step.channels, step.design);

    const StreamFormat running{48000, setup.inputs, setup.outputs(), 0, seed % 2 == 0};
    const Format format = engine_format(running, random.one_of({1, 64}), 2000);
    HandOver<OfferedFilter> offers;
    std::vector<std::string> warnings;
    const auto offer = [&] {
      auto offered =
          offer_setup(setup, format, static_cast<SampleFormat>(seed % 3), "file", &warnings);
      offered->made_for = running;
      offered->made_for.block = format.block;
      return offered;
    };
    if (format.block == 1)
      for (SetupStep& step : setup.steps)
        step.design.b.resize(std::min<std::size_t>(step.design.b.size(), 60));
    BlockStream stream(&offers, offer());
    const std::size_t inputs = static_cast<std::size_t>(setup.inputs);
    for (int call = 0; call < 12; ++call) {
      if (call == 5) scale(&setup, 0.5), offers.offer(offer());
      if (call == 10) stream.reset();
      const std::size_t frames = static_cast<std::size_t>(random.in(1, 300));
      std::vector<std::vector<float>> in(inputs), out(static_cast<std::size_t>(setup.outputs()));
      std::vector<const float*> from;
      std::vector<float*> to;
      for (auto& channel : in) {
        channel.resize(frames);
        random.uniform(channel.data(), static_cast<int>(frames), 1.0);
        from.push_back(channel.data());
      }
      for (auto& channel : out) channel.resize(frames), to.push_back(channel.data());
      stream.process(from.data(), static_cast<int>(frames), to.data());
      sum(out, stream.latency());
    }
    sum(warnings);
  }
}

/** A stage from a recording's first frame to its last. */
void run(Sum& sum, Random& random, Stage& stage) {
  stage.keep_latency = random.one_in(2);
  stage.keep_tail = random.one_in(2);
  if (stage.is_int16 && random.one_in(2)) stage.dither = std::make_unique<Dither>(7);
  std::vector<double> out{0.5, 0.25};  // what is there stays
  for (int calls = random.in(0, 9); calls > 0; --calls) {
    const std::size_t frames = static_cast<std::size_t>(random.in(0, 3000));
    stage.push(reals(random, frames * static_cast<std::size_t>(stage.channels_in),
                     random.one_in(4) ? 1e5 : 3e4)
                   .data(),
               frames, &out);
  }
  while (stage.finish(&out)) sum(out.size());
  sum(out, stage.channels_out, stage.is_int16, stage.latency, stage.delay, stage.tail,
      stage.added(), stage.input_clipped, stage.clipped, stage.lost_after);
}

void stages(Sum& sum) {
  for (unsigned seed = 0; seed < 60; ++seed) {
    Random random(seed);
    Format format;
    format.rate = 48000;
    format.inputs = random.in(1, 2);
    format.outputs = random.one_in(3) ? random.in(1, 3) : format.inputs;
    format.is_live = false;
    format.block = random.one_of({64, 256, 3000});
    std::int64_t due = random.in(0, 2000);
    NextFilter next;
    if (random.one_in(2))
      next = [&](std::int64_t first, int frames) -> std::unique_ptr<Change> {
        if (first < due) return nullptr;
        sum(first, frames);
        due = first + random.in(1, 5000);
        return std::make_unique<Change>(any_voice(random, format), 500);
      };
    const Precision precision = static_cast<Precision>(seed % 2);
    const std::unique_ptr<Stage> stage =
        make_stage(any_voice(random, format), precision, seed % 3 ? 0 : 10, next);
    run(sum, random, *stage);
  }
  // What leaves the numbers, at once or later.
  for (const FilterDesign& lost : {FilterDesign{FilterDesign::kFir, {1e300}, {}},
                                   FilterDesign{FilterDesign::kIir, {1.0}, {1.0, -1.5}}})
    for (const Precision precision : {Precision::kDouble, Precision::kInt16}) {
      Random random(1);
      Format format;
      PrepareOptions options;
      options.precision = precision;
      const Prepared prepared = prepared_before(lost, options);
      if (!std::isfinite(prepared.design.b[0])) continue;  // no float
      run(sum, random, *make_stage(make_voice(prepared, format), precision));
    }
  for (unsigned seed = 0; seed < 60; ++seed) {
    Random random(seed);
    LongFilter filter;
    filter.wiring = static_cast<Wiring>(random.in(0, 4));
    filter.time_domain = random.one_in(2);
    const std::size_t taps = static_cast<std::size_t>(random.one_of({1, 2, 100, 128, 1000}));
    const auto response = [&](std::size_t channels) {
      ImpulseResponse all;
      while (all.size() < channels)
        all.push_back(reals(random, taps, 3.0 / static_cast<double>(taps)));
      return all;
    };
    filter.response = response(static_cast<std::size_t>(random.in(1, random.one_in(8) ? 3 : 2)));
    ImpulseResponse other = response(filter.response.size());
    if (random.one_in(2))
      filter.change = [&](std::int64_t first, int frames) {
        sum(first, frames);
        return random.one_in(3) ? &other : nullptr;
      };
    attempt(sum, [&] {
      const int channels = random.in(1, random.one_in(8) ? 3 : 2);
      const auto stage =
          make_long_filter(filter, channels, random.one_of({1, 100, 256, 1056}), "file");
      run(sum, random, *stage);
    });
  }
}

void routings(Sum& sum) {
  Random random(8);
  for (int channels = 1; channels <= 5; ++channels)
    for (int inputs = 1; inputs <= 5; ++inputs)
      for (int wiring = 0; wiring < 5; ++wiring)
        attempt(sum, [&] {
          for (const Connection& c :
               connections(channels, static_cast<Wiring>(wiring), inputs, "file"))
            sum(c.input, c.output, c.channel);
          ImpulseResponse response;
          for (int c = 0; c < channels; ++c) response.push_back(reals(random, 20));
          scale(&response, 0.7);
          Routing routing = connect(response, static_cast<Wiring>(wiring), inputs, "file");
          add_input(&routing, wiring ? 0.3 : 0.0);
          sum(routing);
          normalise(&routing, "file");
          scale(&routing, 1.5);
          for (const Route& route : routing.routes) sum(Sum::about(route.taps));
        });
  for (int i = 0; i < 81; ++i)
    attempt(sum, [&] {
      check_channels("file", {1 + i % 3, 1 + i / 3 % 3}, "the stream", {1 + i / 9 % 3, 1 + i / 27});
      sum("fits");
    });
  Routing silent{1, 1, {{0, 0, {0.0, 0.0}}}};
  attempt(sum, [&] { normalise(&silent, "file"), sum(silent); });
}

void simple_streams(Sum& sum) {
  for (unsigned seed = 0; seed < 60; ++seed) {
    Random random(seed);
    const int channels = random.in(1, 5);
    PrepareOptions options;
    options.precision = Precision::kInt16;
    FilterDesign design;
    do design = prepare(any_design(random, 400), options).design;
    while (pole_radius(design) >= 1.0);
    LiveFilter first = random.one_in(3) ? LiveFilter(random.one_of({1, 2, 777}), channels)
                                        : LiveFilter(design, channels);
    const TransposedForm form(design);
    std::vector<double> state = reals(random, form.states());
    std::unique_ptr<LiveFilter> live = std::make_unique<LiveFilter>(first);
    for (int call = 0; call < 8; ++call) {
      const int frames = random.in(1, 1500);
      std::vector<short> samples(static_cast<std::size_t>(frames * channels));
      random.signal(samples.data(), frames * channels);
      live->process(samples.data(), frames, samples.data());
      std::vector<double> x(samples.begin(), samples.end());
      form.run(x.data(), frames, x.data(), state.data());
      sum(samples, x, state, live->is_lost());
      if (random.one_in(4)) live = std::make_unique<LiveFilter>(*live);
      if (random.one_in(4)) live->reset();
    }
  }
  Random random(9);
  Dither dither(3);
  std::int64_t clipped = 0;
  std::vector<double> x = reals(random, 5000, 33000.0);
  for (const double edge : {32766.5, 32767.0, 32767.5, -32768.0, -32768.5, -32769.0, 0.5, 1.5})
    x.push_back(edge);
  const std::vector<float> narrow(x.begin(), x.end());
  std::vector<short> out(x.size());
  for (Dither* const noise : {static_cast<Dither*>(nullptr), &dither}) {
    to_int16(x.data(), x.size(), out.data(), &clipped, noise);
    sum(out, clipped);
    to_int16(narrow.data(), x.size(), out.data(), &clipped, noise);
    sum(out, clipped);
  }
}

const struct {
  const char* name;
  void (*run)(Sum&);
} kParts[] = {{"elementary", elementary_functions},  // the quick ones first
              {"families", families},
              {"equalisers", equalisers},
              {"exports", exports},
              {"routings", routings},
              {"simple_streams", simple_streams},
              {"streams", streams},
              {"prepared", prepared_designs},
              {"fits", fits},
              {"setups", setups},
              {"stages", stages},
              {"responses", responses_and_roots}};

}  // namespace
}  // namespace jurn

int main(int argc, char** argv) {
  std::ifstream expected;
  if (argc > 1) expected.open(argv[1]);
  int differing = 0;
  for (const auto& part : jurn::kParts) {
    jurn::Sum sum;
    part.run(sum);
    const std::string line = std::string(part.name) + " " + sum.text();
    std::string wanted;
    if (argc > 1 && std::getline(expected, wanted) && wanted == line) continue;
    std::puts(line.c_str());
    if (argc > 1) ++differing;
    if (differing > 0 && std::getenv("GTEST_FAIL_FAST")) break;
  }
  if (differing > 0) std::printf("%d parts differ from %s\n", differing, argv[1]);
  return differing > 0;
}
