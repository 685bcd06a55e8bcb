#include "impulse_responses/impulse_response.h"

#include <samplerate.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <string_view>

#include "coefficients/formats.h"
#include "coefficients/parse.h"
#include "design/spectrum.h"
#include "elementary.h"
#include "errors.h"
#include "file_kind.h"
#include "recordings/audio_io.h"

namespace jurn {
namespace {

constexpr int kMostChannels = 16;
constexpr std::size_t kReadFrames = 65536;
constexpr std::size_t kMostText = 1 << 28;  // bytes

/** Converts one channel; its gain at every frequency stays what it was. */
std::vector<double> resampled(const std::vector<double>& taps, double ratio,
                              const std::string& path) {
  const std::vector<float> in(taps.begin(), taps.end());
  std::vector<float> out(
      static_cast<std::size_t>(std::ceil(static_cast<double>(in.size()) * ratio)));
  SRC_DATA data{};
  data.data_in = in.data();
  data.input_frames = static_cast<long>(in.size());
  data.data_out = out.data();
  data.output_frames = static_cast<long>(out.size());
  data.src_ratio = ratio;
  if (const int failed = src_simple(&data, SRC_SINC_BEST_QUALITY, 1))
    throw Error(kInputError, path + ": cannot be resampled (" + src_strerror(failed) + ")");
  std::vector<double> result(out.begin(), out.begin() + data.output_frames_gen);
  for (double& tap : result) tap /= ratio;
  return result;
}

/** What a file holds; recordings of every kind are audio. */
CoefficientFormat format_of(const std::string& path, const ImpulseResponseOptions& options) {
  if (options.format != CoefficientFormat::kByContent) return options.format;
  std::error_code ignored;
  if (!std::filesystem::is_regular_file(path, ignored)) return CoefficientFormat::kAudio;
  const std::string bytes = read_file(path, 512), head = plain_text(bytes);
  const std::string_view kind = kind_of_file(bytes);
  for (const char* arrays :
       {"a NumPy .npy file", "a NumPy .npz archive", "a MATLAB .mat file", "an HDF5 file"})
    if (kind == arrays) return recognise(path, bytes);
  const bool is_text =
      kind.empty() && !head.empty() && std::all_of(head.begin(), head.end(), [](char c) {
        return static_cast<unsigned char>(c) >= ' ' || (c >= '\t' && c <= '\r');
      });
  if (!is_text) return CoefficientFormat::kAudio;
  return recognise(path, plain_text(read_file(path, kMostText)));
}

/** The channels of a file that is no recording. What says nothing of a rate is taken to be at that
 * of the recording. */
std::vector<std::vector<double>> read_taps(const std::string& path, CoefficientFormat format,
                                           int rate, const ImpulseResponseOptions& options,
                                           const CoefficientLimit& limit) {
  if (format == CoefficientFormat::kNumbers) {
    const std::string text = plain_text(read_file(path, kMostText));
    const std::size_t first = text.find_first_not_of(" \t\r\n");
    if (first == std::string::npos || text[first] != '[') return parse_channels(path, text, rate);
  }
  ReadOptions read;
  read.wanted = FilterDesign::kFir;
  read.limits = {limit, limit, limit};
  read.format = format;
  read.variables = options.variables;
  read.rate = rate;
  return {load_design(path, read).b};
}

void append_taps(const std::string& path, CoefficientFormat format, int rate,
                 const ImpulseResponseOptions& options, ImpulseResponse* response) {
  const CoefficientLimit limit{static_cast<std::size_t>(options.max_taps),
                               std::to_string(options.max_taps) + " taps; " + options.limit};
  const CoefficientLimit most_read{options.truncate ? kMostText : limit.count, limit.reason};
  for (std::vector<double>& taps : read_taps(path, format, rate, options, most_read)) {
    if (options.part.offset >= taps.size())
      throw Error(kInputError, path + ": has " + std::to_string(taps.size()) +
                                   " taps, none after an offset of " +
                                   std::to_string(options.part.offset));
    taps.erase(taps.begin(), taps.begin() + static_cast<std::ptrdiff_t>(options.part.offset));
    for (const std::size_t most : {options.part.length, static_cast<std::size_t>(options.truncate)})
      if (most) taps.resize(std::min(taps.size(), most));
    if (taps.size() > limit.count)
      throw Error(kInputError, path + ": the response has more than " + limit.reason);
    response->push_back(std::move(taps));
  }
}

void append_file(const std::string& path, int rate, const ImpulseResponseOptions& options,
                 ImpulseResponse* response) {
  const CoefficientFormat format = format_of(path, options);
  if (format != CoefficientFormat::kAudio)
    return append_taps(path, format, rate, options, response);
  AudioReader reader(path, kMostChannels);
  if (reader.rate() != rate && !options.resample)
    throw Error(kInputError, path + ": the response is at " + std::to_string(reader.rate()) +
                                 " Hz instead of " + std::to_string(rate) +
                                 " Hz; --resample converts it");
  const double ratio = static_cast<double>(rate) / reader.rate();
  const std::size_t step = static_cast<std::size_t>(reader.channels());
  // A little more than is kept, for the converter to see what follows. One frame beyond the limit
  // shows that there are too many.
  const double most = options.truncate ? std::ceil(options.truncate / ratio) + 1024.0
                                       : options.max_taps / ratio + 1.0;
  std::size_t wanted = static_cast<std::size_t>(most);
  if (options.part.length) wanted = std::min(wanted, options.part.length);
  wanted += options.part.offset;
  std::vector<float> frames;
  for (std::size_t had = 0, got = 1; got > 0 && had < wanted; had += got) {
    const std::size_t next = std::min(kReadFrames, wanted - had);
    frames.resize((had + next) * step);
    got = reader.read(frames.data() + had * step, next);
    frames.resize((had + got) * step);
  }
  if (reader.not_finite())
    throw Error(kInputError, path + ": holds samples that are no finite numbers");
  if (frames.size() <= options.part.offset * step)
    throw Error(kInputError, path + ": has " + std::to_string(frames.size() / step) +
                                 " frames, none after an offset of " +
                                 std::to_string(options.part.offset));
  frames.erase(frames.begin(),
               frames.begin() + static_cast<std::ptrdiff_t>(options.part.offset * step));
  const std::size_t length = frames.size() / step;
  const double taps = std::ceil(static_cast<double>(length) * ratio);
  if (!options.truncate && taps > options.max_taps) {
    const double all = std::ceil(static_cast<double>(reader.frames()) * ratio);
    throw Error(kInputError, path + ": the response has " +
                                 (all > 0 ? std::to_string(std::llround(all)) : "more") +
                                 " taps; " + options.limit + ", --truncate N shortens it");
  }
  for (std::size_t c = 0; c < step; ++c) {
    std::vector<double> channel;
    for (std::size_t i = c; i < frames.size(); i += step) channel.push_back(frames[i] / 32768.0);
    if (reader.rate() != rate) channel = resampled(channel, ratio, path);
    if (options.truncate)
      channel.resize(std::min(channel.size(), static_cast<std::size_t>(options.truncate)));
    response->push_back(std::move(channel));
  }
}

/** The largest gain to an output: of four channels, two sum up in each. */
double peak_gain(const ImpulseResponse& response) {
  std::vector<std::vector<double>> magnitudes;
  for (const std::vector<double>& taps : response) {
    std::vector<double> magnitude;
    for (const std::complex<double>& bin : spectrum(taps, 4 * taps.size()))
      magnitude.push_back(elementary::magnitude(bin));
    magnitudes.push_back(std::move(magnitude));
  }
  double peak = 0.0;
  for (std::size_t i = 0; i < magnitudes[0].size(); ++i)
    for (std::size_t c = 0; c < magnitudes.size(); ++c) {
      if (magnitudes.size() != 4)
        peak = std::max(peak, magnitudes[c][i]);
      else if (c < 2)
        peak = std::max(peak, magnitudes[c][i] + magnitudes[c + 2][i]);
    }
  return peak;
}

}  // namespace

ImpulseResponse read_impulse_response(const std::vector<std::string>& paths, int rate,
                                      const ImpulseResponseOptions& options) {
  if (paths.empty()) throw Error(kUsageError, "the response: no file is named");
  ImpulseResponse response;
  for (const std::string& path : paths) append_file(path, rate, options, &response);
  if (response.size() > kMostChannels)
    throw Error(kInputError, paths[0] + ": the response has " + std::to_string(response.size()) +
                                 " channels in all; at most " + std::to_string(kMostChannels) +
                                 " are supported");
  std::size_t longest = 0;
  for (const std::vector<double>& taps : response) longest = std::max(longest, taps.size());
  for (std::vector<double>& taps : response) taps.resize(longest);
  if (options.normalise) {
    const double peak = peak_gain(response);
    if (peak == 0.0) throw Error(kInputError, paths[0] + ": the response is silent");
    scale(&response, 1.0 / peak);
  }
  return response;
}

std::size_t count_channels(const std::string& path) {
  const ImpulseResponseOptions options;
  const CoefficientFormat format = format_of(path, options);
  if (format == CoefficientFormat::kAudio)
    return static_cast<std::size_t>(AudioReader(path, kMostChannels).channels());
  return read_taps(path, format, 0, options, {kMostText, ""}).size();
}

int rate_of_response(const std::string& path, const ImpulseResponseOptions& options) {
  if (format_of(path, options) != CoefficientFormat::kAudio) return 0;
  return AudioReader(path, kMostChannels).rate();
}

}  // namespace jurn
