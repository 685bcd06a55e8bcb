// Coefficients from files; those of recordings come through libsndfile.
#include "exact.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>

#include "coefficients/libraries.h"
#include "coefficients/measurement.h"
#include "coefficients/parse.h"
#include "recordings/audio_io.h"
#include "recordings/signals.h"

namespace jurn {
namespace {

/** What a descriptor gives, `most` bytes at most. */
std::string read_bytes(const std::string& path, const Descriptor& file, std::size_t most) {
  std::string bytes;
  char buffer[65536];
  ssize_t got = file.get() < 0 ? -1 : 1;
  while (got > 0 && bytes.size() < most) {
    got = ::read(file.get(), buffer, std::min(sizeof buffer, most - bytes.size()));
    if (got > 0) bytes.append(buffer, static_cast<std::size_t>(got));
  }
  const int reason = errno;
  check_interrupted();
  if (got < 0) fail(path, std::strerror(reason));
  return bytes;
}

/** Standard input, which can be read but once. */
const std::string& read_standard_input() {
  static const std::string bytes =
      read_bytes("standard input", Descriptor(STDIN_FILENO), kMostFileBytes);
  return bytes;
}

std::vector<double> read_audio(const std::string& path, const CoefficientLimit& limit) {
  AudioReader reader(path, 1);
  check_length_of_audio(path, static_cast<std::size_t>(reader.frames()), limit);
  std::vector<float> samples(limit.count + 1);  // one more: a header may not know the length
  samples.resize(reader.read(samples.data(), samples.size()));
  check_length_of_audio(path, samples.size(), limit);
  if (reader.not_finite()) fail(path, kNotFinite);
  std::vector<double> taps;
  for (const float sample : samples) taps.push_back(static_cast<double>(sample) / 32768.0);
  return taps;
}

}  // namespace

std::string read_file(const std::string& path, std::size_t most) {
  std::error_code error;
  if (std::filesystem::is_directory(path, error)) fail(path, "is a directory");
  return read_bytes(path, Descriptor(open(path.c_str(), O_RDONLY | O_CLOEXEC)), most);
}

FilterDesign load_design(const std::string& given, const ReadOptions& options) {
  CoefficientFormat format = options.format;
  const bool piped = given == kStandardStream;
  const std::string path = piped ? "standard input" : given;
  std::string bytes, text;
  if (format != CoefficientFormat::kAudio && format != CoefficientFormat::kMatlab) {
    bytes = piped ? read_standard_input() : read_file(path);
    text = is_raw(format) ? std::string() : plain_text(bytes);
    if (format == CoefficientFormat::kByContent) format = recognise(path, text);
  }
  if (piped && (format == CoefficientFormat::kAudio || format == CoefficientFormat::kMatlab))
    fail(path, "coefficients of audio and .mat files come from files only");
  if (bytes.size() == kMostFileBytes && format != CoefficientFormat::kAudio &&
      format != CoefficientFormat::kMatlab)
    fail(path, "is larger than any file of coefficients");
  FilterDesign design{FilterDesign::kFir, {}, {}};
  switch (format) {
    case CoefficientFormat::kAudio:
      if (options.wanted && options.wanted != FilterDesign::kFir) fail(path, kAudioIsTaps);
      design.b = read_audio(path, options.limits.fir);
      break;
    case CoefficientFormat::kMatlab:
      design = design_of(path, read_mat(path), options);
      break;
    case CoefficientFormat::kNumPyArchive:
      return parse_archive(path, read_npz(path, bytes), options);
    case CoefficientFormat::kCamilla:
      design = read_camilla(path, text, options);
      break;
    case CoefficientFormat::kJson:
      design = design_of(path, read_json(path, text), options);
      break;
    default:
      if (format == CoefficientFormat::kNumbers && is_json(text))
        design = design_of(path, read_json(path, text), options);
      else
        return parse_design(path, bytes, options);
  }
  check_design(path, design, options.limits);
  return design;
}

FilterDesign load_design(const std::string& numerator, const std::string& denominator,
                         ReadOptions options) {
  options.wanted = FilterDesign::kFir;
  FilterDesign design = load_design(numerator, options);
  design.kind = FilterDesign::kIir;
  design.a = load_design(denominator, options).b;
  if (design.a[0] != 1.0)
    fail(denominator, "the denominator starts with " + shown(design.a[0]) +
                          ", not with 1; divide the filter's coefficients by it");
  return design;
}

std::vector<FilterDesign> load_equaliser(const std::string& path,
                                         const std::vector<std::string>& filters,
                                         const ReadOptions& options) {
  if (path.empty()) return parse_equaliser_chain({}, {}, filters, options);
  const bool piped = path == kStandardStream;
  const std::string bytes = piped ? read_standard_input() : read_file(path);
  return parse_equaliser_chain(piped ? "standard input" : path, bytes, filters, options);
}

std::vector<GraphicPoint> load_measurement(const std::string& path) {
  const bool piped = path == kStandardStream;
  const std::string bytes = piped ? read_standard_input() : read_file(path);
  return parse_measurement(piped ? "standard input" : path, bytes);
}

std::optional<Setup> load_channel_filters(const std::string& path,
                                          const std::vector<std::string>& filters, int channels,
                                          const ReadOptions& options) {
  if (path.empty()) return std::nullopt;
  const bool piped = path == kStandardStream;
  const std::string bytes = piped ? read_standard_input() : read_file(path);
  if (!names_channels(bytes)) return std::nullopt;
  Setup setup = parse_equaliser_setup(piped ? "standard input" : path, bytes, channels, options);
  if (filters.empty()) return setup;
  for (FilterDesign& design : parse_equaliser_chain({}, {}, filters, options)) {
    SetupStep step{};
    step.kind = SetupStep::kFilter;
    step.name = "the filters";
    for (int c = 0; c < channels; ++c) step.channels.push_back(c);
    step.design = std::move(design);
    setup.steps.push_back(std::move(step));
  }
  return setup;
}

}  // namespace jurn
