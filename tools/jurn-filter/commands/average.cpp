#include "commands/commands.h"
#include "errors.h"

namespace jurn {

void add_average(CLI::App* app, Filter* filter, Files* files) {
  constexpr int kLongest = 1 << 24;
  const auto length = std::make_shared<int>(0);
  const auto precision = std::make_shared<Precision>(Precision::kInt16);
  CLI::App* average =
      add_filter_command(app, filter, files, "average", "Replaces each sample by a moving average",
                         "average music.flac out.wav --length 64");
  average
      ->add_option(
          "--length", *length,
          "Samples that are averaged; with --precision int16 up to " + std::to_string(kMaxAverage))
      ->required()
      ->check(CLI::Range(1, kLongest));
  add_choice<Precision>(average, "--precision", precision.get(),
                        "int16, as on a phone; or double, the result rounded to its samples",
                        {{"int16", Precision::kInt16}, {"double", Precision::kDouble}}, "int16");
  average->final_callback([=] {
    if (*precision == Precision::kInt16 && *length > kMaxAverage)
      throw Error(kUsageError, "--length " + std::to_string(*length) +
                                   ": --precision int16 takes up to " +
                                   std::to_string(kMaxAverage));
    filter->make_chain = [=](const Recording& recording, double) {
      return chain_of(make_average(*length, recording.channels, filter->block, *precision));
    };
  });
}

}  // namespace jurn
