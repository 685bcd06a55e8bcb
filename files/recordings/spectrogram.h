// The spectra of a recording over time.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "recordings/audio_io.h"

namespace jurn {

constexpr double kSpectrogramSilence = -200.0;  // dBFS, the lowest level

/** Mean power of the bins over time; 1 is a sine at full scale. Columns become longer as the
 * recording goes on, so that their number stays. */
class Spectrogram {
 public:
  /** `window` is a power of 2, in samples. */
  Spectrogram(int channels, int window);

  void push(const float* samples, std::size_t frames);

  /** Ends with the windows whose middle is still in the recording. */
  void finish();

  std::size_t columns() const { return columns_.size(); }
  std::size_t column_frames() const { return column_frames_; }

  /** The middle of a column in frames from the recording's start. */
  double middle(std::size_t column) const;

  double dbfs(std::size_t column, std::size_t bin) const;

 private:
  struct Column {
    std::vector<double> power;
    std::size_t windows, first, last;  // and the middles of the first and the last
  };

  void add(const float* frames);
  void halve();

  std::size_t channels_, size_, hop_;
  std::size_t column_frames_;
  std::size_t position_ = 0;  // of the next window's middle
  std::vector<double> window_;
  std::vector<float> pending_;
  std::vector<Column> columns_;
};

/** The spectrogram of a whole recording. */
struct RecordingSpectra {
  int rate;
  double seconds;
  Spectrogram spectra;
};
RecordingSpectra analyse(const std::string& path, InputFormat raw, int window);

}  // namespace jurn
