// One job of the tool: a recording through a chain of stages into a file.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "audio_io.h"
#include "stages.h"

namespace tool {

using Chain = std::vector<std::unique_ptr<Stage>>;

struct Job {
  std::string input;
  std::string output;
  std::vector<std::string> also_read;  // other files that the output must not replace
  SampleFormat format = SampleFormat::kInt16;
  bool keep_latency = false;
  bool keep_tail = false;
  double gain_db = 0.0;
  /** Builds the stages for a recording; `gain` multiplies the first one's. */
  std::function<Chain(const AudioReader& recording, double gain)> make_chain;
};

struct Summary {
  std::string output;
  std::int64_t frames = 0;
  int channels = 0;
  int rate = 0;
  double peak = 0.0;  // on the int16 scale
  std::int64_t clipped = 0;
  std::int64_t input_clipped = 0;
  std::int64_t not_finite = 0;
  double seconds = 0.0;   // that the run took
  bool too_loud = false;  // the result clips, and another gain would avoid it:
  double fitting_gain_db = 0.0;
};

/** Runs the job in constant memory. An error, or an interruption, leaves no output behind. */
Summary run(const Job& job);

void print(const Summary& summary);

/** From then on SIGINT and SIGTERM make check_interrupted throw, so that a run cleans up. */
void catch_interruptions();
void check_interrupted();

}  // namespace tool
