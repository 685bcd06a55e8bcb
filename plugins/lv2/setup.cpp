// A setup of loudspeakers from a file.
#include <algorithm>

#include "coefficients/setups.h"
#include "plugin.h"
#include "streams/setup_voice.h"

namespace jurn::lv2 {
namespace {

constexpr int kBlock = 64;

class LoudspeakerSetup final : public Plugin {
 public:
  using Plugin::Plugin;

 private:
  /** The first so many channels to the first outputs; the others are silent. */
  SetupStep to_outputs(int channels) const {
    SetupStep step{};
    step.kind = SetupStep::kMixer;
    step.name = "outputs";
    step.outputs = format().outputs;
    for (int c = 0; c < channels; ++c) step.routes.push_back({c, c, 1.0});
    return step;
  }

  /** Silence: all frequencies would harm a tweeter. */
  std::unique_ptr<Voice> make_idle() const override {
    Setup setup;
    setup.inputs = format().inputs;
    setup.steps = {to_outputs(0)};
    return make_setup_voice(prepare(setup, {}), format());
  }

  std::unique_ptr<OfferedFilter> make(const Wanted& wanted) override {
    if (wanted.file.empty()) return nullptr;
    Setup setup = read_setup(wanted.file, wanted.rate, format().inputs).setup;
    const int outputs = setup.outputs();
    check_channels(wanted.file, {setup.inputs, outputs}, "this plugin",
                   {format().inputs, std::min(outputs, format().outputs)});
    setup.steps.push_back(to_outputs(outputs));
    std::vector<std::string> warnings;
    auto made = offer_setup(setup, format(), SampleFormat::kFloat, wanted.file, &warnings);
    for (const std::string& text : warnings) host().warn(text);
    return made;
  }
};

// Bypassed, it would send all frequencies to each driver; so it cannot be.
constexpr Description description(const char* name, int outputs) {
  return {name, 2, outputs, 0, kBlock, 1 << 14, "setup", false};
}

}  // namespace

const Kind kSetupStereo{description("setup-stereo", 2), create<LoudspeakerSetup>};
const Kind kSetupMulti{description("setup-8-outputs", 8), create<LoudspeakerSetup>};

}  // namespace jurn::lv2
