#include "level.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <optional>
#include <vector>

#include "Filter_control.h"
#include "errors.h"
#include "recordings/audio_io.h"
#include "recordings/signals.h"
#include "report.h"

namespace tool {
namespace {

static_assert(kMaxLevelLength == JURN_MOVING_SUM_MAX);

constexpr std::size_t kReadFrames = 1024;
constexpr double kRounding = 1e-6;  // frames, so that rows fall on whole multiples of a step

/** The running mean of one channel. */
class Meter {
 public:
  Meter(int length, bool square) : square_(square) {
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

double decibels(double mean, bool square) {
  return (square ? 10.0 : 20.0) * std::log10(mean);
}

struct CloseFile {
  void operator()(std::FILE* file) const { std::fclose(file); }
};

void check_written(std::FILE* csv, const LevelJob& job) {
  if (std::fflush(csv) == 0 && !std::ferror(csv)) return;
  check_interrupted();
  if (errno == EPIPE) throw Error(kPipeClosed, "");
  throw Error(kOutputError, (job.output.empty() ? "standard output" : job.output) +
                                ": cannot be written (" + std::strerror(errno) + ")");
}

}  // namespace

void run_level(const LevelJob& job) {
  AudioReader reader(job.input, 2, job.raw);
  std::optional<OutputFile> output;
  std::unique_ptr<std::FILE, CloseFile> opened;
  if (!job.output.empty()) {
    refuse_overwrite(job.output, {job.input});
    output.emplace(job.output, job.overwrite);
    opened.reset(fdopen(dup(output->descriptor()), "w"));
    if (!opened) throw Error(kOutputError, job.output + ": cannot be written");
  }
  std::FILE* csv = opened ? opened.get() : stdout;

  const std::size_t channels = static_cast<std::size_t>(reader.channels());
  std::vector<Meter> meters(channels, Meter(job.length, job.square));
  std::fprintf(csv, "seconds");
  for (std::size_t c = 1; c <= channels; ++c)
    std::fprintf(csv, ",%s_%zu,dbfs_%zu", job.square ? "square" : "magnitude", c, c);
  std::fprintf(csv, "\n");

  std::vector<float> samples(kReadFrames * channels);
  std::vector<short> int16(samples.size());
  const double step = job.every * reader.rate();
  double next_row = step - kRounding;
  std::int64_t frame = 0, loudest_frame = 0, limited = 0;
  double loudest = 0.0;
  while (const std::size_t got = reader.read(samples.data(), kReadFrames)) {
    check_interrupted();
    if (std::ferror(csv)) check_written(csv, job);
    to_int16(samples.data(), got * channels, int16.data(), &limited);
    for (std::size_t i = 0; i < got; ++i) {
      ++frame;
      const bool due = static_cast<double>(frame) >= next_row;
      if (due) {
        const double row = std::floor((static_cast<double>(frame) + kRounding) / step) + 1.0;
        next_row = row * step - kRounding;
        std::fprintf(csv, "%.6f", static_cast<double>(frame) / reader.rate());
      }
      for (std::size_t c = 0; c < channels; ++c) {
        const double mean = meters[c].push(int16[i * channels + c]);
        if (mean > loudest) {
          loudest = mean;
          loudest_frame = frame;
        }
        if (due) std::fprintf(csv, ",%.9g,%.2f", mean, decibels(mean, job.square));
      }
      if (due) std::fprintf(csv, "\n");
    }
  }
  check_written(csv, job);
  if (!output) return;
  output->commit();
  if (!job.quiet)
    print(LevelSummary{job.input, job.output, output->is_standard_output(),
                       decibels(loudest, job.square),
                       static_cast<double>(loudest_frame) / reader.rate()},
          job.json);
}

}  // namespace tool
