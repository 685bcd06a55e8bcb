/* Silence after a loud signal costs no more than the signal: no kind runs on denormal numbers while
 * it decays. Both are timed in turn and the medians compared, generously, since the machine may be
 * busy; a denormal operation costs a hundred ordinary ones. */
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <functional>
#include <memory>
#include <vector>

#include "Filter_control.h"

namespace {

using Clock = std::chrono::steady_clock;

double median(std::vector<double> times) {
  std::nth_element(times.begin(), times.begin() + times.size() / 2, times.end());
  return times[times.size() / 2];
}

/** Times stretches of blocks, loud and silent in turn; `run` filters one block. */
bool check(const char* name, const std::function<void(const short*)>& run) {
  std::vector<short> loud(480), silent(480);
  for (size_t i = 0; i < loud.size(); ++i) loud[i] = i * 7919 % 3 ? 32767 : -32768;
  std::vector<double> costs[2];
  for (int round = 0; round < 31; ++round)
    for (int quiet = 0; quiet < 2; ++quiet) {
      const Clock::time_point start = Clock::now();
      for (int block = 0; block < 12; ++block) run(quiet ? silent.data() : loud.data());
      costs[quiet].push_back(std::chrono::duration<double>(Clock::now() - start).count());
    }
  const double ratio = median(costs[1]) / median(costs[0]);
  std::printf("%-14s silence costs %.2f of the signal\n", name, ratio);
  return ratio < 2.0;
}

}  // namespace

int main() {
  bool holds = true;
  std::vector<short> output(960);
  for (int type = -1; type <= 1; ++type) {
    auto filter = std::make_unique<Filter_ID>();
    filter->chanel = 1;
    filter->filtertype = type;
    filter->blen = filter->alen = 3;
    filter->n = 2;
    filter->ns = 8;
    for (int k = 0; k < 8; ++k) {  // decays within a few hundred samples
      filter->b[3 * k] = 0.5f;
      filter->a[3 * k + 1] = -0.9f;
      filter->a[3 * k + 2] = 0.2f;
    }
    const char* const names[] = {"int16 FIR", "int16 IIR", "int16 cascade"};
    holds &= check(names[type + 1], [&](const short* in) {
      MORVAX_FilterRun_API(filter.get(), in, 480, output.data());
    });
  }
  for (int type = -1; type <= 0; ++type) {
    auto filter = std::make_unique<Filterf_ID>();
    filter->filtertype = type;
    filter->blen = filter->alen = 3;
    filter->b[0] = 0.5;
    filter->a[1] = -0.9;
    filter->a[2] = 0.2;
    std::vector<float> result(480);
    holds &= check(type ? "float FIR" : "float IIR", [&](const short* in) {
      MORVAX_FilterfRun_API_shortin(filter.get(), in, 480, result.data());
    });
  }
  for (int type : {-2, -5}) {
    auto filter = std::make_unique<Filterlongfir_ID>();
    filter->chanel = 1;
    filter->filtertype = type;
    filter->blen = filter->bRlen = 400;
    for (int i = 0; i < 400; ++i) filter->b[i] = filter->bR[i] = 0.001f;
    MORVAX_FilterlongfirReset_API(filter.get());
    MORVAX_FilterlongfirCalcu_API_forFFT(filter.get());
    holds &= check(type == -2 ? "long FFT" : "long FFT wide", [&](const short* in) {
      MORVAX_FilterlongfirRun_API(filter.get(), in, 480, output.data());
    });
  }
  return !holds;
}
