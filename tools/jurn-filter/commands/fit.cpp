#include "design/fit.h"

#include <cstdio>
#include <memory>

#include "coefficients/measurement.h"
#include "commands/commands.h"
#include "commands/options.h"
#include "recordings/output_file.h"

namespace jurn {
namespace {

struct FitCommand {
  std::string measurement, target, output;
  FitOptions fit;
  std::vector<double> range;
  bool overwrite = false, quiet = false;
};

void run_fit(FitCommand o) {
  if (!o.range.empty()) {
    o.fit.lowest = o.range[0];
    o.fit.highest = o.range[1];
  }
  const Fit fit =
      fit_equaliser(load_measurement(o.measurement),
                    o.target.empty() ? flat_target() : load_measurement(o.target), o.fit);
  refuse_overwrite(o.output, {o.measurement, o.target});
  write_file(o.output, o.overwrite, text_of(fit));
  if (!o.quiet)
    std::fprintf(o.output == kStandardStream ? stderr : stdout, "%s: %s\n", o.output.c_str(),
                 summary_of(fit).c_str());
}

}  // namespace

void add_fit(CLI::App* app, Run* run) {
  const auto o = std::make_shared<FitCommand>();
  CLI::App* command =
      app->add_subcommand("fit", "Fits an equaliser to a measurement, for eq and Equalizer APO");
  command
      ->add_option("MEASUREMENT", o->measurement,
                   "Text of REW, AutoEq and others: a frequency in Hz and a level in dB in each "
                   "line; other columns are passed over")
      ->required();
  command->add_option("OUT", o->output, "Preamp and filters as text; - for standard output")
      ->required();
  command->add_option("--target", o->target,
                      "What it should become, as text of the same kind; by default flat");
  command->add_option("--bands", o->fit.bands, "Peaks and two shelves, at most so many")
      ->check(CLI::Range(1, kMostFitBands))
      ->capture_default_str();
  command->add_option("--most-gain", o->fit.most_gain, "Of a band up and down, in dB")
      ->check(between(0.1, 24.0))
      ->capture_default_str();
  command->add_option("--most-q", o->fit.most_q, "Of a peak: how narrow it may be")
      ->check(between(0.5, 20.0))
      ->capture_default_str();
  command->add_option("--range", o->range, "Where it corrects, in Hz; by default 20,20000")
      ->delimiter(',')
      ->expected(2)
      ->allow_extra_args(false)
      ->type_name("LOW,HIGH");
  command->add_option("--rate", o->fit.rate, "Sampling rate at which the equaliser will run")
      ->check(CLI::Range(1, kMostRate))
      ->capture_default_str();
  add_overwrite(command, &o->overwrite);
  command->add_flag("-q,--quiet", o->quiet, "Say nothing unless there is a problem");
  command->footer(
      "Example:\n  jurn-filter fit headphone.csv bands.txt --target wanted.csv --bands 8");
  command->final_callback([=] { *run = [o] { run_fit(*o); }; });
}

}  // namespace jurn
