// What the subcommands that filter recordings have in common.
#pragma once

#include <CLI/CLI.hpp>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "commands/options.h"
#include "recordings/run.h"

namespace jurn {

/** The recordings of a job and what becomes of them. */
struct Files {
  std::vector<std::string> names;  // IN and OUT, or any number of IN with a folder
  std::string output_dir;
  int jobs = 0;  // recordings at a time, 0 for one per core
  InputFormat raw;
  AudioFormat format;
  std::optional<SampleFormat> bits;
  bool stamp = false;  // shows that of each result
  bool dither = false, fit = false;
  std::uint32_t seed = 1;  // of the dither
  CommonOptions common;
};

/** One filter of a series. */
struct Filter {
  int block = kRecordingBlock;
  double gain_db = 0.0;
  bool takes_gain = false;
  std::vector<std::string> also_read;  // files that the result must not replace
  std::function<Chain(const Recording& recording, double gain)> make_chain;
};

/** A subcommand that filters. Without `files` it follows another one, whose result it filters. */
CLI::App* add_filter_command(CLI::App* app, Filter* filter, Files* files, const char* name,
                             const char* description, const char* example,
                             int most_frames = kMaxBlock);

void add_gain(CLI::App* command, Filter* filter);
void add_tail(CLI::App* command, bool* no_tail);

Chain chain_of(std::unique_ptr<Stage> stage);

/** Filters every recording through all filters. Returns the exit code. */
int run_filters(const Files& files, const std::vector<std::unique_ptr<Filter>>& filters);

}  // namespace jurn
