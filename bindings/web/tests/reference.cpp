/* Runs one filter of the native library as the tests describe it on standard input: eight integers
 * (kind, int16, inputs, outputs, block, frames, and the counts of b and a or of routes), b and a as
 * doubles or input, output and length of each route followed by its taps as floats, and planar
 * floats at a full scale of 1. Writes planar floats. */
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "Convolution_control.h"
#include "Filter_control.h"

namespace {

template <class T>
std::vector<T> take(int count) {
  std::vector<T> values(static_cast<std::size_t>(count));
  if (std::fread(values.data(), sizeof(T), values.size(), stdin) != values.size()) std::exit(2);
  return values;
}

short rounded(float x) {
  return static_cast<short>(std::lrint(std::fmin(std::fmax(x, -32768.0f), 32767.0f)));
}

/** The result of one channel or of interleaved channels, block by block. */
template <class T, class Run>
void by_blocks(std::vector<T>* samples, int values, Run run) {
  for (std::size_t at = 0; at < samples->size(); at += static_cast<std::size_t>(values))
    run(samples->data() + at);
}

void run_int16(int kind, int block, const std::vector<double>& b, const std::vector<double>& a,
               std::vector<std::vector<float>>* channels) {
  const int count = static_cast<int>(channels->size());
  const bool average = kind == 3;
  for (int first = 0; first < count; first += average ? 1 : count) {
    const int together = average ? 1 : count;
    static Filter_ID filter;
    filter = Filter_ID();
    for (std::size_t i = 0; i < b.size() && !average; ++i) filter.b[i] = static_cast<float>(b[i]);
    for (std::size_t i = 0; i < a.size(); ++i) filter.a[i] = static_cast<float>(a[i]);
    filter.blen = static_cast<int>(average ? b[0] : static_cast<double>(b.size()));
    filter.alen = static_cast<int>(a.size());
    filter.n = 2;
    filter.ns = filter.blen / 3;
    filter.chanel = together;
    filter.filtertype = kind - 1;
    std::vector<short> samples;
    for (std::size_t i = 0; i < (*channels)[0].size(); ++i)
      for (int c = first; c < first + together; ++c)
        samples.push_back(rounded((*channels)[static_cast<std::size_t>(c)][i] * 32768.0f));
    by_blocks(&samples, block * together,
              [&](short* x) { MORVAX_FilterRun_API(&filter, x, block * together, x); });
    for (std::size_t i = 0; i < samples.size(); ++i) {
      const std::size_t channel =
          static_cast<std::size_t>(first) + i % static_cast<std::size_t>(together);
      (*channels)[channel][i / static_cast<std::size_t>(together)] = samples[i] / 32768.0f;
    }
  }
}

void run_double(int kind, int block, const std::vector<double>& b, const std::vector<double>& a,
                std::vector<std::vector<float>>* channels) {
  const std::size_t length = kind == 2 ? 3 : b.size(), a_length = kind == 2 ? 3 : a.size();
  for (std::vector<float>& channel : *channels) {
    for (float& x : channel) x *= 32768.0f;
    for (std::size_t section = 0; section * length < b.size(); ++section) {
      static Filterf_ID filter;
      filter = Filterf_ID();
      for (std::size_t i = 0; i < length; ++i) filter.b[i] = b[section * length + i];
      for (std::size_t i = 0; i < a_length; ++i) filter.a[i] = a[section * a_length + i];
      filter.blen = static_cast<int>(length);
      filter.alen = static_cast<int>(a_length);
      filter.filtertype = kind == 0 ? -1 : 0;
      by_blocks(&channel, block, [&](float* x) { MORVAX_FilterfRun_API(&filter, x, block, x); });
    }
    for (float& x : channel) x /= 32768.0f;
  }
}

void run_convolution(int inputs, int outputs, int block, int count,
                     std::vector<std::vector<float>>* channels) {
  std::vector<std::vector<float>> taps;
  std::vector<Convolution_route> routes;
  Convolution_shape shape = {inputs, outputs, block, 1};
  for (int i = 0; i < count; ++i) {
    const std::vector<int> route = take<int>(3);
    taps.push_back(take<float>(route[2]));
    routes.push_back({route[0], route[1], taps.back().data(), route[2]});
    if (route[2] > shape.taps) shape.taps = route[2];
  }
  std::size_t size = MORVAX_ConvolutionResponseSize_API(&shape, routes.data(), count);
  auto* response = static_cast<ConvolutionResponse_ID*>(std::malloc(size));
  if (MORVAX_ConvolutionResponseCalcu_API(response, size, &shape, routes.data(), count))
    std::exit(3);
  size = MORVAX_ConvolutionStreamSize_API(&shape);
  auto* stream = static_cast<ConvolutionStream_ID*>(std::malloc(size));
  if (MORVAX_ConvolutionStreamCalcu_API(stream, size, &shape)) std::exit(3);
  const auto frames = static_cast<std::size_t>(block);
  for (std::vector<float>& channel : *channels)
    channel = take<float>(static_cast<int>(channel.size()));
  const std::size_t length = (*channels)[0].size();
  std::vector<std::vector<float>> out(static_cast<std::size_t>(outputs),
                                      std::vector<float>(length));
  std::vector<float> in(frames * static_cast<std::size_t>(inputs)), result(frames * out.size());
  for (std::size_t at = 0; at < length; at += frames) {
    for (std::size_t i = 0; i < in.size(); ++i)
      in[i] = (*channels)[i % channels->size()][at + i / channels->size()] * 32768.0f;
    MORVAX_ConvolutionRun_API_float(stream, response, in.data(), result.data());
    for (std::size_t i = 0; i < result.size(); ++i)
      out[i % out.size()][at + i / out.size()] = result[i] / 32768.0f;
  }
  std::free(response);
  std::free(stream);
  *channels = out;
}

}  // namespace

int main() {
  const std::vector<int> head = take<int>(8);
  const int kind = head[0], inputs = head[2], block = head[4], frames = head[5];
  std::vector<std::vector<float>> channels(static_cast<std::size_t>(inputs),
                                           std::vector<float>(static_cast<std::size_t>(frames)));
  if (kind == 4) {
    run_convolution(inputs, head[3], block, head[6], &channels);
  } else {
    const std::vector<double> b = take<double>(head[6]), a = take<double>(head[7]);
    for (std::vector<float>& channel : channels) channel = take<float>(frames);
    if (head[1])
      run_int16(kind, block, b, a, &channels);
    else
      run_double(kind, block, b, a, &channels);
  }
  for (const std::vector<float>& channel : channels)
    std::fwrite(channel.data(), sizeof(float), channel.size(), stdout);
}
