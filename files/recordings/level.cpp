#include "recordings/level.h"

#include <cmath>
#include <cstdint>
#include <memory>
#include <string>

#include "errors.h"
#include "recordings/signals.h"
#include "streams/voice.h"

namespace jurn {
namespace {

constexpr int kLongest = 10;  // seconds
constexpr std::size_t kFrames = 1024;
constexpr double kRounding = 1e-6;  // frames, so that rows fall on whole multiples of a step

}  // namespace

void check_length(int length, int rate) {
  if (length > kLongest * rate)
    throw Error(kUsageError, "--length " + std::to_string(length) +
                                 ": the mean is of up to ten seconds, " +
                                 std::to_string(kLongest * rate) + " samples here");
}

Loudest measure_level(AudioReader* reader, const LevelOptions& options, const LevelRow& on_row) {
  const std::size_t channels = static_cast<std::size_t>(reader->channels());
  Format format;
  format.inputs = format.outputs = reader->channels();
  const std::unique_ptr<Voice> mean = make_mean(options.length, Precision::kDouble, format);
  std::vector<double> planar(channels * kFrames);
  std::vector<double*> arrays;
  for (std::size_t c = 0; c < channels; ++c) arrays.push_back(planar.data() + c * kFrames);
  std::vector<double> means(channels);
  std::vector<double> samples(kFrames * channels);
  const double step = options.every * reader->rate();
  double next_row = step - kRounding;
  std::int64_t frame = 0;
  Loudest loudest{0.0, 0.0};
  while (const std::size_t got = reader->read(samples.data(), kFrames)) {
    check_interrupted();
    for (std::size_t c = 0; c < channels; ++c)
      for (std::size_t i = 0; i < got; ++i) {
        const double x = std::abs(samples[i * channels + c]) / 32768.0;
        arrays[c][i] = options.square ? x * x : x;
      }
    mean->run(arrays.data(), static_cast<int>(got), arrays.data());
    for (std::size_t i = 0; i < got; ++i) {
      ++frame;
      const double seconds = static_cast<double>(frame) / reader->rate();
      for (std::size_t c = 0; c < channels; ++c) {
        means[c] = arrays[c][i];
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
