// A mono source around a listener with headphones.
#include "impulse_responses/hrtf_set.h"
#include "plugin.h"
#include "streams/routing.h"

namespace jurn::lv2 {
namespace {

enum Control { kAzimuth, kElevation, kDistance, kControls };

constexpr int kBlock = 64;

class Binaural final : public Plugin {
 public:
  using Plugin::Plugin;

 private:
  std::unique_ptr<OfferedFilter> make(const Wanted& wanted) override {
    const std::string& file = wanted.file.empty() ? kUsual : wanted.file;
    if (!set_ || wanted.naming != read_) {
      set_.reset();
      set_ = std::make_unique<HrtfSet>(file, wanted.rate);
      read_ = wanted.naming;
    }
    ImpulseResponse ears = set_->at(wanted.controls[kAzimuth], wanted.controls[kElevation]);
    scale(&ears, 1.0 / wanted.controls[kDistance]);  // as the pressure of a point falls
    const Routing routing = connect(ears, Wiring::kAutomatic, 1, file);
    return offer_of(make_convolution(routing, set_->taps(), Precision::kDouble, format()));
  }

  inline static const std::string kUsual = JURN_DEFAULT_SOFA;
  std::unique_ptr<HrtfSet> set_;
  int read_ = 0;  // which naming
};

}  // namespace

const Kind kBinaural{{"binaural", 1, 2, kControls, kBlock, 1 << 14, "responses", true},
                     create<Binaural>};

}  // namespace jurn::lv2
