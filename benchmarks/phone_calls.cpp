/* Runs one kind in calls of 480 frames, or blocks of a convolution that hold every piece of its
 * work equally often, for counting its instructions: KIND CALLS. Without arguments it lists the
 * kinds, and the frames of a call. */
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "../modules/libJURN/filter/Filter_LIB/Convolution_control.h"
#include "../modules/libJURN/filter/Filter_LIB/Filter_control.h"
#include "../modules/libJURN/filter/Filter_LIB/Sections_control.h"

namespace {

constexpr int frames = 480;
Filter_ID filter, more[3];
Filterf_ID float_filter;
Filterlongfir_ID long_filter;
short input[2 * frames], output[2 * frames], outputs[3][frames];
float floats[2 * frames], results[2 * frames];
double filter_memory[600], stream_memory[200];
auto* const sections_filter = reinterpret_cast<SectionsFilter_ID*>(filter_memory);
auto* const sections_stream = reinterpret_cast<SectionsStream_ID*>(stream_memory);

struct Kind {
  const char* name;
  int type, chanel, count;
};
std::vector<float> response_memory, room_memory;

// Types of Filter_ID; 10: Filterf_ID's FIR, -2: FFT, 20: four records at once, 30: sections,
// 40: convolution in blocks of `count` frames.
const Kind kinds[] = {{"FIR, 32 taps", -1, 1, 32},
                      {"FIR, 512 taps", -1, 1, 512},
                      {"IIR, order 2", 0, 1, 3},
                      {"cascade, 1 section", 1, 1, 1},
                      {"cascade, 4 sections", 1, 1, 4},
                      {"four cascades of 1 section at once", 20, 1, 1},
                      {"four cascades of 2 sections at once", 20, 1, 2},
                      {"moving mean, 100 samples", 2, 1, 100},
                      {"float FIR, 32 taps", 10, 1, 32},
                      {"sections in double, 1", 30, 1, 1},
                      {"sections in double, 4", 30, 1, 4},
                      {"sections in double, 16", 30, 1, 16},
                      {"sections in double, stereo, 4", 30, 2, 4},
                      {"FFT, stereo, 481 taps", -2, 2, 481},
                      {"convolution, stereo, 24000 taps, 64 frames", 40, 2, 64},
                      {"convolution, stereo, 24000 taps, 96 frames", 40, 2, 96}};

int frames_of(const Kind& kind) {
  return kind.type == 40 ? kind.count * (kind.count == 64 ? 64 : 210) : frames;
}

void set_up(Filter_ID* f, const Kind& kind) {
  f->chanel = kind.chanel;
  f->filtertype = kind.type == 20 ? 1 : kind.type;
  f->blen = f->alen = kind.count;
  f->n = 2;
  f->ns = kind.count;
  for (int i = 0; i < JURN_COEFFICIENTS; ++i) {
    const float b[] = {0.9f, -0.3f, 0.1f}, a[] = {1.0f, -0.5f, 0.2f};
    const bool cascade = f->filtertype == 1;
    f->b[i] = cascade ? b[i % 3] : 0.5f / static_cast<float>(kind.count);
    f->a[i] = cascade ? a[i % 3] : 0.3f / static_cast<float>(kind.count);
  }
  MORVAX_FilterReset_API(f);
}

void set_up_sections(const Kind& kind) {
  double sos[6 * 16];
  const double section[] = {0.9, -0.3, 0.1, 1.0, -0.5, 0.2};
  for (int i = 0; i < 6 * kind.count; ++i) sos[i] = section[i % 6];
  const Sections_shape shape = {kind.chanel, kind.count};
  if (MORVAX_SectionsFilterCalcu_API(sections_filter, sizeof filter_memory, sos, kind.count, 1) ||
      MORVAX_SectionsStreamCalcu_API(sections_stream, sizeof stream_memory, &shape))
    std::abort();
}

void set_up_room(const Kind& kind) {
  const std::vector<float> taps(24000, 1e-4f);
  const Convolution_shape shape = {2, 2, kind.count, 24000};
  const Convolution_route routes[] = {{0, 0, taps.data(), 24000}, {1, 1, taps.data(), 24000}};
  const size_t size = MORVAX_ConvolutionResponseSize_API(&shape, routes, 2);
  const size_t stream_size = MORVAX_ConvolutionStreamSize_API(&shape);
  response_memory.resize(size / sizeof(float));
  room_memory.resize(stream_size / sizeof(float));
  if (MORVAX_ConvolutionResponseCalcu_API(
          reinterpret_cast<ConvolutionResponse_ID*>(response_memory.data()), size, &shape, routes,
          2) ||
      MORVAX_ConvolutionStreamCalcu_API(reinterpret_cast<ConvolutionStream_ID*>(room_memory.data()),
                                        stream_size, &shape))
    std::abort();
}

void call(const Kind& kind) {
  if (kind.type == 40) {
    for (int i = 0; i < frames_of(kind); i += kind.count)
      MORVAX_ConvolutionRun_API(
          reinterpret_cast<ConvolutionStream_ID*>(room_memory.data()),
          reinterpret_cast<const ConvolutionResponse_ID*>(response_memory.data()), input, output);
  } else if (kind.type == -2) {
    MORVAX_FilterlongfirRun_API(&long_filter, input, 2 * frames, output);
  } else if (kind.type == 10) {
    MORVAX_FilterfRun_API(&float_filter, floats, frames, results);
  } else if (kind.type == 30) {
    MORVAX_SectionsRun_API_float(sections_stream, sections_filter, floats, frames, results);
  } else if (kind.type == 20) {
    Filter_ID* const records[] = {&filter, &more[0], &more[1], &more[2]};
    const short* const in[] = {input, input, input, input};
    short* const out[] = {output, outputs[0], outputs[1], outputs[2]};
    MORVAX_FilterRun_API_records(records, 4, in, frames, out);
  } else {
    MORVAX_FilterRun_API(&filter, input, frames, output);
  }
}

}  // namespace

int main(int argc, char** argv) {
  for (int i = 0; i < 2 * frames; ++i) input[i] = static_cast<short>(i * 7919 % 20001 - 10000);
  for (int i = 0; i < 2 * frames; ++i) floats[i] = input[i];
  for (const Kind& kind : kinds) {
    if (argc < 3) std::printf("%s\t%d\n", kind.name, frames_of(kind));
    if (argc < 3 || std::strcmp(argv[1], kind.name) != 0) continue;
    if (kind.type == -2) {
      long_filter.chanel = 2;
      long_filter.filtertype = -2;
      long_filter.blen = long_filter.bRlen = kind.count;
      long_filter.b[9] = long_filter.bR[9] = 1.0f;
      MORVAX_FilterlongfirReset_API(&long_filter);
      MORVAX_FilterlongfirCalcu_API_forFFT(&long_filter);
    } else if (kind.type == 10) {
      float_filter.filtertype = -1;
      float_filter.blen = kind.count;
      for (int i = 0; i < kind.count; ++i) float_filter.b[i] = 0.5 / kind.count;
    } else if (kind.type == 30) {
      set_up_sections(kind);
    } else if (kind.type == 40) {
      set_up_room(kind);
    } else {
      for (Filter_ID* f : {&filter, &more[0], &more[1], &more[2]}) set_up(f, kind);
    }
    for (int i = 0; i < std::atoi(argv[2]); ++i) call(kind);
  }
  return 0;
}
