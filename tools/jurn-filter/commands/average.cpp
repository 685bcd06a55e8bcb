#include "commands/commands.h"

namespace jurn {

void add_average(CLI::App* app, Filter* filter, Files* files) {
  const auto length = std::make_shared<int>(0);
  CLI::App* average =
      add_filter_command(app, filter, files, "average", "Replaces each sample by a moving average",
                         "average music.flac out.wav --length 64");
  average->add_option("--length", *length, "Samples that are averaged")
      ->required()
      ->check(CLI::Range(1, kMaxAverage));
  average->final_callback([=] {
    filter->make_chain = [=](const Recording& recording, double) {
      return chain_of(make_average(*length, recording.channels, filter->block));
    };
  });
}

}  // namespace jurn
