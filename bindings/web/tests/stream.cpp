/* Runs one filter of the native engine, as the tool does for results in float, as the tests
 * describe it on standard input: eight integers (kind, int16, inputs, outputs, block, frames, and
 * the counts of b and a or of routes), b and a as doubles or input, output and length of each route
 * followed by its taps as floats, and planar floats at a full scale of 1. Writes planar floats. */
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <vector>

#include "design/prepare.h"
#include "streams/voice.h"

namespace {

template <class T>
std::vector<T> take(int count) {
  std::vector<T> values(static_cast<std::size_t>(count));
  if (std::fread(values.data(), sizeof(T), values.size(), stdin) != values.size()) std::exit(2);
  return values;
}

enum Kind { kFir, kIir, kSections, kAverage, kConvolution };

/** The filter that standard input describes. `head` holds the eight integers. */
std::unique_ptr<jurn::Voice> make(const std::vector<int>& head) {
  jurn::Format format;
  format.inputs = head[2];
  format.outputs = head[3];
  format.block = head[4];
  const jurn::Precision precision = head[1] ? jurn::Precision::kInt16 : jurn::Precision::kDouble;
  if (head[0] == kConvolution) {
    jurn::Routing routing{head[2], head[3], {}};
    for (int i = 0; i < head[6]; ++i) {
      const std::vector<int> route = take<int>(3);
      const std::vector<float> taps = take<float>(route[2]);
      routing.routes.push_back({route[0], route[1], {taps.begin(), taps.end()}});
    }
    return jurn::make_convolution(routing, routing.longest(), precision, format);
  }
  const std::vector<double> b = take<double>(head[6]), a = take<double>(head[7]);
  if (head[0] == kAverage) return jurn::make_mean(static_cast<int>(b[0]), precision, format);
  jurn::PrepareOptions options;
  options.precision = precision;
  options.result = jurn::SampleFormat::kFloat;
  // In 16 bits the page runs what it prepared before, as this program's caller does.
  options.as_is = head[1] != 0;
  const jurn::FilterDesign design{static_cast<jurn::FilterDesign::Kind>(head[0]), b, a};
  return make_voice(prepare(design, options), format);
}

}  // namespace

int main() {
  const std::vector<int> head = take<int>(8);
  const int inputs = head[2], outputs = head[3], block = head[4], frames = head[5];
  const std::unique_ptr<jurn::Voice> voice = make(head);
  const std::size_t length = static_cast<std::size_t>(frames);
  std::vector<std::vector<double>> in,
      out(static_cast<std::size_t>(outputs), std::vector<double>(length));
  for (int c = 0; c < inputs; ++c) {
    const std::vector<float> samples = take<float>(frames);
    in.emplace_back();
    for (const float x : samples) in.back().push_back(x * 32768.0);
  }
  for (int at = 0; at < frames; at += block) {
    std::vector<const double*> from;
    std::vector<double*> to;
    for (const std::vector<double>& channel : in) from.push_back(channel.data() + at);
    for (std::vector<double>& channel : out) to.push_back(channel.data() + at);
    voice->run(from.data(), block, to.data());
  }
  for (const std::vector<double>& channel : out)
    for (const double x : channel) {
      const float sample = static_cast<float>(x) / 32768.0f;
      std::fwrite(&sample, sizeof sample, 1, stdout);
    }
}
