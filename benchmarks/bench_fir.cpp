/* The time-domain kernels JURNfir (int16, float sums) and MORVAX_Qfirf (float, double sums). */
#include <memory>

#include "Filter_control.h"
#include "OKA_Filter.h"
#include "groups.h"
#include "plain_loops.h"

#ifdef PEER_LIQUID
#include <liquid/liquid.h>
#include <complex>
#endif

namespace {

void fir(short* output, const short* input, int frames, short* history, const float* b, int count) {
  JURNfir(output, input, frames, history, b, static_cast<short>(count));
}
void fir(float* output, const float* input, int frames, float* history, const double* b,
         int count) {
  MORVAX_Qfirf(output, input, frames, history, b, static_cast<short>(count));
}

template <class Sample, class Sum>
struct Work {
  Work(int taps, int frames)
      : b(noise<Sum>(taps, 1.0 / taps)),
        input(noise<Sample>(frames, 20000.0)),
        output(frames),
        history(noise<Sample>(taps - 1 + frames, 20000.0)) {}
  std::vector<Sum> b;
  std::vector<Sample> input, output, history;
};

template <class Sample, class Sum>
Side jurn(const std::string& name, int taps, int frames) {
  auto work = std::make_shared<Work<Sample, Sum>>(taps, frames);
  return {name, static_cast<double>(frames), [work, taps, frames] {
            fir(work->output.data(), work->input.data(), frames, work->history.data(),
                work->b.data(), taps);
          }};
}

template <class Sample, class Sum>
Side plain(int taps, int frames) {
  auto work = std::make_shared<Work<Sample, Sum>>(taps, frames);
  return {"plain", static_cast<double>(frames), [work, taps, frames] {
            plain_fir(work->output.data(), work->history.data(), frames, work->b.data(), taps);
          }};
}

#ifdef PEER_LIQUID
Side liquid(int taps, int frames) {
  auto work = std::make_shared<Work<float, float>>(taps, frames);
  std::shared_ptr<firfilt_rrrf_s> filter(firfilt_rrrf_create(work->b.data(), taps),
                                         firfilt_rrrf_destroy);
  return {"liquid", static_cast<double>(frames), [work, filter, frames] {
            firfilt_rrrf_execute_block(filter.get(), work->input.data(), frames,
                                       work->output.data());
          }};
}
#endif

template <class Sample, class Sum>
void add_kernel(const std::string& name) {
  for (int taps : {32, 128, 512, 2048, 32767})
    add_group(name + "/" + std::to_string(taps), [taps] {
      std::vector<Side> sides = {jurn<Sample, Sum>("block 480", taps, 480),
                                 jurn<Sample, Sum>("block 64", taps, 64),
                                 jurn<Sample, Sum>("512 taps", 512, 480),
                                 plain<Sample, Sum>(taps, 480), peak<Sum>("peak")};
#ifdef PEER_LIQUID
      if (sizeof(Sum) == sizeof(float) && taps <= 2048) sides.push_back(liquid(taps, 480));
#endif
      return sides;
    });
}

const bool registered = [] {
  add_kernel<short, float>("fir");
  add_kernel<float, double>("fir double");
  for (int taps : {32, 512}) {
    const std::string with = ", taps: " + std::to_string(taps);
    add_clones("JURNfir" + with, [taps] { return jurn<short, float>("", taps, 480); });
    add_clones("MORVAX_Qfirf" + with, [taps] { return jurn<float, double>("", taps, 480); });
  }
  return true;
}();

}  // namespace
