#include "convolution_source.h"

#include <stdexcept>

#include "Convolution_control.h"
#include "coefficients/setups.h"
#include "element.h"
#include "impulse_responses/routes.h"
#include "recordings/audio_io.h"
#include "streams/changing_stream.h"
#include "streams/setup_voice.h"
#include "units.h"

namespace jurn::gst {
namespace {

// Where a file says nothing of a rate.
constexpr int kUsualRate = 48000;

/** What an impulse response of `count` channels can connect. */
ChannelPairs pairs_of(std::size_t count) {
  switch (count) {
    case 1:
      return {};
    case 4:
      return {{2, 2}, {4, 4}, {1, 4}};
    default:
      return {{static_cast<int>(count), static_cast<int>(count)}, {1, static_cast<int>(count)}};
  }
}

int rate_of(const std::string& path) {
  try {
    return jurn::AudioReader(path, JURN_CONVOLUTION_CHANNELS).rate();
  } catch (const std::exception&) {
    return kUsualRate;
  }
}

}  // namespace

ChannelPairs ConvolutionSource::pairs() {
  wait();
  const std::lock_guard<std::mutex> lock(mutex_);
  return pairs_;
}

void ConvolutionSource::find_pairs(const ConvolutionSettings& settings) {
  if (settings.setting == counted_setting_) return;
  counted_setting_ = -1;
  ChannelPairs pairs;
  std::string problem;
  try {
    if (!settings.setup.empty()) {
      if (const auto channels = jurn::count_setup_channels(settings.setup); channels.first)
        pairs = {channels};
    } else if (!settings.routes.empty())
      pairs = {jurn::count_routes(settings.routes)};
    else if (!settings.location.empty())
      pairs = pairs_of(jurn::count_channels(settings.location));
    counted_setting_ = settings.setting;
  } catch (const std::exception& error) {
    problem = error.what();
  }
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    pairs_ = std::move(pairs);
  }
  if (!problem.empty()) throw std::runtime_error(problem);
}

/** Reads the files, unless that is done. */
void ConvolutionSource::read(const ConvolutionSettings& settings, int rate) {
  const bool by_routes = !settings.routes.empty();
  const std::string& name = by_routes ? settings.routes : settings.location;
  const gint64 written = time_of_writing(name);
  if (files_.name == name && files_.setting == settings.setting && files_.written == written &&
      files_.rate == rate && files_.resample == settings.resample)
    return;
  files_ = {};
  jurn::ImpulseResponseOptions options;
  options.resample = settings.resample;
  Files files{name, rate, settings.setting, settings.resample, written, {}, {}};
  if (by_routes)
    files.routing = jurn::read_routes(name, rate, options);
  else
    files.response = jurn::read_impulse_response({name}, rate, options);
  files_ = std::move(files);
}

std::unique_ptr<OfferedFilter> ConvolutionSource::prepare_setup(
    const ConvolutionSettings& settings, const StreamFormat& format,
    std::vector<std::string>* warnings) {
  const std::string& name = settings.setup;
  if (settings.normalise) throw std::runtime_error(name + ": normalise is for impulse responses");
  if (settings.precision == jurn::Precision::kInt16)
    throw std::runtime_error(name + ": setups run in double; precision=int16 is for others");
  if (!format.rate || !format.block) return nullptr;
  jurn::Setup setup = jurn::read_setup(name, format.rate, format.inputs).setup;
  jurn::check_channels(name, {setup.inputs, setup.outputs()}, "the stream",
                       {format.inputs, format.outputs});
  jurn::scale(&setup, jurn::from_decibels(settings.gain_db));
  return jurn::offer_setup(
      setup, engine_format(format, format.block, jurn::kConvolutionHistory),
      format.is_float ? jurn::SampleFormat::kFloat : jurn::SampleFormat::kInt16, name, warnings);
}

std::unique_ptr<OfferedFilter> ConvolutionSource::prepare(const StreamFormat& format,
                                                          std::vector<std::string>* warnings) {
  const ConvolutionSettings& settings = next();
  const bool by_routes = !settings.routes.empty();
  const std::string& name = settings.file();
  find_pairs(settings);
  if (name.empty()) return nullptr;
  if (!settings.setup.empty()) return prepare_setup(settings, format, warnings);
  read(settings, format.rate ? format.rate : by_routes ? kUsualRate : rate_of(name));
  if (!format.block) return nullptr;
  jurn::Routing routing =
      by_routes ? files_.routing
                : jurn::connect(files_.response, jurn::Wiring::kAutomatic, format.inputs, name);
  jurn::check_channels(name, {routing.inputs, routing.outputs}, "the stream",
                       {format.inputs, format.outputs});
  if (settings.normalise) jurn::normalise(&routing, name);
  jurn::scale(&routing, jurn::from_decibels(settings.gain_db));
  return std::make_unique<OfferedFilter>(
      jurn::make_convolution(routing, routing.longest(), settings.precision,
                             engine_format(format, format.block, jurn::kConvolutionHistory)));
}

void ConvolutionSource::settled(bool well) {
  SettingsPreparer::settled(well);
  const std::lock_guard<std::mutex> lock(mutex_);
  if (well) {
    good_pairs_ = pairs_;
  } else {
    pairs_ = good_pairs_;
    counted_setting_ = -1;
  }
}

}  // namespace jurn::gst
