/* The chain of fast convolution: transform forward, multiply by a spectrum, transform back. */
#include <memory>

#include "DFTs.h"
#include "groups.h"
#include "plain_loops.h"

#ifdef PEER_FFTW
#include <fftw3.h>
#endif

namespace {

/** Taps that only delay: a chain may then be repeated on its own output for ever. */
constexpr int kDelay = 3;

Side jurn_chain(int N) {
  struct Work {
    RealFFT_ID fft;
    std::vector<float> x, spectrum, h;
  };
  auto work = std::make_shared<Work>();
  work->x = noise<float>(N, 10000.0);
  work->spectrum.resize(N);
  work->h.assign(N, 0.0f);
  work->h[kDelay] = 1.0f;
  MORVAX_KLOV_RealFFT_Init(&work->fft, static_cast<short>(N));
  MORVAX_KLOV_RealFFT_Run2(&work->fft, work->h.data(), static_cast<short>(N));
  return {"jurn", 1.0, [work, N] {
            const short length = static_cast<short>(N);
            MORVAX_KLOV_RealFFT_Run2(&work->fft, work->x.data(), length);
            MORVAX_rfftmut2(work->spectrum.data(), work->h.data(), work->x.data(), N);
            MORVAX_KLOV_InverseRealFFT_Run2(&work->fft, work->spectrum.data(), length);
            work->x.swap(work->spectrum);
          }};
}

#ifdef PEER_FFTW
/** Out of place, which is the faster way for it. */
Side fftw_chain(int N) {
  struct Work {
    float* x;
    fftwf_complex *bins, *h;
    fftwf_plan forward, inverse;
    ~Work() {
      fftwf_destroy_plan(forward);
      fftwf_destroy_plan(inverse);
      fftwf_free(x);
      fftwf_free(bins);
      fftwf_free(h);
    }
  };
  auto work = std::make_shared<Work>();
  work->x = fftwf_alloc_real(N);
  work->bins = fftwf_alloc_complex(N / 2 + 1);
  work->h = fftwf_alloc_complex(N / 2 + 1);
  work->forward = fftwf_plan_dft_r2c_1d(N, work->x, work->bins, FFTW_PATIENT);
  work->inverse = fftwf_plan_dft_c2r_1d(N, work->bins, work->x, FFTW_PATIENT);
  std::fill(work->x, work->x + N, 0.0f);
  work->x[kDelay] = 1.0f;
  fftwf_execute_dft_r2c(work->forward, work->x, work->h);
  const std::vector<float> x = noise<float>(N, 10000.0);
  std::copy(x.begin(), x.end(), work->x);
  return {"fftw", 1.0, [work, N] {
            fftwf_execute(work->forward);
            plain_product(&work->bins[0][0], &work->h[0][0], N / 2 + 1,
                          1.0f / static_cast<float>(N));
            fftwf_execute(work->inverse);
          }};
}
#endif

const bool registered = [] {
  for (int N = 64; N <= JURN_FFT_MAX; N *= 2)
    add_group("transform/" + std::to_string(N), [N] {
      std::vector<Side> sides = {jurn_chain(N)};
#ifdef PEER_FFTW
      sides.push_back(fftw_chain(N));
#endif
      return sides;
    });
  for (int N = 64; N <= JURN_FFT_MAX; N *= 2)
    add_clones("transform chain, length: " + std::to_string(N), [N] { return jurn_chain(N); });
  return true;
}();

}  // namespace
