#include "impulse_responses/hrtf_set.h"

#include <algorithm>
#include <cmath>
#include <filesystem>

#include "coefficients/parse.h"
#include "errors.h"
#include "streams/long_filter.h"

namespace jurn {
namespace {

constexpr double kLargestTap = 1e6;  // where the loudness in front is 1

[[noreturn]] void refuse(const std::string& path, const std::string& message) {
  throw Error(kInputError, path + ": " + message);
}

[[noreturn]] void fail(const std::string& path, int reason) {
  std::error_code ignored;
  if (!std::filesystem::exists(path, ignored)) refuse(path, "no such file");
  if (reason == MYSOFA_NO_MEMORY)  // its own limit as well, which a damaged length exceeds
    refuse(path, "is damaged, or too large for the memory");
  refuse(path, "no SOFA file of head-related impulse responses (libmysofa's error " +
                   std::to_string(reason) + ")");
}

}  // namespace

HrtfSet::HrtfSet(const std::string& path, int rate) {
  int error = 0;
  const std::unique_ptr<MYSOFA_HRTF, decltype(&mysofa_free)> original(
      mysofa_load(path.c_str(), &error), mysofa_free);
  if (original) error = mysofa_check(original.get());
  if (!original || error != MYSOFA_OK) fail(path, error);
  // libmysofa would set the loudness after it resampled, which makes it depend on the rate.
  const double native = original->DataSamplingRate.values[0];
  if (!(native >= 1000.0 && native <= 1e6))  // libmysofa would resample by any ratio
    refuse(path, "is at a sampling rate of " + shown(native) + " Hz");
  double peak = 0.0;
  for (unsigned i = 0; i < original->DataIR.elements; ++i) {
    const double tap = static_cast<double>(original->DataIR.values[i]);
    if (!std::isfinite(tap)) refuse(path, "holds responses that are no finite numbers");
    peak = std::max(peak, std::abs(tap));
  }
  gain_ = mysofa_loudness(original.get()) * native / rate;
  if (!std::isfinite(gain_)) refuse(path, "is silent in front of the listener");
  if (!(peak * gain_ <= kLargestTap))
    refuse(path, "is damaged (a tap is " + shown(peak * gain_) + " times the loudness in front)");
  set_.reset(mysofa_open_no_norm(path.c_str(), static_cast<float>(rate), &measured_, &error));
  if (!set_) fail(path, error);
  const MYSOFA_ARRAY& delays = set_->hrtf->DataDelay;
  double longest = 0.0;
  for (unsigned i = 0; i < delays.elements; ++i) {
    const double delay = static_cast<double>(delays.values[i]);
    if (!(delay >= 0.0)) refuse(path, "has a delay of " + shown(delay) + " samples");
    longest = std::max(longest, std::ceil(delay));
  }
  // Before it becomes an int: the file can hold any number.
  if (!(measured_ + longest <= kMaxTimeDomainTaps))
    refuse(path, "has responses of " + std::to_string(measured_) + " taps and delays of up to " +
                     shown(longest) + "; the limit of both together is " +
                     std::to_string(kMaxTimeDomainTaps) + " taps");
  longest_delay_ = static_cast<int>(longest);
  for (std::vector<float>& ear : ears_) ear.resize(static_cast<std::size_t>(measured_));
}

ImpulseResponse HrtfSet::at(double azimuth, double elevation) {
  float position[] = {static_cast<float>(azimuth), static_cast<float>(elevation), 1.0f};
  mysofa_s2c(position);
  float delays[2];  // frames, as in the file
  mysofa_getfilter_float(set_.get(), position[0], position[1], position[2], ears_[0].data(),
                         ears_[1].data(), &delays[0], &delays[1]);
  ImpulseResponse response(2, std::vector<double>(static_cast<std::size_t>(taps())));
  for (std::size_t ear = 0; ear < 2; ++ear) {
    const int delay = std::clamp(static_cast<int>(std::lround(delays[ear])), 0, longest_delay_);
    std::transform(ears_[ear].begin(), ears_[ear].end(), response[ear].begin() + delay,
                   [&](float tap) { return tap * gain_; });
  }
  return response;
}

}  // namespace jurn
