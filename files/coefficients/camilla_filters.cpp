#include "exact.h"

#include "coefficients/camilla_filters.h"

#include <cmath>
#include <filesystem>
#include <map>

#include "errors.h"
#include "recordings/audio_io.h"
#include "units.h"

namespace jurn {
namespace {

using Strings = std::vector<std::string>;

SetupStep filter_step(const std::string& name, FilterDesign design) {
  SetupStep step{};
  step.kind = SetupStep::kFilter;
  step.name = name;
  step.design = std::move(design);
  return step;
}

/** Sections of an all-pass that delays by 0.5 to 2.5 frames, right at low frequencies, after J.-P.
 * Thiran, Recursive digital filters with maximally flat group delay, 1971. */
std::vector<double> fractional_delay(double d) {
  if (d < 1.5) {
    const double a = (1.0 - d) / (1.0 + d);
    return {a, 1.0, 0.0, 1.0, a, 0.0};
  }
  const double a1 = -2.0 * (d - 2.0) / (d + 1.0);
  const double a2 = (d - 2.0) * (d - 1.0) / ((d + 1.0) * (d + 2.0));
  return {a2, a1, 1.0, 1.0, a1, a2};
}

std::vector<double> read_channel(const std::string& path, int channel) {
  AudioReader reader(path, kMaxChannels);
  const std::size_t width = static_cast<std::size_t>(reader.channels());
  if (channel >= reader.channels())
    fail(path, "has " + count_of(width, "channel") + "; they count from 0, there is no channel " +
                   std::to_string(channel));
  std::vector<float> frames(4096 * width);
  std::vector<double> taps;
  while (const std::size_t got = reader.read(frames.data(), 4096))
    for (std::size_t i = 0; i < got; ++i)
      taps.push_back(static_cast<double>(frames[i * width + static_cast<std::size_t>(channel)]) /
                     32768.0);
  if (reader.not_finite()) fail(path, "holds samples that are no finite numbers");
  return taps;
}

}  // namespace

CamillaFilters::CamillaFilters(const std::string& path, const YAML::Node& root,
                               const ReadOptions& options)
    : path_(path), root_(root), options_(options) {
  const YAML::Node rate = device("samplerate");
  rate_ = rate ? whole(rate, "samplerate", 1, kMostRate) : 0;
}

void CamillaFilters::refuse(const YAML::Node& node, const std::string& message) const {
  fail(path_, node.Mark().line + 1, message);
}

YAML::Node CamillaFilters::device(const char* key) const {
  const YAML::Node devices = root_["devices"];
  return devices && devices.IsMap() ? devices[key] : YAML::Node(YAML::NodeType::Undefined);
}

int CamillaFilters::channels_of(const char* side) const {
  const YAML::Node node = device(side);
  const YAML::Node count = node && node.IsMap() ? node["channels"] : node;
  return count && !count.IsNull() ? whole(count, "channels", 1, kMaxChannels) : 0;
}

std::string CamillaFilters::text(const YAML::Node& node) {
  return node && node.IsScalar() ? node.Scalar() : std::string();
}

double CamillaFilters::number(const YAML::Node& node, const std::string& key) const {
  if (!node.IsScalar()) refuse(node, quote(key) + " is no number");
  return parse_number(path_, node.Mark().line + 1, node.Scalar());
}

double CamillaFilters::parameter(const YAML::Node& parameters, const std::string& key) const {
  const YAML::Node node = parameters[key];
  if (!node || node.IsNull()) refuse(parameters, "there is no " + quote(key));
  return number(node, key);
}

int CamillaFilters::whole(const YAML::Node& node, const std::string& key, int low, int high) const {
  const double value = number(node, key);
  if (value != std::floor(value) || value < low || value > high)
    refuse(node, quote(key) + " " + shown(value) + ": accepted are whole numbers from " +
                     std::to_string(low) + " to " + std::to_string(high));
  return static_cast<int>(value);
}

double CamillaFilters::gain_of(const YAML::Node& p) const {
  const YAML::Node node = p["gain"];
  double gain = 1.0;
  if (node && !node.IsNull()) {
    gain = number(node, "gain");
    if (text(p["scale"]) != "linear") gain = from_decibels(gain);
    if (!(std::abs(gain) <= 1e10)) refuse(node, "a gain of " + shown(gain) + " is too large");
  }
  if (text(p["inverted"]) == "true") gain = -gain;
  return text(p["mute"]) == "true" ? 0.0 : gain;
}

std::vector<double> CamillaFilters::numbers(const YAML::Node& parameters,
                                            const std::string& key) const {
  const YAML::Node node = parameters[key];
  if (!node || !node.IsSequence() || node.size() == 0)
    refuse(parameters, quote(key) + " is no list of numbers");
  std::vector<double> values;
  for (const YAML::Node& value : node) values.push_back(number(value, key));
  return values;
}

int CamillaFilters::rate_for_designs() const {
  const int rate = options_.rate > 0 ? options_.rate : rate_;
  if (rate <= 0) fail(path_, "an equaliser needs the sampling rate that it is designed for");
  return rate;
}

/** Coefficients hold for one rate. */
void CamillaFilters::check_rate(const std::string& name, const YAML::Node& node) const {
  if (rate_ > 0 && options_.rate > 0 && rate_ != options_.rate)
    refuse(node, "the filter " + quote(name) + " has coefficients for " + std::to_string(rate_) +
                     " Hz instead of " + std::to_string(options_.rate) + " Hz");
}

/** Relative to the settings, or else to where the program runs, with CamillaDSP's tokens. */
std::string CamillaFilters::file_of(const YAML::Node& p) {
  namespace fs = std::filesystem;
  std::string name = text(p["filename"]);
  if (name.empty()) refuse(p, "there is no 'filename'");
  const auto put = [&](const std::string& token, int value) {
    for (std::size_t at; (at = name.find(token)) != std::string::npos;) {
      if (value <= 0) refuse(p, "the devices say nothing that " + token + " stands for");
      name.replace(at, token.size(), std::to_string(value));
    }
  };
  put("$samplerate$", options_.rate > 0 ? options_.rate : rate_);
  put("$channels$", channels_of("capture"));
  const fs::path beside = fs::path(path_).parent_path() / name;
  std::error_code ignored;
  if (fs::exists(beside, ignored) || !fs::exists(name, ignored)) name = beside.string();
  files_.push_back(name);
  return name;
}

SetupStep CamillaFilters::sections(const std::string& name, const std::vector<double>& rows) const {
  ReadOptions any = options_;
  any.wanted.reset();
  return filter_step(name, sections_design(path_, rows, any));
}

/** Filters in an equaliser's words. */
SetupStep CamillaFilters::words(const std::string& name, const YAML::Node& node,
                                const Strings& filters) const {
  const int rate = rate_for_designs();
  try {
    return filter_step(name, parse_equaliser_words(filters, rate));
  } catch (const Error& error) {
    refuse(node, "the filter " + quote(name) + ", " + error.what());
  }
}

SetupStep CamillaFilters::convolution(const std::string& name, const YAML::Node& p) {
  const std::string type = text(p["type"]);
  check_rate(name, p);
  if (type == "Values") return filter_step(name, {FilterDesign::kFir, numbers(p, "values"), {}});
  if (type != "Raw" && type != "Wav")
    refuse(p, "the filter " + quote(name) + " is a convolution " + quote(type) +
                  " of CamillaDSP, which is not supported; accepted are Values, Raw and Wav");
  for (const char* const key : {"skip_bytes_lines", "read_bytes_lines"})
    if (p[key] && !p[key].IsNull() && parameter(p, key) != 0.0)
      refuse(p, "the filter " + quote(name) + " has " + quote(key) + ", which is not supported");
  const std::string file = file_of(p);
  if (type == "Wav") {
    const YAML::Node channel = p["channel"];
    const int from = channel && !channel.IsNull() ? whole(channel, "channel", 0, kMaxChannels) : 0;
    SetupStep step = filter_step(name, {FilterDesign::kFir, read_channel(file, from), {}});
    if (step.design.b.empty()) fail(file, "holds no samples");
    check_design(file, step.design, options_.limits);
    return step;
  }
  ReadOptions options = options_;
  options.wanted = FilterDesign::kFir;
  static const std::map<std::string, const char*> newer = {
      {"S16_LE", "S16LE"},      {"S24_3_LE", "S24LE3"}, {"S24_4_RJ_LE", "S24LE"},
      {"S24_4_LJ_LE", "S32LE"}, {"S32_LE", "S32LE"},    {"F32_LE", "FLOAT32LE"},
      {"F64_LE", "FLOAT64LE"}};
  const std::string format = text(p["format"]);
  const auto found = newer.find(format);
  const std::optional<CoefficientFormat> raw =
      raw_format_of(found == newer.end() ? format : found->second);
  if (!raw && !format.empty() && format != "TEXT")
    refuse(p, quote(format) + " is no known format of raw taps");
  options.format = raw.value_or(CoefficientFormat::kNumbers);
  return filter_step(name, load_design(file, options));
}

SetupStep CamillaFilters::difference_equation(const std::string& name, const YAML::Node& p) const {
  check_rate(name, p);
  const auto list = [&](const char* key) {
    return p[key] && !p[key].IsNull() ? numbers(p, key) : std::vector<double>{1.0};
  };
  FilterDesign design{FilterDesign::kIir, list("b"), list("a")};
  if (design.a[0] != 1.0)
    refuse(p, "the denominator of " + quote(name) + " starts with " + shown(design.a[0]) +
                  ", not with 1");
  return filter_step(name, std::move(design));
}

/** Not of CamillaDSP: an equaliser in words, or any file of coefficients. */
std::vector<SetupStep> CamillaFilters::equaliser(const std::string& name,
                                                 const YAML::Node& p) const {
  ReadOptions options = options_;
  options.wanted.reset();
  options.rate = rate_for_designs();
  std::vector<SetupStep> steps;
  const YAML::Node list = p["filters"];
  Strings filters;
  if (list && list.IsScalar()) filters.push_back(text(list));
  if (list && list.IsSequence())
    for (const YAML::Node& filter : list) filters.push_back(text(filter));
  if (filters.empty()) refuse(p, "the filter " + quote(name) + " has no list of 'filters'");
  try {
    for (FilterDesign& design : parse_equaliser_chain({}, {}, filters, options))
      steps.push_back(filter_step(name, std::move(design)));
  } catch (const Error& error) {
    refuse(p, "the filter " + quote(name) + ", " + error.what());
  }
  return steps;
}

std::vector<SetupStep> CamillaFilters::delay(const std::string& name, const YAML::Node& p) {
  const double value = parameter(p, "delay");
  const std::string unit = text(p["unit"]).empty() ? text(p["delay_unit"]) : text(p["unit"]);
  const double rate = rate_for_designs();
  static const std::map<std::string, double> seconds = {
      {"", 1e-3}, {"null", 1e-3}, {"ms", 1e-3}, {"s", 1.0}, {"us", 1e-6}, {"mm", 1e-3 / 343.0}};
  const auto found = seconds.find(unit);
  if (found == seconds.end() && unit != "samples")
    refuse(p, "the filter " + quote(name) + " has the unit " + quote(unit) +
                  "; accepted are ms, us, s, mm and samples");
  const double frames = unit == "samples" ? value : value * found->second * rate;
  if (!(frames >= 0.0 && frames <= 60.0 * rate))
    refuse(p, "the filter " + quote(name) + " delays by " + shown(frames) +
                  " frames; accepted is 0 to a minute");
  SetupStep step{};
  step.kind = SetupStep::kDelay;
  step.name = name;
  const double whole = std::round(frames);
  step.delay = static_cast<int>(whole);
  if (std::abs(frames - whole) < 1e-6) return {step};
  if (text(p["subsample"]) != "true") {
    remarks_.push_back("the delay " + quote(name) + " of " + shown(frames) +
                       " frames is rounded to " + std::to_string(step.delay) +
                       "; subsample: true keeps it");
    return {step};
  }
  step.delay = static_cast<int>(std::max(0.0, std::floor(frames - 1.5)));
  return {step, sections(name, fractional_delay(frames - step.delay))};
}

std::vector<SetupStep> CamillaFilters::steps_of(const std::string& name, const YAML::Node& used) {
  const YAML::Node filters = root_["filters"];
  const YAML::Node filter = filters && filters.IsMap() ? filters[name] : YAML::Node();
  if (!filter || !filter.IsMap()) refuse(used, "there is no filter " + quote(name));
  const std::string type = text(filter["type"]);
  const YAML::Node parameters = filter["parameters"];
  if (!parameters || !parameters.IsMap())
    refuse(filter,
           "the filter " + quote(name) + " of the type " + quote(type) + " has no parameters");
  if (type == "Biquad") return {biquad(name, parameters)};
  if (type == "BiquadCombo") return {combination(name, parameters)};
  if (type == "Conv") return {convolution(name, parameters)};
  if (type == "DiffEq") return {difference_equation(name, parameters)};
  if (type == "Delay") return delay(name, parameters);
  if (type == "Equaliser") return equaliser(name, parameters);
  if (type == "Gain") {
    parameter(parameters, "gain");
    SetupStep step{};
    step.kind = SetupStep::kGain;
    step.name = name;
    step.gain = gain_of(parameters);
    return {step};
  }
  if (type == "Coefficients") {
    ReadOptions options = options_;
    options.wanted.reset();
    options.rate = rate_for_designs();
    return {filter_step(name, load_design(file_of(parameters), options))};
  }
  refuse(filter, "the filter " + quote(name) + " of the type " + quote(type) +
                     " of CamillaDSP is not supported; accepted are Biquad, BiquadCombo, Conv, "
                     "Delay, DiffEq and Gain, and besides Equaliser and Coefficients");
}

}  // namespace jurn
