#include "audio_io.h"

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

#include "errors.h"

namespace tool {
namespace {

namespace fs = std::filesystem;

constexpr float kFullScale = 32768.0f;

struct FileFormat {
  const char* ending;
  int major;
  int codec;  // of the lossy formats, which have no sample width
};

const FileFormat kFormats[] = {
    {"wav", SF_FORMAT_WAV, 0},
    {"wave", SF_FORMAT_WAV, 0},
    {"flac", SF_FORMAT_FLAC, 0},
    {"aif", SF_FORMAT_AIFF, 0},
    {"aiff", SF_FORMAT_AIFF, 0},
    {"au", SF_FORMAT_AU, 0},
    {"caf", SF_FORMAT_CAF, 0},
    {"w64", SF_FORMAT_W64, 0},
    {"rf64", SF_FORMAT_RF64, 0},
    {"ogg", SF_FORMAT_OGG, SF_FORMAT_VORBIS},
    {"oga", SF_FORMAT_OGG, SF_FORMAT_VORBIS},
    {"opus", SF_FORMAT_OGG, SF_FORMAT_OPUS},
    {"mp3", SF_FORMAT_MPEG, SF_FORMAT_MPEG_LAYER_III},
};

int file_format(const std::string& path, int channels, int rate, SampleFormat format) {
  std::string ending = fs::path(path).extension().string();
  std::transform(ending.begin(), ending.end(), ending.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  ending.erase(0, 1);
  const FileFormat* found = std::find_if(std::begin(kFormats), std::end(kFormats),
                                         [&](const FileFormat& f) { return ending == f.ending; });
  if (found == std::end(kFormats)) {
    std::string known;
    for (const FileFormat& f : kFormats)
      known += std::string(known.empty() ? "." : ", .") + f.ending;
    throw Error(kUsageError, path + ": the name's ending chooses the format; known are " + known);
  }
  const int width = format == SampleFormat::kInt16   ? SF_FORMAT_PCM_16
                    : format == SampleFormat::kInt24 ? SF_FORMAT_PCM_24
                                                     : SF_FORMAT_FLOAT;
  SF_INFO info{};
  info.channels = channels;
  info.samplerate = rate;
  info.format = found->major | (found->codec ? found->codec : width);
  if ((found->codec && format != SampleFormat::kInt16) || !sf_format_check(&info))
    throw Error(kUsageError, path + ": a ." + ending + " file cannot hold " +
                                 (format == SampleFormat::kInt16   ? "16-bit"
                                  : format == SampleFormat::kInt24 ? "24-bit"
                                                                   : "float") +
                                 " samples of " + std::to_string(channels) + " channels at " +
                                 std::to_string(rate) + " Hz");
  return info.format;
}

/** Explains why a file cannot be read, as far as the file system knows. */
void check_readable(const std::string& path) {
  std::error_code error;
  const fs::file_status status = fs::status(path, error);
  if (!fs::exists(status)) throw Error(kInputError, path + ": no such file");
  if (fs::is_directory(status)) throw Error(kInputError, path + ": is a directory");
  if (access(path.c_str(), R_OK) != 0) throw Error(kInputError, path + ": " + std::strerror(errno));
  if (fs::is_regular_file(status) && fs::file_size(path, error) == 0)
    throw Error(kInputError, path + ": the file is empty");
}

}  // namespace

void to_int16(const float* in, std::size_t count, short* out, std::int64_t* clipped) {
  std::int64_t beyond = 0;
  for (std::size_t i = 0; i < count; ++i) {
    beyond += in[i] >= 32767.5f || in[i] < -32768.5f;
    out[i] = static_cast<short>(std::lrint(std::min(std::max(in[i], -32768.0f), 32767.0f)));
  }
  *clipped += beyond;
}

AudioReader::AudioReader(const std::string& path, int max_channels) : path_(path) {
  check_readable(path);
  file_.reset(sf_open(path.c_str(), SFM_READ, &info_));
  if (!file_)
    throw Error(kInputError,
                path + ": no audio file that can be read (" + sf_strerror(nullptr) + ")");
  if (info_.channels > max_channels)
    throw Error(kInputError, path + ": has " + std::to_string(info_.channels) +
                                 " channels; at most " + std::to_string(max_channels) +
                                 " are supported");
  if (info_.frames == 0) throw Error(kInputError, path + ": holds no samples");
}

std::size_t AudioReader::read(float* out, std::size_t frames) {
  const sf_count_t got = sf_readf_float(file_.get(), out, static_cast<sf_count_t>(frames));
  if (got < static_cast<sf_count_t>(frames) && sf_error(file_.get()) != SF_ERR_NO_ERROR)
    throw Error(kInputError, path_ + ": damaged after " + std::to_string(frames_read_ + got) +
                                 " frames (" + sf_strerror(file_.get()) + ")");
  const std::size_t count = static_cast<std::size_t>(got) * static_cast<std::size_t>(channels());
  for (std::size_t i = 0; i < count; ++i) {
    out[i] *= kFullScale;
    if (!std::isfinite(out[i])) {
      out[i] = 0.0f;
      ++not_finite_;
    }
  }
  frames_read_ += got;
  return static_cast<std::size_t>(got);
}

OutputFile::OutputFile(const std::string& path) : path_(path) {
  std::error_code error;
  const fs::file_status status = fs::status(path, error);
  if (fs::exists(status) && !fs::is_regular_file(status))
    throw Error(kOutputError, path + ": exists and is no regular file");
  // The file behind a symbolic link is replaced, not the link.
  const fs::path target = fs::exists(status) ? fs::canonical(path) : fs::absolute(path);
  const fs::path folder = target.parent_path();
  if (!fs::is_directory(folder, error))
    throw Error(kOutputError, path + ": there is no folder " + folder.string());
  target_ = target.string();
  temporary_ =
      (folder / ("." + target.filename().string() + "." + std::to_string(getpid()) + ".part"))
          .string();
  descriptor_ = open(temporary_.c_str(), O_CREAT | O_EXCL | O_RDWR | O_CLOEXEC, 0666);
  if (descriptor_ < 0) {
    temporary_.clear();
    throw Error(kOutputError, path + ": cannot be written (" + std::strerror(errno) + ")");
  }
}

OutputFile::~OutputFile() {
  if (descriptor_ >= 0) close(descriptor_);
  if (!temporary_.empty()) unlink(temporary_.c_str());
}

void OutputFile::commit() {
  const int closed = close(descriptor_);
  descriptor_ = -1;
  if (closed != 0 || std::rename(temporary_.c_str(), target_.c_str()) != 0)
    throw Error(kOutputError, path_ + ": cannot be written (" + std::strerror(errno) + ")");
  temporary_.clear();
}

AudioWriter::AudioWriter(const std::string& path, int channels, int rate, SampleFormat format)
    : output_(path), channels_(channels), format_(format) {
  SF_INFO info{};
  info.channels = channels;
  info.samplerate = rate;
  info.format = file_format(path, channels, rate, format);
  file_.reset(sf_open_fd(output_.descriptor(), SFM_WRITE, &info, SF_FALSE));
  if (!file_)
    throw Error(kOutputError, path + ": cannot be written (" + sf_strerror(nullptr) + ")");
  // The chunk holds the time of day; without it the same input gives the same file.
  sf_command(file_.get(), SFC_SET_ADD_PEAK_CHUNK, nullptr, SF_FALSE);
}

void AudioWriter::check_written(sf_count_t written, std::size_t frames) {
  if (written != static_cast<sf_count_t>(frames))
    throw Error(kOutputError,
                output_.path() + ": writing failed (" + sf_strerror(file_.get()) + ")");
}

void AudioWriter::write(const float* in, std::size_t frames) {
  const std::size_t count = frames * static_cast<std::size_t>(channels_);
  const sf_count_t length = static_cast<sf_count_t>(frames);
  switch (format_) {
    case SampleFormat::kInt16:
      int16_.resize(count);
      to_int16(in, count, int16_.data(), &clipped_);
      check_written(sf_writef_short(file_.get(), int16_.data(), length), frames);
      break;
    case SampleFormat::kInt24:
      int24_.resize(count);
      for (std::size_t i = 0; i < count; ++i) {
        const double x = std::nearbyint(static_cast<double>(in[i]) * 256.0);
        clipped_ += x > 8388607.0 || x < -8388608.0;
        int24_[i] = static_cast<int>(std::min(std::max(x, -8388608.0), 8388607.0)) * 256;
      }
      check_written(sf_writef_int(file_.get(), int24_.data(), length), frames);
      break;
    case SampleFormat::kFloat:
      float_.resize(count);
      for (std::size_t i = 0; i < count; ++i) float_[i] = in[i] / kFullScale;
      check_written(sf_writef_float(file_.get(), float_.data(), length), frames);
      break;
  }
}

void AudioWriter::commit() {
  const int failed = sf_close(file_.release());
  if (failed)
    throw Error(kOutputError,
                output_.path() + ": writing failed (" + sf_error_number(failed) + ")");
  output_.commit();
}

void refuse_overwrite(const std::string& output, const std::vector<std::string>& inputs) {
  std::error_code error;
  for (const std::string& input : inputs)
    if (fs::equivalent(output, input, error))
      throw Error(kUsageError, output + ": is the same file as the input " + input +
                                   "; give the result another name");
}

}  // namespace tool
