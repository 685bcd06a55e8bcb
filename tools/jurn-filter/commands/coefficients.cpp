#include "commands/coefficients.h"

#include <cmath>

#include "design/prepare_once.h"
#include "design/spectrum.h"
#include "design/stability.h"
#include "errors.h"
#include "report.h"
#include "units.h"

namespace jurn {

void add_reading(CLI::App* command, ReadingOptions* o) {
  command->add_flag("--normalise", o->normalise,
                    "Scale the filter's largest gain over all frequencies to 0 dB, before --gain");
  add_choice<CoefficientFormat>(
      command, "--format", &o->format,
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
      ->add_option("--variables", o->variables,
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
    FilterDesign scaled = *design;
    scale(&scaled, gain);
    const Prepared prepared = prepare_and_say(name, scaled, *options, recording, is_new);
    return chain_of(make_filter(prepared, recording.channels, filter->block));
  };
}

void set_design(Filter* filter, std::shared_ptr<const DesignOptions> options,
                FilterDesign::Kind kind) {
  set_design(filter, options, options->files.name(), [=](int rate) {
    return read_design(options->files, kind, options->precision, options->reading, rate);
  });
}

}  // namespace jurn
