#include "commands/coefficients.h"

#include <algorithm>
#include <cmath>

#include "coefficients/parse.h"
#include "design/prepare_once.h"
#include "design/spectrum.h"
#include "design/stability.h"
#include "errors.h"
#include "recordings/zero_phase.h"
#include "report.h"
#include "units.h"

namespace jurn {

void add_reading(CLI::App* command, ReadingOptions* o) {
  command->add_flag("--normalise", o->normalise,
                    "Scale the filter's largest gain over all frequencies to 0 dB, before --gain");
  add_format(command, &o->format, &o->variables);
}

void add_format(CLI::App* command, CoefficientFormat* format, std::vector<std::string>* variables) {
  add_choice<CoefficientFormat>(
      command, "--format", format,
      "Format of the coefficients: numbers (text, CSV), named (Octave, .fcf, "
      "assignments), single (h[0] = ...), npy, npz, mat, json, header (C, of MATLAB), "
      "biquads, equaliser, camilla (YAML), rew (impulse response), audio, or taps "
      "without a header: S16LE, S24LE3, S24LE, S32LE, FLOAT32LE, FLOAT64LE",
      {{"numbers", CoefficientFormat::kNumbers},
       {"named", CoefficientFormat::kNamed},
       {"npy", CoefficientFormat::kNumPy},
       {"mat", CoefficientFormat::kMatlab},
       {"header", CoefficientFormat::kHeader},
       {"biquads", CoefficientFormat::kBiquads},
       {"equaliser", CoefficientFormat::kEqualiser},
       {"single", CoefficientFormat::kScalars},
       {"npz", CoefficientFormat::kNumPyArchive},
       {"json", CoefficientFormat::kJson},
       {"camilla", CoefficientFormat::kCamilla},
       {"rew", CoefficientFormat::kRewResponse},
       {"audio", CoefficientFormat::kAudio},
       {"S16LE", CoefficientFormat::kRawS16},
       {"S24LE3", CoefficientFormat::kRawS24In3},
       {"S24LE", CoefficientFormat::kRawS24In4},
       {"S32LE", CoefficientFormat::kRawS32},
       {"FLOAT32LE", CoefficientFormat::kRawFloat32},
       {"FLOAT64LE", CoefficientFormat::kRawFloat64}},
      "by content");
  command
      ->add_option("--variables", *variables,
                   "Names of a .mat file's or header's arrays: taps; b,a; or sections,gain")
      ->delimiter(',')
      ->allow_extra_args(false);
}

void add_signs(CLI::App* command, ReadingOptions* o) {
  CLI::Option* negate = command->add_flag_callback(
      "--negate-a", [o] { o->negate_a = true; },
      "Turn the signs of the feedback coefficients, for files of programs that add the feedback");
  command
      ->add_flag_callback(
          "--keep-a", [o] { o->negate_a = false; },
          "Run a filter whose signs look negated as it is")
      ->excludes(negate);
}

FilterDesign read_design(const CoefficientFiles& files, FilterDesign::Kind kind,
                         Precision precision, const ReadingOptions& options, int rate) {
  const ReadOptions read{kind, filter_limits(precision), options.format, options.variables, rate};
  FilterDesign design = files.all.empty() ? load_design(files.numerator, files.denominator, read)
                                          : load_design(files.all, read);
  check_signs(files.name(), options.negate_a, &design);
  if (options.normalise) normalise(files.name(), &design);
  return design;
}

void normalise(const std::string& name, std::vector<FilterDesign>* chain) {
  const double peak = peak_gain(*chain);
  if (!(peak > 0.0 && std::isfinite(peak)))
    throw Error(kInputError, name + ": the filter's largest gain is " +
                                 (peak > 0.0 ? "infinite" : "0") +
                                 ", which cannot be scaled to 0 dB");
  scale(&(*chain)[0], 1.0 / peak);
}

void normalise(const std::string& name, FilterDesign* design) {
  std::vector<FilterDesign> chain = {std::move(*design)};
  normalise(name, &chain);
  *design = std::move(chain[0]);
}

CLI::Option* add_coefficients(CLI::App* command, Filter* filter, DesignOptions* options,
                              const char* description) {
  add_gain(command, filter);
  add_reading(command, &options->reading);
  return command->add_option("-c,--coefficients", options->files.all, description);
}

void add_precision(CLI::App* command, DesignOptions* o) {
  add_choice<Precision>(
      command, "--precision", &o->precision,
      "double, the result rounded to its samples; or int16: 16 bits in and out and float inside, "
      "as on a phone",
      {{"int16", Precision::kInt16}, {"double", Precision::kDouble}}, "double");
}

void add_preparation(CLI::App* command, DesignOptions* o) {
  add_precision(command, o);
  add_as_is(command, o);
}

void add_as_is(CLI::App* command, DesignOptions* o) {
  command->add_flag("--as-is", o->as_is,
                    "Run the coefficients as they are: sections neither scaled nor ordered, a "
                    "direct form as such");
}

void add_ends(CLI::App* command, DesignOptions* o) {
  CLI::Option* tail = command->add_flag("--tail", o->tail,
                                        "End when the filter has rung out, not with the recording");
  CLI::Option* align =
      command->add_flag("--align", o->align, "Take the delay of symmetric taps away");
  command
      ->add_flag("--zero-phase", o->zero_phase,
                 "Forward and backward: nothing is late, and the filter's decibels count twice, "
                 "those of --gain once")
      ->excludes(tail)
      ->excludes(align);
}

/** Frames by which symmetric taps are late; between two frames, the earlier one. */
static int delay_of(const std::string& name, const FilterDesign& design) {
  const auto is_tap = [](double x) { return x != 0.0; };
  const auto first = std::find_if(design.b.begin(), design.b.end(), is_tap);
  const auto last = std::find_if(design.b.rbegin(), design.b.rend(), is_tap).base();
  double largest = 0.0, odd = 0.0, even = 0.0;
  for (auto low = first, high = last; low < high; ++low) {
    --high;
    largest = std::max({largest, std::abs(*low), std::abs(*high)});
    even = std::max(even, std::abs(*low - *high));
    odd = std::max(odd, std::abs(*low + *high));
  }
  if (design.kind != FilterDesign::kFir || first == design.b.end() ||
      std::min(even, odd) > 1e-6 * largest)
    throw Error(kUsageError, name +
                                 ": has no symmetric taps, whose delay --align could take away; "
                                 "--zero-phase takes away that of any filter");
  const auto twice = (first - design.b.begin()) + (last - design.b.begin()) - 1;
  if (twice % 2)
    note(name + ": has a delay of " + shown(0.5 * static_cast<double>(twice)) +
         " frames, half a frame of which stays");
  return static_cast<int>(twice / 2);
}

/** Says what preparing a filter found, with the option that helps. */
static void say(const std::string& name, const Prepared& prepared, bool as_sections) {
  for (const Notice& notice : prepared.notices) {
    const std::string text = name + ": " + notice.text;
    if (notice.kind == Notice::kScaled)
      note(text + "; --as-is keeps them");
    else if (notice.kind == Notice::kFactored)
      note(text + (as_sections ? "" : "; --as-is keeps the direct form"));
    else
      warn(text + (notice.remedy == Notice::kInDouble  ? "; --precision double avoids it"
                   : notice.remedy == Notice::kNotAsIs ? "; without --as-is it may be mended"
                                                       : ""));
  }
}

Prepared prepare_and_say(const std::string& name, const FilterDesign& design,
                         const DesignOptions& options, const Recording& recording, bool is_new) {
  PrepareOptions preparation;
  preparation.precision = options.precision;
  preparation.result = recording.samples;
  preparation.rate = recording.rate;
  preparation.in_blocks = !options.time_domain;
  preparation.as_is = options.as_is;
  preparation.as_sections = options.as_sections;
  Prepared prepared = *prepare_once(design, preparation);
  if (is_new) say(name, prepared, options.as_sections);
  return prepared;
}

std::unique_ptr<Stage> make_filter(const std::string& name, FilterDesign design, double gain,
                                   const DesignOptions& options, const Recording& recording,
                                   bool is_new) {
  if (options.align && design.delay == 0) design.delay = delay_of(name, design);
  scale(&design, options.zero_phase ? std::sqrt(gain) : gain);
  const Prepared prepared = prepare_and_say(name, design, options, recording, is_new);
  const Format format = format_of(recording);
  const auto run = [&] {
    return make_stage(make_voice(prepared, format), options.precision, design.delay);
  };
  std::unique_ptr<Stage> stage = options.zero_phase ? make_zero_phase(run(), run()) : run();
  stage->keep_tail = options.tail;
  return stage;
}

void set_design(Filter* filter, std::shared_ptr<const DesignOptions> options,
                const std::string& name, std::function<FilterDesign(int rate)> read) {
  filter->also_read = {options->files.all, options->files.numerator, options->files.denominator};
  filter->make_chain = [=, design = std::optional<FilterDesign>(), rate = 0](
                           const Recording& recording, double gain) mutable {
    const bool is_new = !design || rate != recording.rate;
    if (is_new) {
      rate = recording.rate;
      design = read(rate);
    }
    return chain_of(make_filter(name, *design, gain, *options, recording, is_new));
  };
}

void set_design(Filter* filter, std::shared_ptr<const DesignOptions> options,
                FilterDesign::Kind kind) {
  set_design(filter, options, options->files.name(), [=](int rate) {
    return read_design(options->files, kind, options->precision, options->reading, rate);
  });
}

}  // namespace jurn
