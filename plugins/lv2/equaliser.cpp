// An equaliser of up to 16 bands.
#include "design/equaliser.h"
#include "coefficients/parse.h"
#include "design/prepare_once.h"
#include "plugin.h"
#include "units.h"

namespace jurn::lv2 {
namespace {

constexpr int kBands = 16;
constexpr int kControlsPerBand = 5;  // on, type, frequency, gain, Q

class Equaliser final : public Plugin {
 public:
  using Plugin::Plugin;

 private:
  std::unique_ptr<OfferedFilter> make(const Wanted& wanted) override {
    std::vector<double> sections;
    for (int band = 0; band < kBands; ++band) {
      const float* const values =
          &wanted.controls[static_cast<std::size_t>(band * kControlsPerBand)];
      if (values[0] <= 0.0F) continue;
      EqualiserFilter filter{static_cast<EqualiserType>(static_cast<int>(values[1]))};
      filter.frequency = values[2];
      filter.gain = values[3];
      filter.q = values[4];
      if (filter.frequency <= 0.0 || 2.0 * filter.frequency >= wanted.rate)
        host().warn("band " + std::to_string(band + 1) + ": " + std::to_string(values[2]) +
                    " Hz is not below half of the rate; it is left out");
      else
        append_sections(filter, wanted.rate, &sections);
    }
    if (sections.empty()) sections = {1.0, 0.0, 0.0, 1.0, 0.0, 0.0};
    FilterDesign design = sections_design("equaliser", sections, {});
    scale(&design, from_decibels(wanted.controls.back()));
    PrepareOptions options;
    options.result = SampleFormat::kFloat;
    options.rate = wanted.rate;
    options.in_blocks = false;
    return offer_of(make_voice(*prepare_once(design, options), format()));
  }
};

constexpr Description description(const char* name, int channels) {
  return {name, channels, channels, kBands * kControlsPerBand + 1, 1, 1 << 14, nullptr, true};
}

}  // namespace

const Kind kEqualiserMono{description("equaliser-mono", 1), create<Equaliser>};
const Kind kEqualiserStereo{description("equaliser-stereo", 2), create<Equaliser>};

}  // namespace jurn::lv2
