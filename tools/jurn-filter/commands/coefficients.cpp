#include "commands/coefficients.h"

#include <cmath>

#include "design/spectrum.h"
#include "design/stability.h"
#include "errors.h"
#include "report.h"
#include "units.h"

namespace tool {

void add_reading(CLI::App* command, ReadingOptions* o) {
  command->add_flag("--normalise", o->normalise,
                    "Scale the filter's largest gain over all frequencies to 0 dB, before --gain");
  add_choice<Format>(command, "--format", &o->format,
                     "Format of the coefficients: numbers (text, CSV), npy, mat, header (C, of "
                     "MATLAB), biquads, equaliser or audio",
                     {{"numbers", Format::kNumbers},
                      {"npy", Format::kNumPy},
                      {"mat", Format::kMatlab},
                      {"header", Format::kHeader},
                      {"biquads", Format::kBiquads},
                      {"equaliser", Format::kEqualiser},
                      {"audio", Format::kAudio}},
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
                         const CoefficientLimit& limit, const ReadingOptions& options, int rate,
                         double gain) {
  const ReadOptions read{kind, limit, options.format, options.variables, rate};
  FilterDesign design = files.all.empty() ? load_design(files.numerator, files.denominator, read)
                                          : load_design(files.all, read);
  warn(check_stability(files.name(), options.negate_a, &design));
  if (options.normalise) {
    const double peak = peak_gain(design);
    if (!(peak > 0.0 && std::isfinite(peak)))
      throw Error(kInputError, files.name() + ": the filter's largest gain is " +
                                   (peak > 0.0 ? "infinite" : "0") +
                                   ", which cannot be scaled to 0 dB");
    scale(&design, 1.0 / peak);
  }
  warn(check_peak(files.name(), design, gain));
  return design;
}

CLI::Option* add_coefficients(CLI::App* command, Filter* filter, DesignOptions* options,
                              const char* description) {
  add_gain(command, filter);
  add_reading(command, &options->reading);
  return command->add_option("-c,--coefficients", options->files.all, description);
}

void add_precision(CLI::App* command, Precision* precision) {
  add_choice<Precision>(command, "--precision", precision,
                        "int16: up to 1250 coefficients; double: up to 201, for 24-bit and float",
                        {{"int16", Precision::kInt16}, {"double", Precision::kDouble}}, "int16");
}

void set_design(Filter* filter, std::shared_ptr<const DesignOptions> options,
                FilterDesign::Kind kind, const CoefficientLimit& limit) {
  filter->also_read = {options->files.all, options->files.numerator, options->files.denominator};
  filter->make_chain = [=, design = std::optional<FilterDesign>(), rate = 0](
                           const Recording& recording, double gain) mutable {
    if (!design || rate != recording.rate) {
      rate = recording.rate;
      design = read_design(options->files, kind, limit, options->reading, rate,
                           from_decibels(filter->gain_db));
    }
    FilterDesign scaled = *design;
    scale(&scaled, gain);
    return chain_of(make_filter(scaled, options->precision, recording.channels, filter->block));
  };
}

}  // namespace tool
