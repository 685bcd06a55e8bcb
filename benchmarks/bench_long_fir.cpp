/* Filterlongfir_ID as its user calls it: FIFOs and conversion included. */
#include <algorithm>
#include <array>
#include <cstdint>
#include <memory>

#include "DFTs.h"
#include "Filter_control.h"
#include "fast_convolution.h"
#include "groups.h"

#ifdef PEER_ZITA
#include <zita-convolver.h>
#endif

namespace {

struct Filter {
  Filter(int channels, int kind, int taps, int most_frames)
      : record(new Filterlongfir_ID()),
        input(noise<short>(2 * most_frames, 20000.0)),
        output(2 * most_frames) {
    record->chanel = channels;
    record->filtertype = kind;
    record->blen = record->bRlen = taps;
    // They only delay, so that the transforms alone may be repeated on their own output for ever.
    record->b[taps / 2] = record->bR[taps / 2] = 1.0f;
    MORVAX_FilterlongfirReset_API(record.get());
    if (kind == -2 || kind == -4 || kind == -5 || kind == -7)
      MORVAX_FilterlongfirCalcu_API_forFFT(record.get());
  }
  int hop() const { return record->offset / record->chanel; }
  void run(int frames) {
    MORVAX_FilterlongfirRun_API(record.get(), input.data(), frames * record->chanel, output.data());
  }
  std::unique_ptr<Filterlongfir_ID> record;
  std::vector<short> input, output;
};

/** Calls that hold a whole number of transforms, for their mean. */
Side whole_blocks(const std::string& name, std::shared_ptr<Filter> filter, int least_frames) {
  const int hop = filter->hop();
  const int frames = (least_frames + hop - 1) / hop * hop;
  return {name, static_cast<double>(frames), [filter, frames] { filter->run(frames); }};
}

/** Where a run works in an array. */
float* block_of(float* work) {
  return work + (0 - reinterpret_cast<uintptr_t>(work)) % 64 / sizeof(float);
}

/** The transforms and products of one block, in the memory where its run does them. */
Side transforms(const std::string& name, std::shared_ptr<Filter> filter) {
  Filterlongfir_ID* f = filter->record.get();
  const bool two_inputs = f->chanel == 2 && f->filtertype != -4;
  const bool two_outputs = f->chanel == 2 || f->filtertype == -5;
  const std::vector<float> samples = noise<float>(f->fftN, 10000.0);
  std::copy(samples.begin(), samples.end(), block_of(f->xLhL));
  std::copy(samples.begin(), samples.end(), block_of(f->xRhR));
  return {name, static_cast<double>(filter->hop()),
          [filter, two_inputs, two_outputs,
           x = std::array<float*, 2>{block_of(f->xLhL), block_of(f->xRhR)},
           y = std::array<float*, 2>{block_of(f->xLintl), block_of(f->xRintl)}]() mutable {
            const Filterlongfir_ID* const record = filter->record.get();
            const RealFFT_ID* const fft = &record->realfft;
            const short N = static_cast<short>(record->fftN);
            MORVAX_KLOV_RealFFT_Run2(fft, x[0], N);
            JURN_inverse_product(fft, y[0], record->hLrfft, x[0]);
            if (two_inputs) MORVAX_KLOV_RealFFT_Run2(fft, x[1], N);
            if (two_outputs) JURN_inverse_product(fft, y[1], record->hRrfft, x[two_inputs]);
            std::swap(x, y);
          }};
}

#ifdef PEER_ZITA
/** Two channels, each through its own taps in one partition; float in and out, no conversion. */
Side zita(const std::string& name, int taps) {
  struct Work {
    Convproc convolver;
    std::vector<float> taps, input;
    ~Work() {
      convolver.stop_process();
      convolver.cleanup();
    }
  };
  auto work = std::make_shared<Work>();
  work->taps = noise<float>(taps, 1.0 / taps);
  work->input = noise<float>(taps, 0.5);
  Convproc& convolver = work->convolver;
  convolver.set_options(Convproc::OPT_FFTW_MEASURE | Convproc::OPT_VECTOR_MODE);
  convolver.configure(2, 2, taps, taps, taps, taps, 0.0f);
  for (int c = 0; c < 2; ++c) convolver.impdata_create(c, c, 1, work->taps.data(), 0, taps);
  convolver.start_process(0, 0);
  return {name, 2.0 * taps, [work] {
            for (int c = 0; c < 2; ++c)
              std::copy(work->input.begin(), work->input.end(), work->convolver.inpdata(c));
            work->convolver.process();
          }};
}
#endif

struct Kind {
  int channels, kind;
  std::string name() const { return std::to_string(kind) + (channels == 2 ? " stereo" : " mono"); }
};

/** A filter that takes at least 480 frames, or a hop of them, in a call. */
std::shared_ptr<Filter> fft_filter(Kind kind, int taps) {
  return std::make_shared<Filter>(kind.channels, kind.kind, taps, 480 + 8193);
}

const Kind kFftKinds[] = {{2, -2}, {1, -2}, {2, -7}, {1, -5}, {2, -4}};

/** Calls of 256 frames, in periods of a transform. */
void dearest_call(benchmark::State& state, Kind kind, int taps) {
  constexpr int frames = 256;
  Filter filter(kind.channels, kind.kind, taps, frames);
  time_calls(state, (filter.hop() + frames - 1) / frames, [&] { filter.run(frames); });
}

const bool registered = [] {
  for (int taps : {512, 2048, 8192}) {
    add_group("long/" + std::to_string(taps), [taps] {
      // Where the arrays come to lie decides much, so several of each.
      std::vector<Side> sides;
      for (const char* copy : {" 1", " 2", " 3"}) {
        sides.push_back(whole_blocks(std::string("jurn") + copy, fft_filter({2, -2}, taps), 1));
        sides.back().units *= 2;
#ifdef PEER_ZITA
        sides.push_back(zita(std::string("zita") + copy, taps));
#endif
      }
      return sides;
    });
    add_group("share/" + std::to_string(taps), [taps] {
      std::vector<Side> sides;
      for (const Kind& kind : kFftKinds) {
        const auto filter = fft_filter(kind, taps);
        sides.push_back(whole_blocks(kind.name(), filter, 1));
        sides.push_back(transforms(kind.name() + " transforms", filter));
      }
      return sides;
    });
    for (const Kind& kind : kFftKinds)
      benchmark::RegisterBenchmark(
          ("dearest/" + std::to_string(taps) + "/" + kind.name()).c_str(),
          [kind, taps](benchmark::State& state) { dearest_call(state, kind, taps); })
          ->Iterations(501);
  }
  for (int taps = 4; taps <= 8192; taps *= 2)
    add_group("taps/" + std::to_string(taps), [taps] {
      auto time_domain = std::make_shared<Filter>(1, -1, taps, 480);
      return std::vector<Side>{{"time domain", 480.0, [time_domain] { time_domain->run(480); }},
                               whole_blocks("fft", fft_filter({1, -2}, taps), 480)};
    });
  add_clones("FFT kind -2, stereo, 2048 taps", [] {
    return whole_blocks("", fft_filter({2, -2}, 2048), 1);
  });
  return true;
}();

}  // namespace
