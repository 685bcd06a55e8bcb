#include <cmath>

#include "commands/commands.h"
#include "errors.h"
#include "impulse_responses/hrtf_set.h"
#include "streams/voice.h"

namespace jurn {
namespace {

struct BinauralOptions {
  std::string sofa = JURN_DEFAULT_SOFA;
  double azimuth = 0.0, elevation = 0.0, orbit = 0.0;
  bool no_tail = false;
};

Chain binaural_chain(const BinauralOptions& o, int block, const Recording& recording, double gain) {
  if (recording.channels != 1)
    throw Error(kInputError, recording.name + ": has " + std::to_string(recording.channels) +
                                 " channels; binaural places a mono recording");
  const auto set = std::make_shared<HrtfSet>(o.sofa, recording.rate);
  Format format = format_of(recording);
  format.outputs = 2;
  format.block = block;
  const auto at = [=, elevation = o.elevation, name = o.sofa](double azimuth) {
    ImpulseResponse response = set->at(azimuth, elevation);
    scale(&response, gain);
    return make_convolution(connect(response, Wiring::kAutomatic, 1, name), set->taps(),
                            Precision::kDouble, format);
  };
  NextFilter next;  // each fades within one call, so that the source moves steadily
  if (o.orbit != 0.0)
    next = [=, start = o.azimuth, rate = recording.rate, seconds = o.orbit](std::int64_t first,
                                                                            int frames) {
      const double turns = static_cast<double>(first + frames) / rate / seconds;
      return std::make_unique<Change>(at(start + 360.0 * (turns - std::floor(turns))), frames);
    };
  std::unique_ptr<Stage> stage = make_stage(at(o.azimuth), Precision::kDouble, 0, std::move(next));
  stage->tail = set->taps() - 1;
  stage->keep_tail = !o.no_tail;
  return chain_of(std::move(stage));
}

void set_binaural(Filter* filter, const std::shared_ptr<BinauralOptions>& o) {
  if (o->sofa.empty())
    throw Error(kUsageError, "no set of responses is installed; name one by --sofa");
  filter->also_read = {o->sofa};
  filter->make_chain = [=](const Recording& recording, double gain) {
    return binaural_chain(*o, filter->block, recording, gain);
  };
}

}  // namespace

void add_binaural(CLI::App* app, Filter* filter, Files* files) {
  const auto o = std::make_shared<BinauralOptions>();
  CLI::App* binaural = add_filter_command(app, filter, files, "binaural",
                                          "Places a mono recording around the listener",
                                          "binaural speech.wav around.wav --orbit 4");
  binaural->add_option("--azimuth", o->azimuth, "Degrees: 0 in front, 90 to the left")
      ->check(between(-3600.0, 3600.0));
  binaural->add_option("--elevation", o->elevation, "Degrees: 90 above, -90 below")
      ->check(between(-90.0, 90.0));
  binaural
      ->add_option("--orbit", o->orbit,
                   "Seconds per turn to the left, from --azimuth on; negative: to the right")
      ->check(between(-1e6, 1e6));
  binaural->add_option("--sofa", o->sofa, "Set of head-related impulse responses")
      ->capture_default_str();
  add_gain(binaural, filter);
  add_tail(binaural, &o->no_tail);
  binaural->final_callback([=] { set_binaural(filter, o); });
}

}  // namespace jurn
