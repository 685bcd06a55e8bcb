#include "convolution_source.h"

#include <cmath>
#include <stdexcept>

#include "element.h"
#include "impulse_responses/routes.h"
#include "recordings/audio_io.h"

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

/** Taps that a stream has room for, so that most other responses need no other stream. */
int capacity(int taps) {
  int room = 8192;
  while (room < taps) room *= 2;
  return room;
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
    if (!settings.routes.empty())
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
  options.max_taps = JURN_CONVOLUTION_TAPS;
  options.limit = "at most " + std::to_string(JURN_CONVOLUTION_TAPS) + " are supported";
  Files files{name, rate, settings.setting, settings.resample, written, {}, {}};
  if (by_routes)
    files.routing = jurn::read_routes(name, rate, options);
  else
    files.response = jurn::read_impulse_response({name}, rate, options);
  files_ = std::move(files);
}

std::unique_ptr<Offer> ConvolutionSource::prepare(const StreamFormat& format,
                                                  std::vector<std::string>*) {
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    tried_ = settings_;
    tried_version_ = version_;
  }
  const bool by_routes = !tried_.routes.empty();
  const std::string& name = by_routes ? tried_.routes : tried_.location;
  find_pairs(tried_);
  if (name.empty()) return nullptr;
  read(tried_, format.rate ? format.rate : by_routes ? kUsualRate : rate_of(name));
  if (!format.block) return nullptr;
  jurn::Routing routing =
      by_routes ? files_.routing
                : jurn::connect(files_.response, jurn::Wiring::kAutomatic, format.inputs, name);
  if (routing.inputs != format.inputs || routing.outputs != format.outputs)
    throw std::runtime_error(name + ": connects " + std::to_string(routing.inputs) + " to " +
                             std::to_string(routing.outputs) + " channels, and the stream has " +
                             std::to_string(format.inputs) + " and " +
                             std::to_string(format.outputs));
  if (tried_.normalise) jurn::normalise(&routing, name);
  jurn::scale(&routing, std::pow(10.0, tried_.gain_db / 20.0));
  const Convolution_shape shape{format.inputs, format.outputs, format.block,
                                capacity(routing.longest())};
  return std::make_unique<PreparedConvolution>(shape, routing);
}

void ConvolutionSource::settled(bool well) {
  const std::lock_guard<std::mutex> lock(mutex_);
  if (well) {
    good_ = tried_;
    good_pairs_ = pairs_;
  } else if (version_ == tried_version_) {
    settings_ = good_;
    pairs_ = good_pairs_;
  }
}

}  // namespace jurn::gst
