// Audio files in and out. Samples between reader and writer are floats or doubles on the int16
// scale, which hold 16-bit and 24-bit samples exactly.
#pragma once

#include <sndfile.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "design/prepare.h"
#include "recordings/metadata.h"
#include "recordings/output_file.h"
#include "recordings/pipe.h"
#include "streams/rounding.h"
#include "streams/stamp.h"

namespace jurn {

/** Of a recording: what libsndfile reads. */
constexpr int kMaxChannels = 1024;
/** In Hz, so that an int counts the samples of a minute. */
constexpr int kMostRate = 10000000;

/** How a recording is read. */
struct InputFormat {
  int rate = 0;  // of little-endian int16 samples without a header; 0 for any other file
  int channels = 0;
  bool partial = false;  // takes what is there of a file that was cut off
};

/** Title, artist and so on, by the numbers of libsndfile. */
using Tags = std::vector<std::pair<int, std::string>>;

/** Held where libsndfile opens a file until its reason is read: it keeps one for all threads. */
inline std::mutex opening_by_libsndfile;

struct CloseSndfile {
  void operator()(SNDFILE* file) const { sf_close(file); }
};
using SndfileHandle = std::unique_ptr<SNDFILE, CloseSndfile>;

/** A recording, read block by block. */
class AudioReader {
 public:
  AudioReader(const std::string& path, int max_channels, InputFormat format = {});

  int channels() const { return info_.channels; }
  int rate() const { return info_.samplerate; }
  /** 0 when nobody knows, as of a pipe. */
  std::int64_t frames() const;
  /** What the samples need: compressed recordings that have no width of their own count as 16 bits.
   */
  SampleFormat samples() const;
  /** Whether the same path can be read once more. */
  bool repeatable() const { return repeatable_; }

  /** Reads up to `frames` interleaved frames; fewer only at the end, where it returns 0. */
  std::size_t read(float* out, std::size_t frames);
  std::size_t read(double* out, std::size_t frames);

  Tags tags() const;
  /** What else stands in the file; of a pipe nothing. */
  Metadata metadata() const;

  /** Samples of float files that were no finite numbers and were read as silence. */
  std::int64_t not_finite() const { return not_finite_; }

 private:
  void check_received() const;
  template <typename Sample>
  std::size_t read_samples(Sample* out, std::size_t frames);

  std::string path_;
  bool partial_;
  SF_INFO info_{};
  Descriptor descriptor_;
  std::unique_ptr<PipeReader> pipe_;
  SndfileHandle file_;
  bool repeatable_ = false;
  std::vector<short> int16_;
  std::vector<int> int32_;
  std::vector<float> float_;
  std::vector<double> double_;
  std::int64_t frames_read_ = 0;
  std::int64_t not_finite_ = 0;
};

/** What a result is written as. */
struct AudioFormat {
  std::string type;                 // "wav", "flac" ...; when empty the ending of the file's name
  std::string stream_type = "wav";  // of a stream whose name has no ending
  SampleFormat samples = SampleFormat::kInt16;
  bool narrower = false;  // where the file cannot hold these, less will do
};

/** Hears samples as they are written: short, int with 24 bits in the upper ones, or float. */
using Written = std::function<void(SampleFormat, const void* samples, std::size_t count)>;

/** A result, written block by block. */
class AudioWriter {
 public:
  AudioWriter(const std::string& path, int channels, int rate, const AudioFormat& format,
              bool overwrite);

  /** Rounds and saturates explicitly: libsndfile would wrap. */
  void write(const float* in, std::size_t frames);
  void write(const double* in, std::size_t frames);
  void commit();
  /** After a write that failed: lets commit() keep what was written before it. */
  void forget_error() { bytes_.forget_error(); }

  /** Throws when the format cannot count so many frames. */
  void expect(std::int64_t frames) const;
  /** Takes the tags over as far as the format has them. Before the first write. */
  void set_tags(const Tags& tags);
  /** Takes over what the format has a place for. Before the first write; returns the names of what
   * is left out. */
  std::string set_metadata(const Metadata& metadata);

  /** Adds noise before it rounds. Before the first write. */
  void set_dither(std::uint32_t seed) { dither_ = std::make_unique<Dither>(seed); }

  /** Samples that did not fit the file's sample format, all and of each channel. */
  std::int64_t clipped() const { return clipped_; }
  const std::vector<std::int64_t>& clipped_by_channel() const { return clipped_by_channel_; }

  const std::string& path() const { return output_.path(); }
  bool is_standard_output() const { return output_.is_standard_output(); }
  SampleFormat samples() const { return format_; }
  /** Of what is written from now on. */
  void keep(Stamp* stamp) { stamp_ = stamp; }
  void tell(Written written) { written_ = std::move(written); }

 private:
  template <typename Sample>
  void write_samples(const Sample* in, std::size_t frames);
  template <typename Sample>
  void count_clipped(const Sample* in, std::size_t frames, Dither* dither);
  template <typename Sample>
  void pass_on(const std::vector<Sample>& samples) const;
  void start_stream();
  std::string stream_header(std::int64_t frames) const;
  void complete_wav_stream();
  [[noreturn]] void fail(const std::string& reason) const;

  OutputFile output_;
  SF_INFO info_{};
  SampleFormat format_;
  std::unique_ptr<Dither> dither_;
  ByteWriter bytes_;
  SndfileHandle file_;
  std::int64_t frames_ = 0;
  std::int64_t most_frames_ = 0;  // that the format can count
  bool wav_stream_ = false;
  std::vector<short> int16_;
  std::vector<int> int24_;
  std::vector<float> float_;
  std::int64_t clipped_ = 0;
  std::vector<std::int64_t> clipped_by_channel_;
  std::shared_ptr<const FlacBlocks> flac_blocks_;  // that commit writes; or null
  Stamp* stamp_ = nullptr;                         // or null
  Written written_;                                // or empty
};

/** The endings of the names of all formats that can be written. */
std::vector<std::string> audio_types();

}  // namespace jurn
