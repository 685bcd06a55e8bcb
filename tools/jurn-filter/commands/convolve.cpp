#include "streams/convolve.h"

#include <algorithm>

#include "commands/commands.h"
#include "errors.h"

namespace tool {
namespace {

struct ConvolveOptions {
  std::vector<std::string> responses, fade_to;
  std::vector<double> fade_at;
  ImpulseResponseOptions response;
  Route route = Route::kAutomatic;
  bool time_domain = false;
  bool no_tail = false, raw_latency = false;
};

/** Reads the responses of a job that fades; all become as long as the longest. */
std::vector<ImpulseResponse> read_impulse_responses(const ConvolveOptions& o, int rate,
                                                    double gain) {
  std::vector<ImpulseResponse> responses{read_impulse_response(o.responses, rate, o.response)};
  const std::size_t files = o.responses.size();
  for (std::size_t i = 0; i < o.fade_to.size(); i += files) {
    responses.push_back(
        read_impulse_response({o.fade_to.begin() + static_cast<std::ptrdiff_t>(i),
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

Chain convolve_chain(const ConvolveOptions& o, int block, const Recording& recording, double gain) {
  std::vector<ImpulseResponse> responses = read_impulse_responses(o, recording.rate, gain);
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
  std::unique_ptr<Stage> stage = make_convolver(c, recording.channels, block);
  stage->keep_latency = o.raw_latency;
  stage->keep_tail = !o.no_tail;
  return chain_of(std::move(stage));
}

void set_convolve(Filter* filter, const std::shared_ptr<ConvolveOptions>& o) {
  if (o->fade_to.size() != o->fade_at.size() * o->responses.size())
    throw Error(kUsageError, "each --at takes as many --fade-to as there are --ir");
  if (!std::is_sorted(o->fade_at.begin(), o->fade_at.end()))
    throw Error(kUsageError, "the times of --at have to rise");
  o->response.max_taps = o->time_domain ? kMaxTimeDomainTaps : kMaxFftTaps;
  o->response.limit = "the FFT takes " + std::to_string(kMaxFftTaps) + ", --time-domain " +
                      std::to_string(kMaxTimeDomainTaps);
  if (o->response.truncate > o->response.max_taps)
    throw Error(kUsageError,
                "--truncate " + std::to_string(o->response.truncate) + ": " + o->response.limit);
  filter->also_read = o->responses;
  filter->also_read.insert(filter->also_read.end(), o->fade_to.begin(), o->fade_to.end());
  filter->make_chain = [=](const Recording& recording, double gain) {
    return convolve_chain(*o, filter->block, recording, gain);
  };
}

}  // namespace

void add_convolve(CLI::App* app, Filter* filter, Files* files) {
  const auto o = std::make_shared<ConvolveOptions>();
  CLI::App* convolve =
      add_filter_command(app, filter, files, "convolve", "Convolves with an impulse response",
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
  add_tail(convolve, &o->no_tail);
  convolve->add_flag("--resample", o->response.resample,
                     "Convert a response at another rate than the recording's");
  convolve->add_option("--truncate", o->response.truncate, "Taps of the response to keep")
      ->check(CLI::Range(1, kMaxTimeDomainTaps));
  convolve->add_flag("--normalise", o->response.normalise,
                     "Scale the response's largest gain to 0 dB");
  add_gain(convolve, filter);
  convolve->final_callback([=] { set_convolve(filter, o); });
}

}  // namespace tool
