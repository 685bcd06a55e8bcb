#include "recordings/spectrogram.h"

#include "commands/commands.h"
#include "errors.h"
#include "plotting/spectrogram_plot.h"
#include "recordings/output_file.h"
#include "text.h"

namespace jurn {
namespace {

struct SpectrogramOptions {
  std::vector<std::string> recordings;  // one, or before and after
  InputFormat raw;                      // of the first
  std::string picture, csv;             // either may be empty
  bool overwrite = false;
  SpectrogramView view;
};

void run_spectrogram(const SpectrogramOptions& o) {
  for (const std::string* output : {&o.picture, &o.csv})
    if (!output->empty()) refuse_overwrite(*output, o.recordings);
  std::vector<NamedSpectra> analyses;
  for (const std::string& path : o.recordings)
    analyses.push_back(
        {analyse(path, analyses.empty() ? o.raw : InputFormat{}, o.view.window), short_name(path)});
  if (!o.csv.empty()) write_file(o.csv, o.overwrite, tabulate(o.view, analyses));
  if (!o.picture.empty())
    draw(o.picture, o.overwrite, plot_spectrograms(picture_format(o.picture), o.view, analyses));
}

}  // namespace

void add_spectrogram(CLI::App* app, Run* run) {
  const auto o = std::make_shared<SpectrogramOptions>();
  CLI::App* command = app->add_subcommand(
      "spectrogram", "Shows the frequencies of recordings over time, before and after a filter");
  command
      ->add_option("RECORDINGS", o->recordings,
                   "One recording, or two for a common picture: IN and OUT of a filter")
      ->required()
      ->expected(1, 2)
      ->type_name("IN [OUT]");
  command->add_option("-p,--picture", o->picture, "Picture, .png or .svg");
  command->add_option("--csv", o->csv, "File of all values; - for standard output");
  command
      ->add_option("--window", o->view.window, "Samples of a spectrum: a power of 2, 64 to 16384")
      ->check(CLI::IsMember({64, 128, 256, 512, 1024, 2048, 4096, 8192, 16384}).description(""))
      ->capture_default_str();
  command->add_option("--floor", o->view.floor, "Level in dBFS at which the colours begin")
      ->check(between(-190.0, -1.0))
      ->capture_default_str();
  command->add_option("--top", o->view.top, "Highest frequency in Hz; by default half the rate")
      ->check(between(1e-3, 1e9))
      ->default_str("");
  add_overwrite(command, &o->overwrite);
  add_raw(command, &o->raw);
  command->footer(
      "Example:\n  jurn-filter spectrogram speech.wav telephone.wav --picture telephone.png");
  command->final_callback([=] {
    if (o->picture.empty() && o->csv.empty())
      throw Error(kUsageError,
                  "spectrogram takes --picture, a .png or .svg, or --csv for its result");
    picture_format(o->picture);
    *run = [o] { run_spectrogram(*o); };
  });
}

}  // namespace jurn
