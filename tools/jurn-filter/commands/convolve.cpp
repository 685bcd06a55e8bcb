#include <algorithm>

#include "Convolution_control.h"
#include "coefficients/parse.h"
#include "commands/coefficients.h"
#include "commands/commands.h"
#include "errors.h"
#include "impulse_responses/routes.h"
#include "recordings/output_file.h"
#include "streams/long_filter.h"
#include "streams/voice.h"

namespace jurn {
namespace {

struct ConvolveOptions {
  std::vector<std::string> responses, fade_to;
  std::string routes;
  std::vector<double> fade_at;
  ImpulseResponseOptions response;
  Wiring wiring = Wiring::kAutomatic;
  Precision precision = Precision::kDouble;
  bool fft = false, time_domain = false;
  bool no_tail = false, raw_latency = false;

  /** Files of one response. */
  std::size_t files() const { return routes.empty() ? responses.size() : 1; }
  /** The files of response `i`, of which 0 is the first one. */
  std::vector<std::string> names(std::size_t i) const {
    if (i == 0) return routes.empty() ? responses : std::vector<std::string>{routes};
    const auto first = fade_to.begin() + static_cast<std::ptrdiff_t>((i - 1) * files());
    return {first, first + static_cast<std::ptrdiff_t>(files())};
  }
};

/** Which of the responses to fade to in a call, or 0; counts those that were returned. */
class Fades {
 public:
  Fades(const ConvolveOptions& o, const Recording& recording)
      : at_(o.fade_at), rate_(recording.rate) {
    const double end = static_cast<double>(recording.frames) / rate_;
    if (!at_.empty() && recording.frames && at_.back() >= end)
      throw Error(kUsageError, "--at " + shown(at_.back()) + ": the recording ends after " +
                                   shown(end) + " seconds");
  }
  std::size_t due(std::int64_t first, int frames) {
    const bool is_due =
        next_ < at_.size() && at_[next_] * rate_ < static_cast<double>(first + frames);
    return is_due ? ++next_ : 0;
  }

 private:
  std::vector<double> at_;
  int rate_;
  std::size_t next_ = 0;
};

Routing read_routing(const ConvolveOptions& o, std::size_t i, const Recording& recording,
                     double gain) {
  ImpulseResponseOptions options = o.response;
  options.normalise = false;
  const std::vector<std::string> names = o.names(i);
  if (!o.routes.empty()) refuse_overwrite(recording.result, files_of_routes(names[0]));
  Routing routing = o.routes.empty()
                        ? connect(read_impulse_response(names, recording.rate, options), o.wiring,
                                  recording.channels, names[0])
                        : read_routes(names[0], recording.rate, options);
  if (routing.inputs > recording.channels)
    throw Error(kInputError, names[0] + ": takes " + std::to_string(routing.inputs) +
                                 " inputs, but " + recording.name + " has " +
                                 std::to_string(recording.channels) +
                                 (recording.channels == 1 ? " channel" : " channels"));
  routing.inputs = recording.channels;
  if (o.response.normalise) normalise(&routing, names[0]);
  scale(&routing, gain);
  return routing;
}

std::unique_ptr<Stage> make_default(const ConvolveOptions& o, int block, const Recording& recording,
                                    double gain) {
  if (recording.channels > JURN_CONVOLUTION_CHANNELS)
    throw Error(kInputError, recording.name + ": has " + std::to_string(recording.channels) +
                                 " channels; convolve takes up to " +
                                 std::to_string(JURN_CONVOLUTION_CHANNELS));
  std::vector<Routing> all;
  int longest = 0;
  for (std::size_t i = 0; i <= o.fade_at.size(); ++i) {
    all.push_back(read_routing(o, i, recording, gain));
    if (all[i].outputs != all[0].outputs)
      throw Error(kUsageError, o.names(i)[0] + ": makes " + std::to_string(all[i].outputs) +
                                   " channels, and the first response makes " +
                                   std::to_string(all[0].outputs));
    longest = std::max(longest, all[i].longest());
  }
  Format format = format_of(recording);
  format.outputs = all[0].outputs;
  format.block = block;
  const auto make = [longest, precision = o.precision, format](const Routing& routing) {
    return make_convolution(routing, longest, precision, format);
  };
  auto first = make(all[0]);
  NextFilter next;
  if (all.size() > 1)
    next = [make, all = std::move(all), fades = Fades(o, recording)](std::int64_t from,
                                                                     int frames) mutable {
      const std::size_t due = fades.due(from, frames);
      return due ? std::make_unique<Change>(make(all[due]), frames) : nullptr;
    };
  std::unique_ptr<Stage> stage = make_stage(std::move(first), o.precision, 0, std::move(next));
  stage->tail = longest - 1;
  return stage;
}

std::unique_ptr<Stage> make_long(const ConvolveOptions& o, int block, const Recording& recording,
                                 double gain) {
  std::vector<ImpulseResponse> all;
  std::size_t longest = 0;
  for (std::size_t i = 0; i <= o.fade_at.size(); ++i) {
    all.push_back(read_impulse_response(o.names(i), recording.rate, o.response));
    if (all[i].size() != all[0].size())
      throw Error(kUsageError, o.names(i)[0] + ": has other channels than the response of --ir");
    longest = std::max(longest, all[i][0].size());
  }
  for (ImpulseResponse& response : all) {  // all become as long as the longest
    for (std::vector<double>& taps : response) taps.resize(longest);
    scale(&response, gain);
  }
  LongFilter f;
  f.response = all[0];
  f.wiring = o.wiring;
  f.time_domain = o.time_domain;
  if (all.size() > 1)
    f.change = [all = std::move(all), fades = Fades(o, recording)](std::int64_t first,
                                                                   int frames) mutable {
      const std::size_t next = fades.due(first, frames);
      return next ? &all[next] : nullptr;
    };
  return make_long_filter(f, recording.channels, block, o.responses[0]);
}

void set_convolve(Filter* filter, const std::shared_ptr<ConvolveOptions>& o) {
  const bool is_long = o->fft || o->time_domain;
  if (o->responses.empty() == o->routes.empty())
    throw Error(kUsageError, "convolve takes either --ir or --routes");
  if (o->fade_to.size() != o->fade_at.size() * o->files())
    throw Error(kUsageError, std::string("each --at takes ") +
                                 (o->routes.empty() ? "as many --fade-to as there are --ir"
                                                    : "one --fade-to with another file of routes"));
  if (!std::is_sorted(o->fade_at.begin(), o->fade_at.end()))
    throw Error(kUsageError, "the times of --at have to rise");
  if (is_long && filter->block > kMaxBlock)
    throw Error(kUsageError, "--block " + std::to_string(filter->block) + ": --fft and " +
                                 "--time-domain take up to " + std::to_string(kMaxBlock));
  o->response.max_taps = o->fft           ? kMaxFftTaps
                         : o->time_domain ? kMaxTimeDomainTaps
                                          : JURN_CONVOLUTION_TAPS;
  if (is_long)
    o->response.limit = "--fft takes " + std::to_string(kMaxFftTaps) + ", --time-domain " +
                        std::to_string(kMaxTimeDomainTaps) + ", neither of them " +
                        std::to_string(JURN_CONVOLUTION_TAPS);
  if (o->response.truncate > o->response.max_taps)
    throw Error(kUsageError,
                "--truncate " + std::to_string(o->response.truncate) + ": " + o->response.limit);
  filter->also_read = o->responses;
  filter->also_read.push_back(o->routes);
  filter->also_read.insert(filter->also_read.end(), o->fade_to.begin(), o->fade_to.end());
  filter->make_chain = [=](const Recording& recording, double gain) {
    std::unique_ptr<Stage> stage = is_long ? make_long(*o, filter->block, recording, gain)
                                           : make_default(*o, filter->block, recording, gain);
    stage->keep_latency = o->raw_latency;
    stage->keep_tail = !o->no_tail;
    return chain_of(std::move(stage));
  };
}

}  // namespace

void add_convolve(CLI::App* app, Filter* filter, Files* files) {
  const auto o = std::make_shared<ConvolveOptions>();
  CLI::App* convolve =
      add_filter_command(app, filter, files, "convolve",
                         "Convolves with an impulse response of up to 2^20 taps, without latency",
                         "convolve music.flac hall.wav --ir room.wav", JURN_CONVOLUTION_BLOCK);
  const auto several = [&](const char* name, auto* values, const char* description) {
    return convolve->add_option(name, *values, description)->allow_extra_args(false);
  };
  several("--ir", &o->responses,
          "Response with one channel for all, or one for each of the recording's, or for each of "
          "the result of a mono recording; or with four for stereo (left to left, left to right, "
          "right to left, right to right); given several times, the files' channels follow one "
          "another");
  convolve
      ->add_option("--routes", o->routes,
                   "Text with a route per line: input, output, file, and perhaps its channel, a "
                   "gain (-3dB) and inverted; channels count from 1. Or a configuration of "
                   "jconvolver")
      ->excludes("--ir");
  add_choice<Wiring>(convolve, "--route", &o->wiring,
                     "Which input goes through which taps: straight, crossed, left-only or "
                     "mono-to-stereo; the default follows the channels",
                     {{"straight", Wiring::kStraight},
                      {"crossed", Wiring::kCrossed},
                      {"left-only", Wiring::kLeftOnly},
                      {"mono-to-stereo", Wiring::kMonoToStereo}},
                     "")
      ->excludes("--routes");
  add_choice<Precision>(
      convolve, "--precision", &o->precision,
      "float, the result rounded to its samples; or int16: 16 bits in and out, as on a phone",
      {{"int16", Precision::kInt16}, {"float", Precision::kDouble}}, "float");
  CLI::Option* fft =
      convolve->add_flag("--fft", o->fft, "By one long transform, up to 8192 taps, which is late");
  CLI::Option* time_domain = convolve->add_flag(
      "--time-domain", o->time_domain, "Tap by tap, up to 32767, with the bits of --fft's record");
  time_domain->excludes(fft);
  for (CLI::Option* option : {fft, time_domain})
    option->excludes("--routes")->excludes("--precision");
  several("--fade-to", &o->fade_to, "Response, or file of routes, to fade to while the audio runs");
  several("--at", &o->fade_at,
          "Second at which it fades, within one block; with --fft within one transform")
      ->check(between(0.0, 1e9));
  convolve->add_flag("--raw-latency", o->raw_latency, "Keep the latency of --fft in the result")
      ->needs(fft);
  add_tail(convolve, &o->no_tail);
  convolve->add_flag("--resample", o->response.resample,
                     "Convert a response at another rate than the recording's");
  convolve->add_option("--truncate", o->response.truncate, "Taps of the response to keep")
      ->check(CLI::Range(1, JURN_CONVOLUTION_TAPS));
  convolve->add_flag("--normalise", o->response.normalise,
                     "Scale the response's largest gain to 0 dB");
  add_format(convolve, &o->response.format, &o->response.variables);
  add_gain(convolve, filter);
  convolve->final_callback([=] { set_convolve(filter, o); });
}

}  // namespace jurn
