#include "hrtf_source.h"

#include "element.h"
#include "streams/changing_stream.h"
#include "units.h"

namespace jurn::gst {

/** Opens the set, unless that is done. */
void HrtfSource::read(const HrtfSettings& settings, int rate) {
  const gint64 written = time_of_writing(settings.sofa);
  if (set_ && setting_ == settings.setting && rate_ == rate && written_ == written) return;
  set_.reset();
  set_ = std::make_unique<jurn::HrtfSet>(settings.sofa, rate);
  setting_ = settings.setting;
  rate_ = rate;
  written_ = written;
}

std::unique_ptr<OfferedFilter> HrtfSource::prepare(const StreamFormat& format,
                                                   std::vector<std::string>*) {
  constexpr int kUsualRate = 48000;
  const HrtfSettings& settings = next();
  if (settings.sofa.empty()) return nullptr;
  read(settings, format.rate ? format.rate : kUsualRate);
  if (!format.block) return nullptr;
  jurn::ImpulseResponse ears = set_->at(settings.azimuth, settings.elevation);
  jurn::scale(&ears, jurn::from_decibels(settings.gain_db));
  const jurn::Routing routing =
      jurn::connect(ears, jurn::Wiring::kAutomatic, format.inputs, settings.sofa);
  return std::make_unique<OfferedFilter>(
      jurn::make_convolution(routing, set_->taps(), jurn::Precision::kDouble,
                             engine_format(format, format.block, jurn::kConvolutionHistory)));
}

}  // namespace jurn::gst
