#include "impulse_responses/hrtf_set.h"

#include <algorithm>
#include <cmath>
#include <filesystem>

#include "coefficients/parse.h"
#include "errors.h"
#include "streams/long_filter.h"

namespace jurn {
namespace {

[[noreturn]] void refuse(const std::string& path, const std::string& message) {
  throw Error(kInputError, path + ": " + message);
}

[[noreturn]] void fail(const std::string& path, int reason) {
  if (!std::filesystem::exists(path)) refuse(path, "no such file");
  refuse(path, "no SOFA file of head-related impulse responses (libmysofa's error " +
                   std::to_string(reason) + ")");
}

}  // namespace

HrtfSet::HrtfSet(const std::string& path, int rate) {
  int error = 0;
  const std::unique_ptr<MYSOFA_HRTF, decltype(&mysofa_free)> original(
      mysofa_load(path.c_str(), &error), mysofa_free);
  if (!original || mysofa_check(original.get()) != MYSOFA_OK) fail(path, error);
  // libmysofa would set the loudness after it resampled, which makes it depend on the rate.
  const double native = original->DataSamplingRate.values[0];
  gain_ = mysofa_loudness(original.get()) * native / rate;
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

/** Both ears' taps in one direction, as `put(ear, tap, value)`. */
template <typename Put>
void HrtfSet::look_up(double azimuth, double elevation, Put put) {
  float position[] = {static_cast<float>(azimuth), static_cast<float>(elevation), 1.0f};
  mysofa_s2c(position);
  float delays[2];  // frames, as in the file
  mysofa_getfilter_float(set_.get(), position[0], position[1], position[2], ears_[0].data(),
                         ears_[1].data(), &delays[0], &delays[1]);
  for (int ear = 0; ear < 2; ++ear) {
    const int delay = std::clamp(static_cast<int>(std::lround(delays[ear])), 0, longest_delay_);
    for (int k = 0; k < taps(); ++k) {
      const bool silent = k < delay || k >= delay + measured_;
      put(ear, k, silent ? 0.0 : ears_[ear][static_cast<std::size_t>(k - delay)] * gain_);
    }
  }
}

ImpulseResponse HrtfSet::at(double azimuth, double elevation) {
  ImpulseResponse response(2, std::vector<double>(static_cast<std::size_t>(taps())));
  look_up(azimuth, elevation, [&](int ear, int k, double value) {
    response[static_cast<std::size_t>(ear)][static_cast<std::size_t>(k)] = value;
  });
  return response;
}

void HrtfSet::taps_at(double azimuth, double elevation, double gain, float* left, float* right) {
  look_up(azimuth, elevation, [&](int ear, int k, double value) {
    (ear ? right : left)[k] = static_cast<float>(value * gain);
  });
}

}  // namespace jurn
