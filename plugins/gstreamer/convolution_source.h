// Where the impulse responses of jurnconvolve come from.
#pragma once

#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "design/prepare.h"
#include "settings_preparer.h"
#include "streams/routing.h"

namespace jurn::gst {

/** What the properties ask for: a file of responses, one of routes, or one of a setup. */
struct ConvolutionSettings {
  std::string location, routes, setup;
  double gain_db = 0.0;
  bool normalise = false, resample = false;
  jurn::Precision precision = jurn::Precision::kDouble;
  int setting = 0;  // which time the files were set: the same name may mean another file

  void set_location(const std::string& path) { set(&location, path); }
  void set_routes(const std::string& path) { set(&routes, path); }
  void set_setup(const std::string& path) { set(&setup, path); }
  /** The one that is set, or none. */
  const std::string& file() const {
    return !setup.empty() ? setup : !routes.empty() ? routes : location;
  }

 private:
  /** Each replaces the others, and an empty one only itself. */
  void set(std::string* one, const std::string& path) {
    for (std::string* other : {&location, &routes, &setup})
      if (!path.empty()) other->clear();
    *one = path;
    ++setting;
  }
};

/** Channels in and out that a response can connect; none: as many in as out. */
using ChannelPairs = std::vector<std::pair<int, int>>;

/** Reads files, once for all gains, and makes filters of them. */
class ConvolutionSource final : public SettingsPreparer<ConvolutionSettings> {
 public:
  using SettingsPreparer::SettingsPreparer;

  /** Waits until the files that are set are read. */
  ChannelPairs pairs();

 private:
  /** What was read. */
  struct Files {
    std::string name;
    int rate = 0, setting = -1;
    bool resample = false;
    gint64 written = 0;
    jurn::ImpulseResponse response;  // of a location
    jurn::Routing routing;           // of a file of routes
  };

  std::unique_ptr<OfferedFilter> prepare(const StreamFormat& format,
                                         std::vector<std::string>* warnings) override;
  void settled(bool well) override;
  void read(const ConvolutionSettings& settings, int rate);
  void find_pairs(const ConvolutionSettings& settings);
  std::unique_ptr<OfferedFilter> prepare_setup(const ConvolutionSettings& settings,
                                               const StreamFormat& format,
                                               std::vector<std::string>* warnings);

  mutable std::mutex mutex_;
  ChannelPairs pairs_;

  // The worker's own.
  ChannelPairs good_pairs_;
  int counted_setting_ = -1;  // whose channels are known
  Files files_;
};

}  // namespace jurn::gst
