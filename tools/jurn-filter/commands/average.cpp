#include "commands/coefficients.h"
#include "commands/commands.h"
#include "errors.h"

namespace jurn {

constexpr int kLongestMean = 1 << 24;

void add_average(CLI::App* app, Filter* filter, Files* files) {
  const auto length = std::make_shared<int>(0);
  const auto o = std::make_shared<DesignOptions>();
  CLI::App* average =
      add_filter_command(app, filter, files, "average", "Replaces each sample by a moving average",
                         "average music.flac out.wav --length 64");
  average
      ->add_option(
          "--length", *length,
          "Samples that are averaged; with --precision int16 up to " + std::to_string(kMaxAverage))
      ->required()
      ->check(CLI::Range(1, kLongestMean));
  add_precision(average, o.get());
  average->final_callback([=] {
    if (o->precision == Precision::kInt16 && *length > kMaxAverage)
      throw Error(kUsageError, "--length " + std::to_string(*length) +
                                   ": --precision int16 takes up to " +
                                   std::to_string(kMaxAverage));
    filter->make_chain = [=](const Recording& recording, double) {
      return chain_of(
          make_stage(make_mean(*length, o->precision, format_of(recording)), o->precision));
    };
  });
}

}  // namespace jurn
