// The subcommands. Each adds itself to the command line; what it was told is in `filter`, or in
// what `run` does, once the command line is parsed.
#pragma once

#include <CLI/CLI.hpp>
#include <functional>

#include "commands/filter.h"

namespace jurn {

void add_fir(CLI::App* app, Filter* filter, Files* files);
void add_iir(CLI::App* app, Filter* filter, Files* files);
void add_sos(CLI::App* app, Filter* filter, Files* files);
void add_eq(CLI::App* app, Filter* filter, Files* files);
void add_average(CLI::App* app, Filter* filter, Files* files);
void add_convolve(CLI::App* app, Filter* filter, Files* files);
void add_binaural(CLI::App* app, Filter* filter, Files* files);
void add_setup(CLI::App* app, Filter* filter, Files* files);

using Run = std::function<void()>;
void add_level(CLI::App* app, Run* run);
void add_response(CLI::App* app, Run* run);
void add_spectrogram(CLI::App* app, Run* run);
void add_export(CLI::App* app, Run* run);
void add_fit(CLI::App* app, Run* run);
void add_live(CLI::App* app, Run* run);

}  // namespace jurn
