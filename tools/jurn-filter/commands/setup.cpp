#include "commands/setup.h"

#include <cmath>
#include <cstdio>

#include "commands/commands.h"
#include "errors.h"
#include "recordings/output_file.h"
#include "report.h"
#include "streams/setup_voice.h"
#include "units.h"

namespace jurn {
namespace {

/** "2 inputs, 4 outputs; largest gains -6.0, 0.0 ... dB; late by 3843 frames" and what else a user
 * wants to know before it plays. */
void say(const std::string& name, const SetupFile& file, const PreparedSetup& prepared) {
  std::string gains;
  for (const double peak : prepared.peak_gain) {
    char text[32];
    std::snprintf(text, sizeof text, peak > 0.0 ? "%.1f" : "none",
                  std::round(10.0 * to_decibels(peak)) / 10.0 + 0.0);
    gains += (gains.empty() ? "" : ", ") + std::string(text);
  }
  note(name + ": " + std::to_string(file.setup.inputs) + " in, " +
       std::to_string(file.setup.outputs()) + " out; largest gains " + gains +
       " dB; it rings on for " + std::to_string(prepared.tail) + " frames");
  for (const std::string& remark : file.remarks) note(name + ": " + remark);
  const int latency = prepared.latency();
  if (latency > 0)
    note(name + ": late by " + std::to_string(latency) +
         " frames where it runs live; they are left out here");
}

/** What a user has to act on. */
void warn_of(const std::string& name, const PreparedSetup& prepared) {
  const int latency = prepared.latency();
  for (std::size_t c = 0; c < prepared.late.size(); ++c)
    if (prepared.late[c] > latency)
      warn(name + ": output " + std::to_string(c) + " is late by " +
           std::to_string(prepared.late[c] - latency) +
           " frames more than another, by its filters of linear phase; a Delay evens it out");
  for (const Notice& notice : prepared.notices)
    notice.is_warning() ? warn(name + ": " + notice.text) : note(name + ": " + notice.text);
}

}  // namespace

std::unique_ptr<Stage> make_setup(const std::string& name, SetupFile file, double gain,
                                  const Recording& recording, bool is_new, bool quiet) {
  const Ends ends{file.setup.inputs, file.setup.outputs()};
  check_channels(name, ends, recording.name, {recording.channels, ends.outputs});
  scale(&file.setup, gain);
  PrepareOptions options;
  options.rate = recording.rate;
  options.result = recording.samples;
  const PreparedSetup prepared = prepare(file.setup, options);
  if (is_new && !quiet) say(name, file, prepared);
  if (is_new) warn_of(name, prepared);
  Format format = format_of(recording);
  format.outputs = ends.outputs;
  return make_stage(make_setup_voice(prepared, format), Precision::kDouble, prepared.latency());
}

void add_setup(CLI::App* app, Filter* filter, Files* files) {
  struct Options {
    std::string file;
    bool no_tail = false;
  };
  const auto o = std::make_shared<Options>();
  CLI::App* setup = add_filter_command(
      app, filter, files, "setup",
      "Runs a whole setup of loudspeakers: filters, delays, gains and mixers per channel",
      "setup song.flac speakers.wav -c two-way.yml");
  setup
      ->add_option("-c,--coefficients", o->file,
                   "Settings of CamillaDSP (YAML): filters, mixers and pipeline; or an equaliser "
                   "of Equalizer APO with lines of Channel")
      ->required();
  add_tail(setup, &o->no_tail);
  add_gain(setup, filter);
  setup->final_callback([=] {
    filter->also_read = {o->file};
    filter->make_chain = [=, said_for = 0](const Recording& recording, double gain) mutable {
      SetupFile file = read_setup(o->file, recording.rate, recording.channels);
      refuse_overwrite(recording.result, file.files);
      std::unique_ptr<Stage> stage =
          make_setup(o->file, std::move(file), gain, recording, said_for != recording.rate,
                     files && files->common.quiet);
      said_for = recording.rate;
      stage->keep_tail = !o->no_tail;
      return chain_of(std::move(stage));
    };
  });
}

}  // namespace jurn
