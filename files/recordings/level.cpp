#include "recordings/level.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>

#include "Filter_control.h"
#include "recordings/signals.h"

namespace jurn {
namespace {

static_assert(kMaxLevelLength == JURN_MOVING_SUM_MAX);

constexpr std::size_t kReadFrames = 1024;
constexpr double kRounding = 1e-6;  // frames, so that rows fall on whole multiples of a step

/** The running mean of one channel. */
class RunningMean {
 public:
  RunningMean(int length, bool square) : square_(square) {
    for (shuzhiFilter_ID* sum : {&low_, &high_}) {
      sum->blen = length;
      MORVAX_shuzhiFilterReset_API(sum);
    }
    unit_ = length * (square ? 32768.0 * 32768.0 : 32768.0);
  }

  /** Returns the mean after one more sample, as a fraction of full scale. */
  double push(short sample) {
    const int magnitude = std::min(std::abs(static_cast<int>(sample)), 32767);
    if (!square_)
      return MORVAX_shuzhiFilterRun_API_inonesampleoutsum(&low_, static_cast<short>(magnitude)) /
             unit_;
    // A square has 30 bits; two running sums of 15 bits each keep it exact.
    const int power = magnitude * magnitude;
    const int low =
        MORVAX_shuzhiFilterRun_API_inonesampleoutsum(&low_, static_cast<short>(power % 32768));
    const int high =
        MORVAX_shuzhiFilterRun_API_inonesampleoutsum(&high_, static_cast<short>(power / 32768));
    return (high * 32768.0 + low) / unit_;
  }

 private:
  bool square_;
  double unit_;
  shuzhiFilter_ID low_{}, high_{};
};

}  // namespace

Loudest measure_level(AudioReader* reader, const LevelOptions& options, const LevelRow& on_row) {
  const std::size_t channels = static_cast<std::size_t>(reader->channels());
  std::vector<RunningMean> running(channels, RunningMean(options.length, options.square));
  std::vector<double> means(channels);
  std::vector<float> samples(kReadFrames * channels);
  std::vector<short> int16(samples.size());
  const double step = options.every * reader->rate();
  double next_row = step - kRounding;
  std::int64_t frame = 0, limited = 0;
  Loudest loudest{0.0, 0.0};
  while (const std::size_t got = reader->read(samples.data(), kReadFrames)) {
    check_interrupted();
    to_int16(samples.data(), got * channels, int16.data(), &limited);
    for (std::size_t i = 0; i < got; ++i) {
      ++frame;
      const double seconds = static_cast<double>(frame) / reader->rate();
      for (std::size_t c = 0; c < channels; ++c) {
        means[c] = running[c].push(int16[i * channels + c]);
        if (means[c] > loudest.mean) loudest = {means[c], seconds};
      }
      if (static_cast<double>(frame) < next_row) continue;
      const double row = std::floor((static_cast<double>(frame) + kRounding) / step) + 1.0;
      next_row = row * step - kRounding;
      on_row(seconds, means);
    }
  }
  return loudest;
}

}  // namespace jurn
