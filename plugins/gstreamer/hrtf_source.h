// Where the impulse responses of jurnbinaural come from.
#pragma once

#include <memory>
#include <string>

#include "impulse_responses/hrtf_set.h"
#include "settings_preparer.h"

namespace jurn::gst {

/** What the properties ask for: a set of responses, and a place. */
struct HrtfSettings {
  std::string sofa;
  double azimuth = 0.0, elevation = 0.0;  // degrees
  double gain_db = 0.0;
  int setting = 0;  // which time the set was set: the same name may mean another file
};

/** Reads sets, once for all places, and makes filters of them. */
class HrtfSource final : public SettingsPreparer<HrtfSettings> {
 public:
  using SettingsPreparer::SettingsPreparer;

 private:
  std::unique_ptr<OfferedFilter> prepare(const StreamFormat& format,
                                         std::vector<std::string>* warnings) override;
  void read(const HrtfSettings& settings, int rate);

  // The worker's own: what was read last, and for what.
  std::unique_ptr<jurn::HrtfSet> set_;
  int setting_ = 0, rate_ = 0;
  gint64 written_ = 0;
};

}  // namespace jurn::gst
