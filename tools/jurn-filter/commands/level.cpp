#include "recordings/level.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <optional>

#include "commands/commands.h"
#include "errors.h"
#include "recordings/output_file.h"
#include "report.h"
#include "units.h"

namespace jurn {
namespace {

struct Options {
  std::string input;
  std::string output;  // a CSV file; standard output when empty
  LevelOptions level;
  InputFormat raw;
  CommonOptions common;
};

double decibels(double mean, bool square) {
  return square ? power_to_decibels(mean) : to_decibels(mean);
}

struct CloseFile {
  void operator()(std::FILE* file) const { std::fclose(file); }
};

/** Writes the running mean of each channel's magnitude or square, one row per instant. */
void run_level(const Options& o) {
  AudioReader reader(o.input, 2, o.raw);
  check_length(o.level.length, reader.rate());
  std::optional<OutputFile> output;
  std::unique_ptr<std::FILE, CloseFile> opened;
  if (!o.output.empty()) {
    refuse_overwrite(o.output, {o.input});
    output.emplace(o.output, o.common.overwrite);
    opened.reset(fdopen(dup(output->descriptor()), "w"));
    if (!opened) throw Error(kOutputError, o.output + ": cannot be written");
  }
  std::FILE* csv = opened ? opened.get() : stdout;
  const auto check_written = [&] {
    if (std::fflush(csv) != 0 || std::ferror(csv))
      fail_to_write(o.output.empty() ? "standard output" : o.output, errno, "");
  };

  std::fprintf(csv, "seconds");
  for (int c = 1; c <= reader.channels(); ++c)
    std::fprintf(csv, ",%s_%d,dbfs_%d", o.level.square ? "square" : "magnitude", c, c);
  std::fprintf(csv, "\n");
  const Loudest loudest =
      measure_level(&reader, o.level, [&](double seconds, const std::vector<double>& means) {
        std::fprintf(csv, "%.6f", seconds);
        for (const double mean : means)
          std::fprintf(csv, ",%.9g,%.2f", mean, decibels(mean, o.level.square));
        std::fprintf(csv, "\n");
        if (std::ferror(csv)) check_written();
      });
  check_written();
  if (!output) return;
  output->commit();
  if (!o.common.quiet)
    print(LevelSummary{o.input, o.output, output->is_standard_output(),
                       decibels(loudest.mean, o.level.square), loudest.seconds},
          o.common.json);
}

}  // namespace

void add_level(CLI::App* app, Run* run) {
  const auto o = std::make_shared<Options>();
  CLI::App* level = app->add_subcommand("level", "Measures the level over time");
  level->add_option("IN", o->input, "Recording, mono or stereo")->required();
  level->add_option("OUT", o->output, "CSV file; without it the rows are printed");
  level->add_option("--length", o->level.length, "Samples of the running mean, up to ten seconds")
      ->check(CLI::Range(1, 1 << 30))
      ->capture_default_str();
  level->add_option("--every", o->level.every, "Seconds from row to row")
      ->check(between(1e-6, 1e6))
      ->capture_default_str();
  add_choice<bool>(level, "--of", &o->level.square, "What is averaged: magnitude or square",
                   {{"magnitude", false}, {"square", true}}, "magnitude");
  add_raw(level, &o->raw);
  add_common_options(level, &o->common);
  level->final_callback([=] { *run = [o] { run_level(*o); }; });
  level->footer("Example:\n  jurn-filter level speech.wav level.csv --of square --every 0.02");
}

}  // namespace jurn
