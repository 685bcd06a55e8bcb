#include "recordings/audio_io.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <optional>

#include "errors.h"
#include "file_kind.h"
#include "recordings/signals.h"

namespace jurn {
namespace {

namespace fs = std::filesystem;

constexpr float kFloatScale = 32768.0f;
constexpr std::int64_t kNoEnd = INT64_MAX;
constexpr std::int64_t kMost32Bits = 0xFFFFFF00;  // of samples, where the header counts 32 bits

struct FileFormat {
  const char* ending;
  int major;
  int codec;     // of the lossy formats, which have no sample width
  bool streams;  // makes sense without lengths in its header
  bool huge;     // counts more than 4 GiB
};

const FileFormat kFormats[] = {
    {"wav", SF_FORMAT_WAV, 0, true, false},
    {"wave", SF_FORMAT_WAV, 0, true, false},
    {"raw", SF_FORMAT_RAW, 0, true, true},
    {"flac", SF_FORMAT_FLAC, 0, true, true},
    {"aif", SF_FORMAT_AIFF, 0, false, false},
    {"aiff", SF_FORMAT_AIFF, 0, false, false},
    {"au", SF_FORMAT_AU, 0, false, false},
    {"caf", SF_FORMAT_CAF, 0, false, true},
    {"w64", SF_FORMAT_W64, 0, false, true},
    {"rf64", SF_FORMAT_RF64, 0, false, true},
    {"ogg", SF_FORMAT_OGG, SF_FORMAT_VORBIS, true, true},
    {"oga", SF_FORMAT_OGG, SF_FORMAT_VORBIS, true, true},
    {"opus", SF_FORMAT_OGG, SF_FORMAT_OPUS, true, true},
    {"mp3", SF_FORMAT_MPEG, SF_FORMAT_MPEG_LAYER_III, true, true},
};

/** The ending of a file's name, in lower case and without its dot. */
std::string type_of(const std::string& path) {
  std::string ending = fs::path(path).extension().string();
  std::transform(ending.begin(), ending.end(), ending.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return ending.empty() ? ending : ending.substr(1);
}

const FileFormat& find_format(const std::string& path, const std::string& type, bool stream) {
  std::string known;
  for (const FileFormat& f : kFormats) {
    if (type == f.ending && (f.streams || !stream)) return f;
    if (f.streams || !stream) known += std::string(known.empty() ? "" : ", ") + f.ending;
  }
  if (stream)
    throw Error(kUsageError,
                path + ": a stream cannot be written as '" + type + "', but as " + known);
  throw Error(kUsageError, path + ": '" + type +
                               "' is no format that can be written; the ending of the name, or "
                               "--type, is one of " +
                               known);
}

bool can_hold(const FileFormat& file, SampleFormat samples, SF_INFO* info) {
  const int width = samples == SampleFormat::kInt16   ? SF_FORMAT_PCM_16
                    : samples == SampleFormat::kInt24 ? SF_FORMAT_PCM_24
                                                      : SF_FORMAT_FLOAT;
  info->format = file.major | (file.codec ? file.codec : width);
  if (file.major == SF_FORMAT_RAW) info->format |= SF_ENDIAN_LITTLE;
  return (!file.codec || samples == SampleFormat::kInt16) && sf_format_check(info);
}

/** Returns what the samples become. */
SampleFormat set_format(const std::string& path, const FileFormat& file, const AudioFormat& format,
                        SF_INFO* info) {
  const SampleFormat samples = format.samples;
  if (can_hold(file, samples, info)) return samples;
  if (format.narrower) {
    if (can_hold(file, SampleFormat::kInt24, info)) return SampleFormat::kInt24;
    if (can_hold(file, SampleFormat::kInt16, info)) return SampleFormat::kInt16;
  }
  throw Error(kUsageError, path + ": the format '" + file.ending + "' cannot hold " +
                               (samples == SampleFormat::kInt16   ? "16-bit"
                                : samples == SampleFormat::kInt24 ? "24-bit"
                                                                  : "float") +
                               " samples of " + std::to_string(info->channels) + " channels at " +
                               std::to_string(info->samplerate) + " Hz");
}

int sample_bytes(SampleFormat format) {
  return format == SampleFormat::kInt16 ? 2 : format == SampleFormat::kInt24 ? 3 : 4;
}

}  // namespace

AudioWriter::AudioWriter(const std::string& path, int channels, int rate, const AudioFormat& format,
                         bool overwrite)
    : output_(path, overwrite), bytes_(output_.descriptor(), output_.is_stream()) {
  info_.channels = channels;
  clipped_by_channel_.resize(static_cast<std::size_t>(channels));
  info_.samplerate = rate;
  std::string type = format.type.empty() ? type_of(path) : format.type;
  if (type.empty() && output_.is_stream()) type = format.stream_type;
  const FileFormat& file = find_format(output_.path(), type, output_.is_stream());
  format_ = set_format(output_.path(), file, format, &info_);
  most_frames_ = file.huge ? kNoEnd : kMost32Bits / (channels * sample_bytes(format_));
  if (output_.is_stream()) start_stream();
  {
    const std::lock_guard lock(opening_by_libsndfile);
    file_.reset(bytes_.open(&info_));
    if (!file_) fail(sf_strerror(nullptr));
  }
  // The chunk holds the time of day; without it the same input gives the same file.
  sf_command(file_.get(), SFC_SET_ADD_PEAK_CHUNK, nullptr, SF_FALSE);
}

/** Of the formats with lengths in their headers only WAV is common in pipes. Its header is ours and
 * says that the length is unknown, the rest is raw. */
void AudioWriter::start_stream() {
  if (isatty(output_.descriptor()))
    throw Error(kUsageError, output_.path() + " is a terminal; '-' takes a pipe or a file");
  wav_stream_ = (info_.format & SF_FORMAT_TYPEMASK) == SF_FORMAT_WAV;
  if (wav_stream_) {
    most_frames_ = kNoEnd;
    const std::string header = stream_header(kNoEnd);
    if (!bytes_.send(header.data(), static_cast<sf_count_t>(header.size()))) fail("");
    info_.format = SF_FORMAT_RAW | SF_ENDIAN_LITTLE | (info_.format & SF_FORMAT_SUBMASK);
  }
}

std::string AudioWriter::stream_header(std::int64_t frames) const {
  return wav_header(info_.channels, info_.samplerate, 8 * sample_bytes(format_),
                    format_ == SampleFormat::kFloat, frames);
}

/** A standard output that is a file gets the lengths in its header after all. */
void AudioWriter::complete_wav_stream() {
  struct stat status {};
  const int out = output_.descriptor();
  if (fstat(out, &status) != 0 || !S_ISREG(status.st_mode) || fcntl(out, F_GETFL) & O_APPEND)
    return;
  const std::string header = stream_header(frames_);
  const off_t written =
      static_cast<off_t>(header.size()) + frames_ * info_.channels * sample_bytes(format_);
  if (pwrite(out, header.data(), header.size(), lseek(out, 0, SEEK_CUR) - written) < 0) fail("");
}

void AudioWriter::fail(const std::string& reason) const {
  fail_to_write(output_.path(), bytes_.error(), reason);
}

void AudioWriter::expect(std::int64_t frames) const {
  if (frames > most_frames_)
    throw Error(kOutputError, output_.path() +
                                  ": is longer than the 4 GiB that this format can "
                                  "count; use w64, rf64, caf or flac");
}

void AudioWriter::set_tags(const Tags& tags) {
  for (const auto& [number, text] : tags) sf_set_string(file_.get(), number, text.c_str());
}

std::string AudioWriter::set_metadata(const Metadata& metadata) {
  const bool is_file = !output_.is_stream();
  Metadata left = metadata;
  if (is_file && takes_chunks(info_.format) && write_chunks(file_.get(), metadata.chunks))
    left.chunks.clear();
  if (is_file && takes_flac_blocks(info_.format)) {
    flac_blocks_ = metadata.flac;
    left.flac.reset();
  }
  return left.names();
}

void AudioWriter::write(const float* in, std::size_t frames) {
  write_samples(in, frames);
}
void AudioWriter::write(const double* in, std::size_t frames) {
  write_samples(in, frames);
}

/** To the nearest, ties to even, in the upper 24 bits; counts what does not fit. Written for the
 * compiler's vectors. */
template <typename Sample>
static int to_int24(const Sample* in, std::size_t count, int* out) {
  constexpr double kRounds = 0x1.8p52;  // leaves no bits for fractions
  constexpr double kLow = -8388608.0, kHigh = 8388607.0;
  int beyond = 0;
  for (std::size_t i = 0; i < count; ++i) {
    const double x = (static_cast<double>(in[i]) * 256.0 + kRounds) - kRounds;
    beyond += static_cast<int>(x > kHigh) + static_cast<int>(x < kLow);
    const double low = x < kLow ? kLow : x;
    out[i] = static_cast<int>((low > kHigh ? kHigh : low) * 256.0);
  }
  return beyond;
}

/** Of frames among which there are clipped samples, those of each channel. */
template <typename Sample>
void AudioWriter::count_clipped(const Sample* in, std::size_t frames, Dither* dither) {
  const double steps = format_ == SampleFormat::kInt24 ? 256.0 : 1.0;
  for (std::size_t i = 0; i < frames * clipped_by_channel_.size(); ++i) {
    const double noise = dither ? static_cast<double>(dither->next()) / steps : 0.0;
    const double x = std::nearbyint((static_cast<double>(in[i]) + noise) * steps);
    clipped_by_channel_[i % clipped_by_channel_.size()] +=
        x > 32768.0 * steps - 1.0 || x < -32768.0 * steps;
  }
}

/** Tells what is about to be written to who wants to know. */
template <typename Sample>
void AudioWriter::pass_on(const std::vector<Sample>& samples) const {
  if (stamp_) stamp_->add(samples.data(), samples.size());
  if (written_) written_(format_, samples.data(), samples.size());
}

template <typename Sample>
void AudioWriter::write_samples(const Sample* in, std::size_t frames) {
  const std::size_t count = frames * static_cast<std::size_t>(info_.channels);
  const sf_count_t length = static_cast<sf_count_t>(frames);
  frames_ += length;
  expect(frames_);
  sf_count_t written = 0;
  const std::int64_t clipped_before = clipped_;
  std::optional<Dither> noise;  // once more, where something clips
  if (dither_) noise = *dither_;
  switch (format_) {
    case SampleFormat::kInt16:
      int16_.resize(count);
      to_int16(in, count, int16_.data(), &clipped_, dither_.get());
      pass_on(int16_);
      written = sf_writef_short(file_.get(), int16_.data(), length);
      break;
    case SampleFormat::kInt24: {
      std::vector<double> noisy;
      if (dither_) {
        noisy.assign(in, in + count);
        for (double& x : noisy) x += static_cast<double>(dither_->next()) / 256.0;
      }
      int24_.resize(count);
      clipped_ += dither_ ? to_int24(noisy.data(), count, int24_.data())
                          : to_int24(in, count, int24_.data());
      pass_on(int24_);
      written = sf_writef_int(file_.get(), int24_.data(), length);
      break;
    }
    case SampleFormat::kFloat:
      float_.resize(count);
      for (std::size_t i = 0; i < count; ++i)
        float_[i] = static_cast<float>(in[i] / static_cast<Sample>(kFloatScale));
      pass_on(float_);
      written = sf_writef_float(file_.get(), float_.data(), length);
      break;
  }
  if (clipped_ > clipped_before) count_clipped(in, frames, noise ? &*noise : nullptr);
  if (written != length) fail(sf_strerror(file_.get()));
}

void AudioWriter::commit() {
  const int failed = sf_close(file_.release());
  if (failed || bytes_.error()) fail(sf_error_number(failed));
  if (wav_stream_) complete_wav_stream();
  if (flac_blocks_ && !write_flac_blocks(*flac_blocks_, output_.written()))
    fail("its pictures and tags cannot be written");
  output_.commit();
}

std::vector<std::string> audio_types() {
  std::vector<std::string> types;
  for (const FileFormat& f : kFormats) types.push_back(f.ending);
  return types;
}

}  // namespace jurn
