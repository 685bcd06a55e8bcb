#include "impulse_responses/hrtf_set.h"

#include <algorithm>
#include <cmath>
#include <filesystem>

#include "errors.h"

namespace tool {
namespace {

[[noreturn]] void fail(const std::string& path, int reason) {
  const bool missing = !std::filesystem::exists(path);
  throw Error(kInputError, path + (missing ? ": no such file"
                                           : ": no SOFA file of head-related impulse responses "
                                             "(libmysofa's error " +
                                                 std::to_string(reason) + ")"));
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
  for (unsigned i = 0; i < delays.elements; ++i)
    longest_delay_ = std::max(longest_delay_, static_cast<int>(std::ceil(delays.values[i])));
}

ImpulseResponse HrtfSet::at(double azimuth, double elevation) const {
  float position[] = {static_cast<float>(azimuth), static_cast<float>(elevation), 1.0f};
  mysofa_s2c(position);
  const std::size_t taps = static_cast<std::size_t>(measured_);
  std::vector<float> ears[2] = {std::vector<float>(taps), std::vector<float>(taps)};
  float delays[2];  // frames, as in the file
  mysofa_getfilter_float(set_.get(), position[0], position[1], position[2], ears[0].data(),
                         ears[1].data(), &delays[0], &delays[1]);
  ImpulseResponse response;
  for (int ear = 0; ear < 2; ++ear) {
    const int delay = std::clamp(static_cast<int>(std::lround(delays[ear])), 0, longest_delay_);
    std::vector<double> channel(static_cast<std::size_t>(delay), 0.0);
    for (const float tap : ears[ear]) channel.push_back(tap * gain_);
    channel.resize(taps + static_cast<std::size_t>(longest_delay_));
    response.push_back(std::move(channel));
  }
  return response;
}

}  // namespace tool
