// jurn-filter: filters recordings through the library. This file only turns the command line into
// jobs.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "JURN_api.h"
#include "coefficients/filter_design.h"
#include "coefficients/formats.h"
#include "design/spectrum.h"
#include "design/stability.h"
#include "errors.h"
#include "impulse_responses/hrtf_set.h"
#include "level.h"
#include "plot.h"
#include "recordings/signals.h"
#include "report.h"
#include "response.h"
#include "run.h"
#include "spectrogram.h"
#include "streams/convolve.h"
#include "streams/stages.h"

namespace {

using namespace tool;

struct Options {
  explicit Options(bool follows_another = false) : follows(follows_another) {}

  bool follows;  // a filter after --then: the result of the one before is its recording
  Job job;
  std::vector<std::string> files;
  std::string output_dir;
  int jobs = 0;  // recordings at a time, 0 for one per core
  bool quiet = false, json = false;
  int block = 1024;
  bool normalise = false;
  // fir, iir, sos, average
  Precision precision = Precision::kInt16;
  std::string coefficients, numerator, denominator;
  Format format = Format::kByContent;
  std::vector<std::string> variables;
  std::optional<bool> negate_a;
  int length = 0;
  // convolve
  std::vector<std::string> responses, fade_to;
  std::vector<double> fade_at;
  ResponseOptions response;
  Route route = Route::kAutomatic;
  bool time_domain = false;
  bool no_tail = false, raw_latency = false;
  // binaural
  std::string sofa = JURN_DEFAULT_SOFA;
  double azimuth = 0.0, elevation = 0.0, orbit = 0.0;
  // response
  std::vector<std::string> fir_files, iir_files, section_files, numerators, denominators;
  std::vector<int> averages;
  ResponseJob pictures;
  SpectrogramJob spectrogram;
  LevelJob level;
};

Chain chain_of(std::unique_ptr<Stage> stage) {
  Chain chain;
  chain.push_back(std::move(stage));
  return chain;
}

/** A choice between named values. */
template <typename Value>
void add_choice(CLI::App* command, const char* name, Value* value, const char* description,
                const std::map<std::string, Value>& values, const char* standard) {
  const auto choose = [=](const std::string& text) {
    const auto found = values.find(text);
    std::string known;
    for (const auto& [key, unused] : values) known += (known.empty() ? "" : ", ") + key;
    if (found == values.end())
      throw Error(kUsageError, std::string(name) + " " + text + ": takes one of " + known);
    *value = found->second;
  };
  command->add_option_function<std::string>(name, choose, description)
      ->type_name("NAME")
      ->default_str(standard);
}

RawFormat parse_raw(const std::string& text) {
  RawFormat raw;
  int end = 0;
  if (std::sscanf(text.c_str(), "%d,%d%n", &raw.rate, &raw.channels, &end) != 2 ||
      text.c_str()[end] || raw.rate < 1 || raw.channels < 1 || raw.channels > 2)
    throw Error(kUsageError, "--raw " + text + ": takes RATE,CHANNELS, like 48000,2 or 8000,1");
  return raw;
}

void add_raw(CLI::App* command, Options* o) {
  command
      ->add_option_function<std::string>(
          "--raw", [o](const std::string& text) { o->job.raw = parse_raw(text); },
          "IN has little-endian int16 samples and no header; a result to standard output, too")
      ->type_name("RATE,CHANNELS");
}

/** How a subcommand reports and what it may replace. */
void add_manners(CLI::App* command, Options* o) {
  command->add_flag("--overwrite", o->job.overwrite, "Replace files that exist");
  command->add_flag("-q,--quiet", o->quiet, "Say nothing unless there is a problem");
  command->add_flag("--json", o->json, "Print the summary as a line of JSON");
}

/** What every subcommand that writes a recording takes. */
void add_files(CLI::App* command, Options* o) {
  command
      ->add_option("FILES", o->files,
                   "IN and OUT; with --output-dir any number of IN. IN is a mono or stereo "
                   "recording in any format of libsndfile; the ending of OUT's name chooses the "
                   "format; - is standard input or output")
      ->required()
      ->type_name("IN OUT");
  command
      ->add_option("--output-dir", o->output_dir,
                   "Folder for the results, which keep the names of their recordings")
      ->type_name("FOLDER");
  command
      ->add_option("--jobs", o->jobs,
                   "Recordings that --output-dir filters at a time; by default one per core")
      ->check(CLI::Range(1, 1024))
      ->type_name("N");
  command
      ->add_option("--type", o->job.format.type,
                   "Format of the result, whatever the name: wav, flac, raw, ogg ...; on standard "
                   "output by default wav")
      ->check(CLI::IsMember(audio_types()).description(""))
      ->type_name("NAME");
  add_choice<SampleFormat>(
      command, "--bits", &o->job.format.samples, "Samples of the result: 16, 24 or float",
      {{"16", SampleFormat::kInt16}, {"24", SampleFormat::kInt24}, {"float", SampleFormat::kFloat}},
      "16");
  add_raw(command, o);
  add_manners(command, o);
}

CLI::App* add_command(CLI::App* app, Options* o, const char* name, const char* description,
                      const char* example) {
  CLI::App* command = app->add_subcommand(name, description);
  if (!o->follows) add_files(command, o);
  command
      ->add_option("--block", o->block,
                   "Frames per call of the library; changes no sample of a fixed filter's result")
      ->check(CLI::Range(1, kMaxBlock))
      ->capture_default_str();
  command->footer(std::string("Example:\n  jurn-filter ") + example);
  return command;
}

void add_gain(CLI::App* command, Options* o) {
  command->parse_complete_callback([o] { o->job.takes_gain = true; });
  command->add_option("--gain", o->job.gain_db, "Gain of the filter in dB")
      ->check(CLI::Range(-200.0, 200.0));
}

/** How files of coefficients are read. */
void add_reading(CLI::App* command, Options* o) {
  add_gain(command, o);
  command->add_flag("--normalise", o->normalise,
                    "Scale the filter's largest gain over all frequencies to 0 dB, before --gain");
  add_choice<Format>(command, "--format", &o->format,
                     "Format of the coefficients: numbers (text, CSV), npy, mat, header (C, of "
                     "MATLAB), biquads, equaliser or audio",
                     {{"numbers", Format::kNumbers},
                      {"npy", Format::kNumPy},
                      {"mat", Format::kMatlab},
                      {"header", Format::kHeader},
                      {"biquads", Format::kBiquads},
                      {"equaliser", Format::kEqualiser},
                      {"audio", Format::kAudio}},
                     "by content");
  command
      ->add_option("--variables", o->variables,
                   "Names of a .mat file's or header's arrays: taps; b,a; or sections,gain")
      ->delimiter(',')
      ->allow_extra_args(false);
}

/** What the subcommands that filter with coefficients of a file take. */
CLI::Option* add_coefficients(CLI::App* command, Options* o, const char* description) {
  add_reading(command, o);
  return command->add_option("-c,--coefficients", o->coefficients, description);
}

void add_signs(CLI::App* command, Options* o) {
  CLI::Option* negate = command->add_flag_callback(
      "--negate-a", [o] { o->negate_a = true; },
      "Turn the signs of the feedback coefficients, for files of programs that add the feedback");
  command
      ->add_flag_callback(
          "--keep-a", [o] { o->negate_a = false; },
          "Run a filter whose signs look negated as it is")
      ->excludes(negate);
}

void add_precision(CLI::App* command, Options* o) {
  add_choice<Precision>(command, "--precision", &o->precision,
                        "int16: up to 1250 coefficients; double: up to 201, for 24-bit and float",
                        {{"int16", Precision::kInt16}, {"double", Precision::kDouble}}, "int16");
}

void add_tail(CLI::App* command, Options* o) {
  command->add_flag("--no-tail", o->no_tail,
                    "End with the recording, not when the filter has rung out");
}

/** Warnings of a job that runs beside others, said when it is its turn. */
thread_local std::vector<std::string>* kept_warnings = nullptr;

void warn(const std::string& message) {
  if (message.empty()) return;
  if (kept_warnings)
    kept_warnings->push_back(message);
  else
    std::fprintf(stderr, "jurn-filter: warning: %s\n", message.c_str());
}

/** Reads and checks the design of a job, for recordings at `rate`. */
FilterDesign read_design(const Options& o, const ReadOptions& options) {
  const std::string& path = o.coefficients.empty() ? o.denominator : o.coefficients;
  FilterDesign design = o.coefficients.empty() ? load_design(o.numerator, o.denominator, options)
                                               : load_design(o.coefficients, options);
  warn(check_stability(path, o.negate_a, &design));
  if (o.normalise) {
    const double peak = peak_gain(design);
    if (!(peak > 0.0 && std::isfinite(peak)))
      throw Error(kInputError, path + ": the filter's largest gain is " +
                                   (peak > 0.0 ? "infinite" : "0") +
                                   ", which cannot be scaled to 0 dB");
    scale(&design, 1.0 / peak);
  }
  warn(check_peak(path, design, std::pow(10.0, o.job.gain_db / 20.0)));
  return design;
}

/** A job that runs one design. */
void set_filter(Options* o, FilterDesign::Kind kind, const CoefficientLimit& limit) {
  o->job.also_read = {o->coefficients, o->numerator, o->denominator};
  o->job.make_chain = [o, design = std::optional<FilterDesign>(),
                       options = ReadOptions{kind, limit, o->format, o->variables, 0}](
                          const Recording& recording, double gain) mutable {
    if (!design || options.rate != recording.rate) {
      options.rate = recording.rate;
      design = read_design(*o, options);
    }
    FilterDesign scaled = *design;
    scale(&scaled, gain);
    return chain_of(make_filter(scaled, o->precision, recording.channels, o->block));
  };
}

void set_iir(Options* o) {
  if (o->coefficients.empty() == (o->numerator.empty() || o->denominator.empty()))
    throw Error(kUsageError, "iir takes either --coefficients or --numerator and --denominator");
  set_filter(o, FilterDesign::kIir, iir_limit(o->precision));
}

void set_average(Options* o) {
  o->job.make_chain = [o](const Recording& recording, double) {
    return chain_of(make_average(o->length, recording.channels, o->block));
  };
}

/** Reads the responses of a job that fades; all become as long as the longest. */
std::vector<ImpulseResponse> read_responses(const Options& o, int rate, double gain) {
  std::vector<ImpulseResponse> responses{read_response(o.responses, rate, o.response)};
  const std::size_t files = o.responses.size();
  for (std::size_t i = 0; i < o.fade_to.size(); i += files) {
    responses.push_back(read_response({o.fade_to.begin() + static_cast<std::ptrdiff_t>(i),
                                       o.fade_to.begin() + static_cast<std::ptrdiff_t>(i + files)},
                                      rate, o.response));
    if (responses.back().size() != responses[0].size())
      throw Error(kUsageError, o.fade_to[i] + ": has other channels than the response of --ir");
  }
  std::size_t longest = 0;
  for (const ImpulseResponse& r : responses) longest = std::max(longest, r[0].size());
  for (ImpulseResponse& r : responses) {
    for (std::vector<double>& taps : r) taps.resize(longest);
    scale(&r, gain);
  }
  return responses;
}

Chain convolve_chain(const Options& o, const Recording& recording, double gain) {
  std::vector<ImpulseResponse> responses = read_responses(o, recording.rate, gain);
  Convolution c;
  c.response = responses[0];
  c.route = o.route;
  c.time_domain = o.time_domain;
  if (!o.fade_at.empty()) {
    const double end = static_cast<double>(recording.frames) / recording.rate;
    if (recording.frames && o.fade_at.back() >= end)
      throw Error(kUsageError, "--at " + CLI::detail::to_string(o.fade_at.back()) +
                                   ": the recording ends after " + CLI::detail::to_string(end) +
                                   " seconds");
    c.change = [responses = std::move(responses), at = o.fade_at, rate = recording.rate,
                next = std::size_t{0}](std::int64_t first, int frames) mutable {
      const bool due = next < at.size() && at[next] * rate < static_cast<double>(first + frames);
      return due ? &responses[++next] : nullptr;
    };
  }
  std::unique_ptr<Stage> stage = make_convolver(c, recording.channels, o.block);
  stage->keep_latency = o.raw_latency;
  stage->keep_tail = !o.no_tail;
  return chain_of(std::move(stage));
}

void set_convolve(Options* o) {
  if (o->fade_to.size() != o->fade_at.size() * o->responses.size())
    throw Error(kUsageError, "each --at takes as many --fade-to as there are --ir");
  if (!std::is_sorted(o->fade_at.begin(), o->fade_at.end()))
    throw Error(kUsageError, "the times of --at have to rise");
  o->response.normalise = o->normalise;
  o->response.max_taps = o->time_domain ? kMaxTimeDomainTaps : kMaxFftTaps;
  o->response.limit = "the FFT takes " + std::to_string(kMaxFftTaps) + ", --time-domain " +
                      std::to_string(kMaxTimeDomainTaps);
  if (o->response.truncate > o->response.max_taps)
    throw Error(kUsageError,
                "--truncate " + std::to_string(o->response.truncate) + ": " + o->response.limit);
  o->job.also_read = o->responses;
  o->job.also_read.insert(o->job.also_read.end(), o->fade_to.begin(), o->fade_to.end());
  o->job.make_chain = [o](const Recording& recording, double gain) {
    return convolve_chain(*o, recording, gain);
  };
}

Chain binaural_chain(const Options& o, const Recording& recording, double gain) {
  if (recording.channels != 1)
    throw Error(kInputError, recording.name + ": has 2 channels; binaural places a mono recording");
  const auto set = std::make_shared<HrtfSet>(o.sofa, recording.rate);
  const auto at = [set, gain, elevation = o.elevation](double azimuth) {
    ImpulseResponse response = set->at(azimuth, elevation);
    scale(&response, gain);
    return response;
  };
  Convolution c;
  c.response = at(o.azimuth);
  if (c.response[0].size() > kMaxTimeDomainTaps)
    throw Error(kInputError, o.sofa + ": has responses of " + std::to_string(c.response[0].size()) +
                                 " taps; the limit is " + std::to_string(kMaxTimeDomainTaps));
  c.time_domain = true;  // these kinds fade within exactly one call, so the source moves steadily
  if (o.orbit != 0.0)
    c.change = [=, start = o.azimuth, rate = recording.rate, seconds = o.orbit,
                response = ImpulseResponse()](std::int64_t first, int frames) mutable {
      const double turns = static_cast<double>(first + frames) / rate / seconds;
      response = at(start + 360.0 * (turns - std::floor(turns)));
      return &response;
    };
  std::unique_ptr<Stage> stage = make_convolver(c, 1, o.block);
  stage->keep_tail = !o.no_tail;
  return chain_of(std::move(stage));
}

void set_binaural(Options* o) {
  if (o->sofa.empty())
    throw Error(kUsageError, "no set of responses is installed; name one by --sofa");
  o->job.also_read = {o->sofa};
  o->job.make_chain = [o](const Recording& recording, double gain) {
    return binaural_chain(*o, recording, gain);
  };
}

void add_convolve(CLI::App* app, Options* o) {
  CLI::App* convolve = add_command(app, o, "convolve", "Convolves with an impulse response",
                                   "convolve music.flac hall.wav --ir room.wav --truncate 8192");
  const auto several = [&](const char* name, auto* values, const char* description) {
    return convolve->add_option(name, *values, description)->allow_extra_args(false);
  };
  several("--ir", &o->responses,
          "Response of 1, 2 or 4 channels (left to left, left to right, right to left, right to "
          "right); given several times, the files' channels follow one another")
      ->required();
  add_choice<Route>(convolve, "--route", &o->route,
                    "Which input goes through which taps: straight, crossed, left-only or "
                    "mono-to-stereo; the default follows the channels",
                    {{"straight", Route::kStraight},
                     {"crossed", Route::kCrossed},
                     {"left-only", Route::kLeftOnly},
                     {"mono-to-stereo", Route::kMonoToStereo}},
                    "");
  convolve->add_flag("--time-domain", o->time_domain,
                     "Block-synchronous and without latency, up to 32767 taps");
  several("--fade-to", &o->fade_to, "Response to fade to while the audio runs");
  several("--at", &o->fade_at,
          "Second at which it fades, within one block; with the FFT within one transform")
      ->check(CLI::NonNegativeNumber);
  convolve->add_flag("--raw-latency", o->raw_latency, "Keep the FFT's latency in the result");
  add_tail(convolve, o);
  convolve->add_flag("--resample", o->response.resample,
                     "Convert a response at another rate than the recording's");
  convolve->add_option("--truncate", o->response.truncate, "Taps of the response to keep")
      ->check(CLI::Range(1, kMaxTimeDomainTaps));
  convolve->add_flag("--normalise", o->normalise, "Scale the response's largest gain to 0 dB");
  add_gain(convolve, o);
  convolve->final_callback([o] { set_convolve(o); });
}

void add_binaural(CLI::App* app, Options* o) {
  CLI::App* binaural =
      add_command(app, o, "binaural", "Places a mono recording around the listener",
                  "binaural speech.wav around.wav --orbit 4");
  binaural->add_option("--azimuth", o->azimuth, "Degrees: 0 in front, 90 to the left");
  binaural->add_option("--elevation", o->elevation, "Degrees: 90 above, -90 below")
      ->check(CLI::Range(-90.0, 90.0));
  binaural->add_option("--orbit", o->orbit,
                       "Seconds per turn to the left, from --azimuth on; negative: to the right");
  binaural->add_option("--sofa", o->sofa, "Set of head-related impulse responses")
      ->capture_default_str();
  add_gain(binaural, o);
  add_tail(binaural, o);
  binaural->final_callback([o] { set_binaural(o); });
}

void add_level(CLI::App* app, Options* o) {
  CLI::App* level = app->add_subcommand("level", "Measures the level over time");
  level->add_option("IN", o->level.input, "Recording, mono or stereo")->required();
  level->add_option("OUT", o->level.output, "CSV file; without it the rows are printed");
  level->add_option("--length", o->level.length, "Samples of the running mean")
      ->check(CLI::Range(1, kMaxLevelLength))
      ->capture_default_str();
  level->add_option("--every", o->level.every, "Seconds from row to row")
      ->check(CLI::Range(1e-6, 1e6))
      ->capture_default_str();
  add_choice<bool>(level, "--of", &o->level.square, "What is averaged: magnitude or square",
                   {{"magnitude", false}, {"square", true}}, "magnitude");
  add_raw(level, o);
  add_manners(level, o);
  level->final_callback([o] {
    o->level.raw = o->job.raw;
    o->level.overwrite = o->job.overwrite;
    o->level.quiet = o->quiet;
    o->level.json = o->json;
  });
  level->footer("Example:\n  jurn-filter level speech.wav level.csv --of square --every 0.02");
}

/** The filters of a picture, in the order of the command line. */
void read_filters(const CLI::App& command, Options* o) {
  ResponseJob* job = &o->pictures;
  if (job->rate == 0)
    job->rate = o->responses.empty() ? 48000 : AudioReader(o->responses[0], 4).rate();
  o->response.normalise = o->normalise;
  o->response.max_taps = std::max(kMaxFftTaps, kMaxTimeDomainTaps);
  o->response.limit = "at most " + std::to_string(o->response.max_taps) + " can run";
  const double gain = std::pow(10.0, o->job.gain_db / 20.0);
  const auto add = [&](const std::string& name, FilterDesign design) {
    scale(&design, gain);
    job->filters.push_back({name, std::move(design)});
  };
  const auto add_file = [&](const std::string& path, FilterDesign::Kind kind,
                            const CoefficientLimit& limit) {
    o->coefficients = path;
    const std::string& name = path.empty() ? o->denominator : path;
    add(short_name(name), read_design(*o, {kind, limit, o->format, o->variables, job->rate}));
    for (const std::string& read : {path, o->numerator, o->denominator})
      job->also_read.push_back(read);
  };
  if (o->numerators.size() != o->denominators.size())
    throw Error(kUsageError, "each --numerator takes a --denominator");
  std::map<std::string, std::size_t> used;
  for (const CLI::Option* option : command.parse_order()) {
    const std::string name = option->get_name();
    const std::size_t i = used[name]++;
    if (name == "--fir") {
      add_file(o->fir_files[i], FilterDesign::kFir, fir_limit(Precision::kInt16));
    } else if (name == "--iir") {
      add_file(o->iir_files[i], FilterDesign::kIir, iir_limit(Precision::kInt16));
    } else if (name == "--sos") {
      add_file(o->section_files[i], FilterDesign::kSections, section_limit());
    } else if (name == "--denominator") {
      o->numerator = o->numerators[i];
      o->denominator = o->denominators[i];
      add_file("", FilterDesign::kIir, iir_limit(Precision::kInt16));
    } else if (name == "--average") {
      const std::size_t n = static_cast<std::size_t>(o->averages[i]);
      job->filters.push_back(
          {"mean of " + std::to_string(n),
           {FilterDesign::kFir, std::vector<double>(n, 1.0 / static_cast<double>(n)), {}}});
    } else if (name == "--ir") {
      const std::string& path = o->responses[i];
      const ImpulseResponse response = read_response({path}, job->rate, o->response);
      for (std::size_t c = 0; c < response.size(); ++c)
        add(short_name(path) + (response.size() > 1 ? ", channel " + std::to_string(c + 1) : ""),
            {FilterDesign::kFir, response[c], {}});
      job->also_read.push_back(path);
    }
  }
  if (job->filters.empty())
    throw Error(kUsageError,
                "response takes filters: --fir, --iir, --sos, --average or --ir, each as often as "
                "needed");
}

void add_response(CLI::App* app, Options* o) {
  CLI::App* response =
      app->add_subcommand("response", "Shows what filters do to frequencies, impulses and steps");
  const auto several = [&](const char* name, auto* values, const char* description) {
    return response->add_option(name, *values, description)->allow_extra_args(false);
  };
  several("--fir", &o->fir_files, "File of taps, as for the subcommand fir");
  several("--iir", &o->iir_files, "File of numerator and denominator, as for iir");
  several("--numerator", &o->numerators, "Numerator of an IIR filter in a file of its own");
  several("--denominator", &o->denominators, "Denominator of the same filter");
  several("--sos", &o->section_files, "File of sections, as for sos");
  several("--average", &o->averages, "Length of a moving average")
      ->check(CLI::Range(1, kMaxAverage));
  several("--ir", &o->responses, "Impulse response, as for convolve; every channel is a filter");
  response
      ->add_option("--rate", o->pictures.rate,
                   "Samples per second; by default that of the first --ir, or 48000")
      ->check(CLI::Range(1, 100000000))
      ->default_str("");
  response->add_option("-p,--picture", o->pictures.picture,
                       "Picture, .png or .svg; without it the response is printed");
  response->add_option("--csv", o->pictures.csv, "File of all values; - for standard output");
  response
      ->add_option(
          "--show", o->pictures.panels,
          "Parts of the picture: magnitude, phase, delay, impulse, step, poles; by default "
          "all in a picture and the magnitude in print")
      ->transform(
          CLI::CheckedTransformer(std::map<std::string, Panel>{{"magnitude", Panel::kMagnitude},
                                                               {"phase", Panel::kPhase},
                                                               {"delay", Panel::kGroupDelay},
                                                               {"impulse", Panel::kImpulse},
                                                               {"step", Panel::kStep},
                                                               {"poles", Panel::kPoles}})
              .description(""))
      ->delimiter(',')
      ->allow_extra_args(false)
      ->type_name("NAMES");
  response->add_flag("--overwrite", o->pictures.overwrite, "Replace files that exist");
  add_reading(response, o);
  add_signs(response, o);
  response->add_flag("--resample", o->response.resample,
                     "Convert impulse responses at another rate");
  response->add_option("--truncate", o->response.truncate, "Taps of impulse responses to keep")
      ->check(CLI::Range(1, kMaxTimeDomainTaps));
  response->footer(
      "Example:\n  jurn-filter response --fir taps.txt --sos sections.txt --picture response.svg");
  response->final_callback([o, response] {
    picture_format(o->pictures.picture);  // a wrong name fails before any work
    read_filters(*response, o);
  });
}

void add_spectrogram(CLI::App* app, Options* o) {
  CLI::App* command = app->add_subcommand(
      "spectrogram", "Shows the frequencies of recordings over time, before and after a filter");
  SpectrogramJob* job = &o->spectrogram;
  command
      ->add_option("RECORDINGS", job->recordings,
                   "One recording, or two for a common picture: IN and OUT of a filter")
      ->required()
      ->expected(1, 2)
      ->type_name("IN [OUT]");
  command->add_option("-p,--picture", job->picture, "Picture, .png or .svg");
  command->add_option("--csv", job->csv, "File of all values; - for standard output");
  command->add_option("--window", job->window, "Samples of a spectrum: a power of 2, 64 to 16384")
      ->check(CLI::IsMember({64, 128, 256, 512, 1024, 2048, 4096, 8192, 16384}).description(""))
      ->capture_default_str();
  command->add_option("--floor", job->floor, "Level in dBFS at which the colours begin")
      ->check(CLI::Range(-190.0, -1.0))
      ->capture_default_str();
  command->add_option("--top", job->top, "Highest frequency in Hz; by default half the rate")
      ->check(CLI::PositiveNumber)
      ->default_str("");
  command->add_flag("--overwrite", job->overwrite, "Replace files that exist");
  add_raw(command, o);
  command->footer(
      "Example:\n  jurn-filter spectrogram speech.wav telephone.wav --picture telephone.png");
  command->final_callback([o, job] {
    if (job->picture.empty() && job->csv.empty())
      throw Error(kUsageError,
                  "spectrogram takes --picture, a .png or .svg, or --csv for its result");
    picture_format(job->picture);
    job->raw = o->job.raw;
  });
}

void add_commands(CLI::App* app, Options* o) {
  CLI::App* fir = add_command(app, o, "fir", "Filters with taps of a file",
                              "fir speech.wav out.wav --coefficients taps.txt");
  add_coefficients(fir, o,
                   "Taps: numbers as text or CSV (# comments), NumPy .npy, .mat, C header, or WAV")
      ->required();
  add_precision(fir, o);
  fir->final_callback([o] { set_filter(o, FilterDesign::kFir, fir_limit(o->precision)); });

  CLI::App* iir = add_command(app, o, "iir", "Filters with a direct-form IIR",
                              "iir speech.wav out.wav --coefficients ba.txt");
  add_coefficients(iir, o,
                   "Two lines of numbers, numerator and denominator starting with 1; or b and a of "
                   "an .npy, a .mat or a C header, which are divided by a0");
  iir->add_option("--numerator", o->numerator, "Numerator in a file of its own");
  iir->add_option("--denominator", o->denominator, "Denominator in a file of its own");
  add_signs(iir, o);
  add_precision(iir, o);
  iir->final_callback([o] { set_iir(o); });

  CLI::App* sos = add_command(app, o, "sos", "Filters with a cascade of second-order sections",
                              "sos music.flac out.flac --coefficients sections.txt");
  add_coefficients(sos, o,
                   "One section per line: b0 b1 b2 a0 a1 a2, with a0 = 1; or sections of an .npy, "
                   "a .mat or a C header, a biquad list, or equaliser lines")
      ->required();
  add_signs(sos, o);
  sos->final_callback([o] { set_filter(o, FilterDesign::kSections, section_limit()); });

  CLI::App* average = add_command(app, o, "average", "Replaces each sample by a moving average",
                                  "average music.flac out.wav --length 64");
  average->add_option("--length", o->length, "Samples that are averaged")
      ->required()
      ->check(CLI::Range(1, kMaxAverage));
  average->final_callback([o] { set_average(o); });

  add_convolve(app, o);
  add_binaural(app, o);
  if (o->follows) return;
  add_level(app, o);
  add_response(app, o);
  add_spectrogram(app, o);
}

using Filters = std::vector<std::unique_ptr<Options>>;

/** Parses one filter and, of the first, everything else. The arguments come last one first. */
void parse(std::vector<std::string> arguments, bool follows, CLI::App* app, Filters* filters) {
  filters->push_back(std::make_unique<Options>(follows));
  app->require_subcommand(1);
  add_commands(app, filters->back().get());
  const std::string name = arguments.empty() ? "" : arguments.back();
  std::string known;
  bool found = name.substr(0, 1) == "-";
  for (const CLI::App* command : app->get_subcommands(nullptr)) {
    known += (known.empty() ? "" : ", ") + command->get_name();
    found = found || command->get_name() == name;
  }
  if (!found)
    throw Error(kUsageError, (name.empty() ? "" : "'" + name + "' is no subcommand; ") +
                                 (follows ? "--then takes a subcommand that filters: "
                                          : "jurn-filter takes a subcommand: ") +
                                 known);
  app->parse(std::move(arguments));
}

/** All filters in series as one job, whose gain is that of the first filter that takes one. */
Job connect(const Filters& filters) {
  Job job = filters[0]->job;
  std::size_t gained = 0;
  while (gained + 1 < filters.size() && !filters[gained]->job.takes_gain) ++gained;
  job.gain_db = filters[gained]->job.gain_db;
  job.takes_gain = filters[gained]->job.takes_gain;
  if (filters.size() > 1) job.gain_of = static_cast<int>(gained) + 1;
  for (std::size_t i = 1; i < filters.size(); ++i)
    job.also_read.insert(job.also_read.end(), filters[i]->job.also_read.begin(),
                         filters[i]->job.also_read.end());
  job.make_chain = [&filters, gained](Recording recording, double gain) {
    Chain chain;
    for (std::size_t i = 0; i < filters.size(); ++i) {
      const Job& filter = filters[i]->job;
      const double own = std::pow(10.0, filter.gain_db / 20.0);
      for (std::unique_ptr<Stage>& stage : filter.make_chain(recording, i == gained ? gain : own)) {
        recording.channels = stage->channels_out;
        if (recording.frames) recording.frames += stage->added();
        chain.push_back(std::move(stage));
      }
      recording.name = "the result of filter " + std::to_string(i + 1);
    }
    return chain;
  };
  return job;
}

/** Every failure is one line; a closed pipe is none. */
int report(int code, std::string message) {
  std::replace(message.begin(), message.end(), '\n', ' ');
  if (!message.empty()) std::fprintf(stderr, "jurn-filter: %s\n", message.c_str());
  return code;
}

/** A job that reports as its options say. */
Job configured(Job job, const Options& o) {
  job.progress = !o.quiet;
  job.takes_gain = job.takes_gain && !o.quiet;  // nobody reads which one would fit
  if (job.raw.rate) job.format.stream_type = "raw";
  return job;
}

/** The names of the results in a folder. */
std::vector<std::string> name_results(const Options& o) {
  namespace fs = std::filesystem;
  std::map<std::string, std::string> results;
  std::vector<std::string> names;
  for (const std::string& input : o.files) {
    fs::path name = fs::path(input).filename();
    if (input == kStandardStream || name.empty())
      throw Error(kUsageError, input + ": --output-dir takes recordings that have names");
    if (!o.job.format.type.empty()) name.replace_extension(o.job.format.type);
    names.push_back((fs::path(o.output_dir) / name).string());
    const auto [other, is_new] = results.emplace(names.back(), input);
    if (!is_new)
      throw Error(kUsageError, input + " and " + other->second + " would both become " +
                                   names.back() + "; give one of them another name");
  }
  return names;
}

/** Recordings at a time. Pipes are read one after the other, as whoever writes them expects. */
std::size_t jobs_at_once(const Options& o) {
  for (const std::string& input : o.files)
    if (!std::filesystem::is_regular_file(input)) return 1;
  return o.jobs ? static_cast<std::size_t>(o.jobs) : std::thread::hardware_concurrency();
}

/** Filters every recording into a folder; one that fails does not keep the others from their
 * results. */
int run_into_folder(const Job& job, const Options& o) {
  struct Outcome {
    std::vector<std::string> warnings;
    Summary summary;
    std::exception_ptr error;
  };
  const std::vector<std::string> results = name_results(o);
  std::error_code ignored;
  std::filesystem::create_directory(o.output_dir, ignored);
  const std::size_t threads = std::max<std::size_t>(jobs_at_once(o), 1);
  std::vector<Outcome> outcomes(results.size());
  const auto work = [&](std::size_t i, Lock* lock) {
    Job one = job;
    one.input = o.files[i];
    one.output = results[i];
    one.lock = lock;
    one.progress = one.progress && threads == 1;
    kept_warnings = &outcomes[i].warnings;
    try {
      check_interrupted();
      outcomes[i].summary = run(one);
    } catch (...) {
      outcomes[i].error = std::current_exception();
    }
  };
  int code = kSuccess;
  std::set<std::string> said;  // each design warns once, though it may have been read several times
  run_in_order(results.size(), threads, work, [&](std::size_t i) {
    for (const std::string& warning : outcomes[i].warnings)
      if (said.insert(warning).second) warn(warning);
    try {
      if (outcomes[i].error) std::rethrow_exception(outcomes[i].error);
      if (!o.quiet) print(outcomes[i].summary, o.json);
    } catch (const Error& e) {
      if (e.code == kInterrupted || e.code == kPipeClosed) throw;
      const int failed = report(e.code, e.what());
      if (code == kSuccess) code = failed;
    }
  });
  return code;
}

int run_jobs(const Filters& filters) {
  const Options& o = *filters[0];
  Job job = configured(connect(filters), o);
  if (!o.output_dir.empty()) return run_into_folder(job, o);
  if (o.files.size() != 2)
    throw Error(kUsageError,
                "give a recording, IN, and a result, OUT; with --output-dir any number of IN; " +
                    std::to_string(o.files.size()) + " names were given");
  job.input = o.files[0];
  job.output = o.files[1];
  const Summary summary = run(job);
  if (!o.quiet) print(summary, o.json);
  return kSuccess;
}

/** Runs the subcommand that the arguments name. */
int run_command(const std::vector<std::string>& arguments, CLI::App* app) {
  Filters filters;
  auto end = std::find(arguments.begin(), arguments.end(), "--then");
  parse({std::make_reverse_iterator(end), arguments.rend()}, false, app, &filters);
  while (end != arguments.end()) {
    const auto begin = end + 1;
    end = std::find(begin, arguments.end(), "--then");
    CLI::App next("A filter after --then takes its own options only.", "jurn-filter ... --then");
    try {
      parse({std::make_reverse_iterator(end), std::make_reverse_iterator(begin)}, true, &next,
            &filters);
    } catch (const CLI::ParseError& e) {
      if (e.get_exit_code() == 0) return next.exit(e);  // --help
      throw Error(kUsageError, "after --then: " + std::string(e.what()));
    }
  }
  Options& o = *filters[0];
  if (filters.size() > 1 && !o.job.make_chain)
    throw Error(kUsageError, "--then follows a subcommand that filters");
  if (app->got_subcommand("level")) {
    run_level(o.level);
    return kSuccess;
  }
  if (app->got_subcommand("response")) {
    run_response(o.pictures);
    return kSuccess;
  }
  if (app->got_subcommand("spectrogram")) {
    run_spectrogram(o.spectrogram);
    return kSuccess;
  }
  return run_jobs(filters);
}

}  // namespace

int main(int argc, char** argv) {
  try {
    CLI::App app("Filters recordings: FIR, IIR, sections, moving average, long impulse responses.",
                 "jurn-filter");
    app.set_version_flag("--version", "jurn-filter " JURN_VERSION_STRING);
    app.footer(
        "Filters in series: jurn-filter fir IN OUT -c taps.txt --then average --length 8\n"
        "Exit codes: 0 done, 2 wrong command line, 3 unreadable input, 4 unwritable result, "
        "130 interrupted, 141 closed pipe");
    open_standard_streams();
    catch_signals();
    try {
      return run_command({argv + 1, argv + argc}, &app);
    } catch (const CLI::ParseError& e) {
      if (e.get_exit_code() == 0) return app.exit(e);  // --help
      return report(kUsageError, e.what());
    } catch (const Error& e) {
      return report(e.code, e.what());
    }
  } catch (const std::exception& e) {  // also what reports an error, where the memory is used up
    std::fprintf(stderr, "jurn-filter: %s\n", e.what());
    return kInputError;
  }
}
