/* The readers of files that lie in a folder: whatever a file holds, the result is what can run, or
 * one printable line. READER names the reader; the file is "file" in the folder where the fuzzer
 * runs, and taps.wav and taps.txt lie beside it. */
#include <cctype>
#include <cmath>
#include <fstream>
#include <iterator>
#include <limits>
#include <string>
#include <vector>

#include "../walks/walk.h"
#include "coefficients/formats.h"
#include "coefficients/setups.h"
#include "errors.h"
#include "impulse_responses/hrtf_set.h"
#include "impulse_responses/routes.h"
#include "recordings/audio_io.h"
#include "streams/long_filter.h"

namespace {

const std::string kPath = "file";
constexpr int kRate = 48000;

void check_numbers(const std::vector<double>& values) {
  for (const double x : values)
    require(std::fabs(x) <= std::numeric_limits<float>::max(), "a float holds every value");
}

// The first byte of the data chooses among the ways in which a file is read.

[[maybe_unused]] void routes(uint8_t) {
  const auto [inputs, outputs] = jurn::count_routes(kPath);
  jurn::ImpulseResponseOptions options;
  options.max_taps = 100000;
  options.resample = true;
  const jurn::Routing routing = jurn::read_routes(kPath, kRate, options);
  require(routing.inputs == inputs && routing.outputs == outputs, "the channels are as counted");
  for (const jurn::Route& route : routing.routes) {
    require(route.input >= 0 && route.input < inputs, "an input is there");
    require(route.output >= 0 && route.output < outputs, "an output is there");
    require(!route.taps.empty() && route.taps.size() <= 100000, "a route keeps the limit");
    check_numbers(route.taps);
  }
}

[[maybe_unused]] void setup(uint8_t) {
  const jurn::SetupFile file = jurn::read_setup(kPath, kRate, 2);
  const jurn::Setup& setup = file.setup;
  int channels = setup.inputs;
  require(channels > 0 && channels <= jurn::kMostSetupChannels, "the inputs keep the limit");
  for (const jurn::SetupStep& step : setup.steps) {
    for (const int c : step.channels) require(c >= 0 && c < channels, "a channel is there");
    check_numbers(step.design.b);
    check_numbers(step.design.a);
    check_numbers({step.gain});
    require(step.delay >= 0, "a delay is not negative");
    if (step.kind != jurn::SetupStep::kMixer) continue;
    for (const auto& route : step.routes) {
      require(route.input >= 0 && route.input < channels, "a mixer's input is there");
      require(route.output >= 0 && route.output < step.outputs, "a mixer's output is there");
      check_numbers({route.gain});
    }
    channels = step.outputs;
    require(channels > 0 && channels <= jurn::kMostSetupChannels, "the outputs keep the limit");
  }
  const std::pair<int, int> counted = jurn::count_setup_channels(kPath);
  require(!counted.first || counted == std::pair(setup.inputs, channels),
          "channels are as counted");
}

/** Four bytes each: where a real set is changed, and to what. A set of a fuzzer's own is none. */
std::string changed_set(const uint8_t* data, size_t size) {
  static const std::string original = [] {
    std::ifstream file("/usr/share/libmysofa/default.sofa", std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), {});
  }();
  require(!original.empty(), "libmysofa's set is installed");
  std::string set = original;
  for (size_t i = 0; i + 4 <= size; i += 4)
    set[(data[i] | data[i + 1] << 8 | data[i + 2] << 16) % set.size()] =
        static_cast<char>(data[i + 3]);
  return set;
}

[[maybe_unused]] void sofa(uint8_t) {
  jurn::HrtfSet set(kPath, 44100);  // its own rate: to resample takes long
  require(set.taps() <= jurn::kMaxTimeDomainTaps, "a set keeps the limit");
  for (const double azimuth : {0.0, 30.0, -135.0})
    for (const std::vector<double>& ear : set.at(azimuth, 10.0)) check_numbers(ear);
}

[[maybe_unused]] void recording(uint8_t way) {
  jurn::InputFormat format;
  format.partial = way & 1;
  if (way & 2) format = {kRate, 1 + way % 7, format.partial};
  jurn::AudioReader reader(kPath, jurn::kMaxChannels, format);
  require(reader.channels() > 0 && reader.channels() <= jurn::kMaxChannels,
          "channels in the limit");
  reader.tags();
  for (const char c : reader.metadata().names())
    require(c >= ' ' && c <= '~', "names are printable");
  std::vector<double> samples(static_cast<std::size_t>(1000 * reader.channels()));
  for (int i = 0; i < 100; ++i)
    if (const std::size_t got = reader.read(samples.data(), 1000)) {
      require(got <= 1000, "no more frames than there is room for");
      for (const double x : samples) require(std::isfinite(x), "samples are numbers");
    } else {
      break;
    }
}

[[maybe_unused]] void response(uint8_t way) {
  jurn::ImpulseResponseOptions options;
  options.max_taps = 20000;
  options.resample = way & 1;
  options.normalise = way & 2;
  if (way & 4) options.truncate = 50;
  if (way & 8) options.part = {3, 20};
  const jurn::ImpulseResponse response = jurn::read_impulse_response({kPath}, kRate, options);
  require(!response.empty() && response.size() <= 16, "channels keep the limit");
  for (const std::vector<double>& taps : response) {
    require(!taps.empty() && taps.size() <= 20000, "a response keeps the limit");
    check_numbers(taps);
  }
}

[[maybe_unused]] void arrays(uint8_t way) {
  jurn::ReadOptions options;
  if (way % 4 != 3) options.wanted = static_cast<jurn::FilterDesign::Kind>(way % 4);
  options.limits = jurn::filter_limits(jurn::Precision::kDouble);
  options.rate = kRate;
  if (way & 4) options.variables = {"b", "a"};
  const jurn::FilterDesign design = jurn::load_design(kPath, options);
  require(!design.b.empty(), "a design has coefficients");
  check_numbers(design.b);
  check_numbers(design.a);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 2) return 0;
  const std::string content = READER == sofa
                                  ? changed_set(data, size)
                                  : std::string(reinterpret_cast<const char*>(data) + 1, size - 1);
  std::ofstream(kPath, std::ios::binary) << content;
  try {
    READER(data[0]);
  } catch (const jurn::Error& error) {
    require(error.what()[0] != '\0', "an error says something");
    for (const char* c = error.what(); *c; ++c)
      require(!std::iscntrl(static_cast<unsigned char>(*c)),
              "the message is one line that moves nothing on a terminal");
  }
  return 0;
}
