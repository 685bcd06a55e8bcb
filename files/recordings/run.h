// A recording through a chain of stages into a file.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "recordings/audio_io.h"
#include "recordings/in_order.h"
#include "streams/stages.h"

namespace jurn {

using Chain = std::vector<std::unique_ptr<Stage>>;

/** What a filter is made for: a recording, or the result of the filter before. */
struct Recording {
  std::string name;
  int channels;
  int rate;
  std::int64_t frames;                          // 0 when unknown
  SampleFormat samples = SampleFormat::kInt16;  // what those of the result hold
  std::string result = {};                      // its file, which must not be one that is read
};

/** Frames per call of filters with long taps, whose bits follow from it, and of others. */
constexpr int kRecordingBlock = 1024;

/** Of a voice for a recording: as many channels out as in, and nobody waits for a call. */
Format format_of(const Recording& recording);

/** How far a run has come. */
struct Progress {
  const std::string& what;  // the result, or what else is being done
  std::int64_t frames;      // of the recording
  std::int64_t total;       // 0 when unknown
  int rate;
};

struct Job {
  std::string input;
  std::string output;
  InputFormat raw;  // of the input
  AudioFormat format;
  std::optional<SampleFormat> bits;     // of the result; by default those of the recording
  std::optional<std::uint32_t> dither;  // the seed, where samples are rounded to fewer bits
  bool overwrite = false;
  bool stamp = false;                  // tells that of the result
  Written written;                     // hears the samples of the result; may be empty
  std::vector<std::string> also_read;  // other files that the output must not replace
  /** Builds the stages; `gain` multiplies the gain of the filter that may take another one. */
  std::function<Chain(const Recording& recording, double gain)> make_chain;
  double gain_db = 0.0;     // of that filter
  bool takes_gain = false;  // whether there is one
  int gain_of = 0;          // which filter of several it is, from 1
  bool fit = false;         // takes another gain where this one clips
  Lock* lock = nullptr;     // of jobs that run at once: held while files open and filters are made
  std::function<void(const Progress&)> on_progress;  // called often; may be empty
};

struct Summary {
  std::string input;
  std::string output;
  bool on_standard_output = false;
  std::int64_t frames = 0;
  int channels = 0;
  int rate = 0;
  double peak = 0.0;                             // on the int16 scale
  std::int64_t clipped = 0;                      // samples of the result or between two filters
  std::vector<std::int64_t> clipped_by_channel;  // those of the result
  std::int64_t input_clipped = 0;
  std::int64_t not_finite = 0;
  std::optional<double>
      lost_after;        // seconds after which a filter's numbers became infinite or none
  std::string narrowed;  // how a recording with more came to 16 bits
  std::string left_out;  // what stands beside the samples of the recording and not of the result
  bool dithered = false;
  double seconds = 0.0;                   // that the run took
  std::optional<double> fitting_gain_db;  // when the result clips, and another gain would avoid it
  std::string stamp;                      // of the result, if it was asked for
  std::optional<double> fitted_gain_db;   // that was taken instead
  int gain_of = 0;  // the filter that this is the gain of, if there are several
};

/** What a user has to know of a result whose filter's numbers grew beyond all bounds; else empty.
 */
std::string loss_of(const Summary& summary);

/** Runs the job in constant memory. An error, or an interruption, leaves no output behind. */
Summary run(const Job& job);

}  // namespace jurn
