#include "commands/filter.h"

#include <algorithm>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <map>
#include <set>
#include <thread>

#include "errors.h"
#include "recordings/in_order.h"
#include "recordings/signals.h"
#include "report.h"
#include "units.h"

namespace jurn {
namespace {

using Filters = std::vector<std::unique_ptr<Filter>>;

/** What every subcommand that writes a recording takes. */
void add_files(CLI::App* command, Files* files) {
  command
      ->add_option("FILES", files->names,
                   "IN and OUT; with --output-dir any number of IN. IN is a recording in any "
                   "format of libsndfile; the ending of OUT's name chooses the "
                   "format; - is standard input or output")
      ->required()
      ->type_name("IN OUT");
  command
      ->add_option("--output-dir", files->output_dir,
                   "Folder for the results, which keep the names of their recordings")
      ->type_name("FOLDER");
  command
      ->add_option("--jobs", files->jobs,
                   "Recordings that --output-dir filters at a time; by default one per core")
      ->check(CLI::Range(1, 1024))
      ->type_name("N");
  command
      ->add_option("--type", files->format.type,
                   "Format of the result, whatever the name: wav, flac, raw, ogg ...; on standard "
                   "output by default wav")
      ->check(
          CLI::IsMember(audio_types()).description("").name(CLI::detail::join(audio_types(), " ")))
      ->type_name("NAME");
  add_choice<SampleFormat>(
      command, "--bits", &files->bits, "Samples of the result: 16, 24 or float",
      {{"16", SampleFormat::kInt16}, {"24", SampleFormat::kInt24}, {"float", SampleFormat::kFloat}},
      "those of the recording, as far as the filter and the format of the result keep them");
  CLI::Option* dither = command->add_flag("--dither", files->dither,
                                          "Add noise where more bits are rounded to fewer");
  command->add_option("--seed", files->seed, "Of other noise; the same seed makes the same noise")
      ->needs(dither)
      ->type_name("N")
      ->capture_default_str();
  command->add_flag(
      "--stamp", files->stamp,
      "Show the CRC-32 of the result's samples, as the web page does: the same stamp, "
      "the same samples");
  command->add_flag("--fit", files->fit,
                    "Take the gain that the summary would propose where the result clips");
  add_raw(command, &files->raw);
  add_common_options(command, &files->common);
}

/** All filters in series as one job, whose gain is that of the first filter that takes one. */
Job connect(const Filters& filters) {
  Job job;
  std::size_t gained = 0;
  while (gained + 1 < filters.size() && !filters[gained]->takes_gain) ++gained;
  job.gain_db = filters[gained]->gain_db;
  job.takes_gain = filters[gained]->takes_gain;
  if (filters.size() > 1) job.gain_of = static_cast<int>(gained) + 1;
  for (const std::unique_ptr<Filter>& filter : filters)
    job.also_read.insert(job.also_read.end(), filter->also_read.begin(), filter->also_read.end());
  job.make_chain = [&filters, gained](Recording recording, double gain) {
    Chain chain;
    for (std::size_t i = 0; i < filters.size(); ++i) {
      const Filter& filter = *filters[i];
      const double own = from_decibels(filter.gain_db);
      for (std::unique_ptr<Stage>& stage : filter.make_chain(recording, i == gained ? gain : own)) {
        recording.channels = stage->channels_out;
        if (stage->is_int16) recording.samples = SampleFormat::kInt16;
        if (recording.frames) recording.frames += stage->added();
        chain.push_back(std::move(stage));
      }
      recording.name = "the result of filter " + std::to_string(i + 1);
    }
    return chain;
  };
  return job;
}

/** Runs a job and shows how far it has come. */
Summary run_shown(Job job, bool quiet) {
  ProgressLine line;
  if (!quiet) job.on_progress = [&line](const Progress& p) { line.show(p); };
  const Summary summary = run(job);
  if (summary.lost_after) warn(summary.output + ": " + loss_of(summary));
  return summary;
}

/** The names of the results in a folder. */
std::vector<std::string> name_results(const Files& files) {
  namespace fs = std::filesystem;
  std::map<std::string, std::string> results;
  std::vector<std::string> names;
  for (const std::string& input : files.names) {
    fs::path name = fs::path(input).filename();
    if (input == kStandardStream || name.empty())
      throw Error(kUsageError, input + ": --output-dir takes recordings that have names");
    if (!files.format.type.empty()) name.replace_extension(files.format.type);
    names.push_back((fs::path(files.output_dir) / name).string());
    const auto [other, is_new] = results.emplace(names.back(), input);
    if (!is_new)
      throw Error(kUsageError, input + " and " + other->second + " would both become " +
                                   names.back() + "; give one of them another name");
  }
  return names;
}

/** Recordings at a time. Pipes are read one after the other, as whoever writes them expects. */
std::size_t jobs_at_once(const Files& files) {
  std::error_code ignored;
  for (const std::string& input : files.names)
    if (!std::filesystem::is_regular_file(input, ignored)) return 1;
  return files.jobs ? static_cast<std::size_t>(files.jobs) : std::thread::hardware_concurrency();
}

/** Filters every recording into a folder; one that fails does not keep the others from their
 * results. Returns the exit code. */
int run_into_folder(const Job& job, const Files& files) {
  struct Outcome {
    std::vector<std::string> lines;
    Summary summary;
    std::exception_ptr error;
  };
  const bool quiet = files.common.quiet;
  const std::vector<std::string> results = name_results(files);
  std::error_code ignored;
  std::filesystem::create_directory(files.output_dir, ignored);
  const std::size_t threads = std::max<std::size_t>(jobs_at_once(files), 1);
  std::vector<Outcome> outcomes(results.size());
  const auto work = [&](std::size_t i, Lock* lock) {
    Job one = job;
    one.input = files.names[i];
    one.output = results[i];
    one.lock = lock;
    keep_lines(&outcomes[i].lines);
    try {
      check_interrupted();
      outcomes[i].summary = run_shown(one, quiet || threads > 1);
    } catch (...) {
      outcomes[i].error = std::current_exception();
    }
    keep_lines(nullptr);  // of the thread that says them, where there is no other
  };
  int code = 0;
  std::set<std::string> said;  // each design warns once, though it may have been read several times
  run_in_order(results.size(), threads, work, [&](std::size_t i) {
    for (const std::string& line : outcomes[i].lines)
      if (said.insert(line).second) say(line);
    try {
      if (outcomes[i].error) std::rethrow_exception(outcomes[i].error);
      if (!quiet) print(outcomes[i].summary, files.common.json);
    } catch (const Error& e) {
      if (e.kind == kInterrupted || e.kind == kPipeClosed) throw;
      const int failed = report_error(exit_code(e.kind), e.what());
      if (code == 0) code = failed;
    }
  });
  return code;
}

}  // namespace

CLI::App* add_filter_command(CLI::App* app, Filter* filter, Files* files, const char* name,
                             const char* description, const char* example, int most_frames) {
  CLI::App* command = app->add_subcommand(name, description);
  if (files) add_files(command, files);
  command
      ->add_option(
          "--block", filter->block,
          most_frames == kMaxBlock
              ? "Frames per call of the library; changes no sample of a fixed filter's result"
              : "Frames per call of the library; a fade lasts one call")
      ->check(CLI::Range(1, most_frames))
      ->capture_default_str();
  command->footer(std::string("Example:\n  jurn-filter ") + example);
  return command;
}

void add_gain(CLI::App* command, Filter* filter) {
  command->parse_complete_callback([filter] { filter->takes_gain = true; });
  add_gain_option(command, &filter->gain_db);
}

void add_tail(CLI::App* command, bool* no_tail) {
  command->add_flag("--no-tail", *no_tail,
                    "End with the recording, not when the filter has rung out");
}

Chain chain_of(std::unique_ptr<Stage> stage) {
  Chain chain;
  chain.push_back(std::move(stage));
  return chain;
}

int run_filters(const Files& files, const Filters& filters) {
  Job job = connect(filters);
  if (std::count(job.also_read.begin(), job.also_read.end(), kStandardStream) +
          std::count(files.names.begin(), files.names.begin() + (files.names.empty() ? 0 : 1),
                     kStandardStream) >
      1)
    throw Error(kUsageError,
                "standard input is either the recording or the coefficients of one "
                "filter");
  job.raw = files.raw;
  job.format = files.format;
  job.bits = files.bits;
  if (files.dither) job.dither = files.seed;
  if (job.raw.rate) job.format.stream_type = "raw";
  job.overwrite = files.common.overwrite;
  job.stamp = files.stamp;
  if (files.fit && !job.takes_gain)
    throw Error(kUsageError, "--fit takes a filter that has a --gain");
  job.fit = files.fit;
  // Without a summary nobody reads which one would fit.
  job.takes_gain = job.takes_gain && (files.fit || !files.common.quiet);
  if (!files.output_dir.empty()) return run_into_folder(job, files);
  if (files.names.size() != 2)
    throw Error(kUsageError,
                "give a recording, IN, and a result, OUT; with --output-dir any number of IN; " +
                    std::to_string(files.names.size()) + " names were given");
  job.input = files.names[0];
  job.output = files.names[1];
  const Summary summary = run_shown(job, files.common.quiet);
  if (!files.common.quiet) print(summary, files.common.json);
  return 0;
}

}  // namespace jurn
