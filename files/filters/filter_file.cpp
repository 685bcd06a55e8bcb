#include "filters/filter_file.h"

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <optional>

#include "coefficients/formats.h"
#include "coefficients/parse.h"
#include "coefficients/setups.h"
#include "design/prepare_once.h"
#include "design/stability.h"
#include "impulse_responses/hrtf_set.h"
#include "impulse_responses/routes.h"
#include "streams/setup_voice.h"

namespace jurn {
namespace {

constexpr int kUsualChannels = 2;

/** Whether a text says which input leads where: a configuration of jconvolver, or lines of two
 * numbers and a name. */
bool holds_routes(std::string_view text) {
  for (const std::string_view line : lines_of(text)) {
    const std::vector<std::string_view> words = split(line, " \t");
    if (words.empty() || words[0][0] == '#') continue;
    if (words[0].substr(0, 11) == "/convolver/" || words[0] == "/cd") return true;
    const auto is_count = [](std::string_view word) {
      return std::all_of(word.begin(), word.end(), [](unsigned char c) { return std::isdigit(c); });
    };
    return words.size() > 2 && is_count(words[0]) && is_count(words[1]) &&
           !std::isdigit(static_cast<unsigned char>(words[2][0])) &&
           words[2].find_first_of("-+.") != 0;
  }
  return false;
}

std::string content_of(const std::string& path) {
  return plain_text(read_file(path));
}

/** Whether a text is an equaliser, of a room correction program or with a filter in words a line.
 */
bool holds_equaliser(const std::string& path, const std::string& content) {
  for (const std::string_view line : lines_of(content)) {
    const std::vector<std::string_view> words = split(line, " \t");
    if (words.empty() || words[0][0] == '#') continue;
    if (names_equaliser_type(line.substr(line.find(words[0])))) return true;
    break;
  }
  return recognise(path, content) == CoefficientFormat::kEqualiser;
}

/** Where the loudspeakers of so many channels stand, in the usual order: degrees to the left. */
std::vector<double> places_of(const std::string& path, int channels) {
  switch (channels) {
    case 1:
      return {0};
    case 2:
      return {30, -30};
    case 4:
      return {30, -30, 110, -110};
    case 6:
      return {30, -30, 0, 0, 110, -110};
    case 8:
      return {30, -30, 0, 0, 135, -135, 90, -90};
    default:
      fail(path, "places the loudspeakers of 1, 2, 4, 6 or 8 channels, not of " +
                     std::to_string(channels));
  }
}

FilterFileKind kind_of(const std::string& path) {
  if (lower(std::filesystem::path(path).extension().string()) == ".sofa")
    return FilterFileKind::kHrtf;
  const std::string content = content_of(path);
  if (content.find('\0') == std::string::npos && holds_routes(content))
    return FilterFileKind::kRoutes;
  switch (recognise(path, content)) {
    case CoefficientFormat::kAudio:
      return FilterFileKind::kResponse;
    case CoefficientFormat::kCamilla:
      return content.find("\npipeline:") != std::string::npos || content.find("pipeline:") == 0
                 ? FilterFileKind::kSetup
                 : FilterFileKind::kCoefficients;
    case CoefficientFormat::kEqualiser:
      return names_channels(content) ? FilterFileKind::kSetup : FilterFileKind::kCoefficients;
    default:
      return FilterFileKind::kCoefficients;
  }
}

}  // namespace

FilterFile::FilterFile(const std::string& path, FilterFileKind kind, int rate, int channels)
    : path_(path), inputs_(channels ? channels : kUsualChannels) {
  if (kind == FilterFileKind::kByContent) kind = kind_of(path);
  ImpulseResponseOptions options;
  options.resample = true;
  switch (kind) {
    case FilterFileKind::kHrtf:
      read_hrtf(rate);
      break;
    case FilterFileKind::kResponse:
      filter_ =
          connect(read_impulse_response({path}, rate, options), Wiring::kAutomatic, inputs_, path);
      break;
    case FilterFileKind::kRoutes: {
      Routing routing = read_routes(path, rate, options);
      files_ = files_of_routes(path);
      inputs_ = channels ? channels : routing.inputs;
      filter_ = std::move(routing);
      break;
    }
    case FilterFileKind::kSetup: {
      if (!channels)
        if (const int said = count_setup_channels(path).first) inputs_ = said;
      SetupFile file = read_setup(path, rate, inputs_);
      files_ = std::move(file.files);
      filter_ = std::move(file.setup);
      break;
    }
    default:
      read_coefficients(rate);
  }
  outputs_ = ends().outputs;
  check_channels(path, ends(), "the stream", {inputs_, outputs_});
}

/** What it takes and makes; a design makes as many channels as it takes. */
Ends FilterFile::ends() const {
  if (const auto* const routing = std::get_if<Routing>(&filter_))
    return {routing->inputs, routing->outputs};
  if (const auto* const setup = std::get_if<Setup>(&filter_))
    return {setup->inputs, setup->outputs()};
  return {inputs_, inputs_};
}

/** One design, or of an equaliser that is several the setup of them. */
void FilterFile::read_coefficients(int rate) {
  ReadOptions options;
  options.limits = filter_limits(Precision::kDouble);
  options.rate = rate;
  options.graphic_taps = kLiveGraphicTaps;
  const std::string content = content_of(path_);
  if (holds_equaliser(path_, content)) {
    std::vector<FilterDesign> chain = parse_equaliser_chain(path_, content, {}, options);
    options.graphic_taps = kMostGraphicTaps;  // beside other filters
    if (chain.size() > 1)
      filter_ = parse_equaliser_setup(path_, content, inputs_, options);
    else
      filter_ = std::move(chain[0]);
    return;
  }
  FilterDesign design = load_design(path_, options);
  check_signs(path_, std::nullopt, &design);
  filter_ = std::move(design);
}

void FilterFile::read_hrtf(int rate) {
  HrtfSet set(path_, rate);
  Routing routing;
  routing.inputs = inputs_;
  routing.outputs = 2;
  const std::vector<double> places = places_of(path_, inputs_);
  for (int input = 0; input < inputs_; ++input) {
    ImpulseResponse ears = set.at(places[static_cast<std::size_t>(input)], 0.0);
    for (int ear = 0; ear < 2; ++ear)
      routing.routes.push_back({input, ear, std::move(ears[static_cast<std::size_t>(ear)])});
  }
  filter_ = std::move(routing);
}

bool FilterFile::can_be_bypassed() const {
  const auto* const setup = std::get_if<Setup>(&filter_);
  return !setup ||
         std::none_of(setup->steps.begin(), setup->steps.end(),
                      [](const SetupStep& step) { return step.kind == SetupStep::kMixer; });
}

std::unique_ptr<OfferedFilter> FilterFile::make(const StreamFormat& format, double gain,
                                                std::vector<std::string>* warnings) const {
  const Format engine = engine_format(format, format.block, kConvolutionHistory);
  std::unique_ptr<OfferedFilter> made;
  if (const auto* const routing = std::get_if<Routing>(&filter_)) {
    Routing scaled = *routing;
    scale(&scaled, gain);
    made = std::make_unique<OfferedFilter>(
        make_convolution(scaled, scaled.longest(), Precision::kDouble, engine));
  } else if (const auto* const setup = std::get_if<Setup>(&filter_)) {
    Setup scaled = *setup;
    scale(&scaled, gain);
    made = offer_setup(scaled, engine, SampleFormat::kFloat, path_, warnings);
  } else {
    FilterDesign design = std::get<FilterDesign>(filter_);
    if (const std::string peak = check_peak(path_, design, gain); !peak.empty())
      warnings->push_back(peak + "; a lower gain avoids it");
    scale(&design, gain);
    PrepareOptions options;
    options.result = SampleFormat::kFloat;
    options.rate = format.rate;
    const auto prepared = prepare_once(design, options);
    for (const Notice& notice : prepared->notices)
      if (notice.is_warning()) warnings->push_back(path_ + ": " + notice.text);
    made = std::make_unique<OfferedFilter>(make_voice(*prepared, engine), prepared->design.delay);
  }
  made->made_for = format;
  return made;
}

}  // namespace jurn
