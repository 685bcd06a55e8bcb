// Audio files in and out. Samples between reader and writer are floats on the int16 scale, which
// hold 16-bit and 24-bit samples exactly.
#pragma once

#include <sndfile.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace tool {

enum class SampleFormat { kInt16, kInt24, kFloat };

/** Rounds to the nearest int16 and saturates; counts the samples that did not fit. */
void to_int16(const float* in, std::size_t count, short* out, std::int64_t* clipped);

struct CloseSndfile {
  void operator()(SNDFILE* file) const { sf_close(file); }
};
using SndfileHandle = std::unique_ptr<SNDFILE, CloseSndfile>;

/** A recording, read block by block. */
class AudioReader {
 public:
  AudioReader(const std::string& path, int max_channels);

  int channels() const { return info_.channels; }
  int rate() const { return info_.samplerate; }
  std::int64_t frames() const { return info_.frames; }

  /** Reads up to `frames` interleaved frames; fewer only at the end, where it returns 0. */
  std::size_t read(float* out, std::size_t frames);

  /** Samples of float files that were no finite numbers and were read as silence. */
  std::int64_t not_finite() const { return not_finite_; }

 private:
  std::string path_;
  SF_INFO info_{};
  SndfileHandle file_;
  std::int64_t frames_read_ = 0;
  std::int64_t not_finite_ = 0;
};

/** A file that is written beside its target and takes the target's place only when complete. */
class OutputFile {
 public:
  explicit OutputFile(const std::string& path);
  ~OutputFile();
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;

  int descriptor() const { return descriptor_; }
  const std::string& path() const { return path_; }

  /** Closes the file and moves it to its target. */
  void commit();

 private:
  std::string path_;
  std::string target_;
  std::string temporary_;
  int descriptor_ = -1;
};

/** A result, written block by block in the format that its name asks for. */
class AudioWriter {
 public:
  AudioWriter(const std::string& path, int channels, int rate, SampleFormat format);

  /** Rounds and saturates explicitly: libsndfile would wrap. */
  void write(const float* in, std::size_t frames);
  void commit();

  /** Samples that did not fit the file's sample format. */
  std::int64_t clipped() const { return clipped_; }

 private:
  void check_written(sf_count_t written, std::size_t frames);

  OutputFile output_;
  int channels_;
  SampleFormat format_;
  SndfileHandle file_;
  std::vector<short> int16_;
  std::vector<int> int24_;
  std::vector<float> float_;
  std::int64_t clipped_ = 0;
};

/** Throws when `output` names one of the files that are read, by whatever path. */
void refuse_overwrite(const std::string& output, const std::vector<std::string>& inputs);

}  // namespace tool
