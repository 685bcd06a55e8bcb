/* Silence after a loud signal costs no more than the signal: no kind runs on denormal numbers while
 * it decays. Both are timed in turn and the medians compared, generously, since the machine may be
 * busy; a denormal operation costs a hundred ordinary ones. The sections' limit is close, so their
 * minima are compared. */
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <functional>
#include <memory>
#include <vector>

#include "Filter_control.h"
#include "Sections_control.h"

namespace {

using Clock = std::chrono::steady_clock;

double median(std::vector<double> times) {
  std::nth_element(times.begin(), times.begin() + times.size() / 2, times.end());
  return times[times.size() / 2];
}

std::vector<short> loud_block() {
  std::vector<short> block(480);
  for (size_t i = 0; i < block.size(); ++i) block[i] = i * 7919 % 3 ? 32767 : -32768;
  return block;
}
const std::vector<short> silent(480), loud = loud_block();

/** Times stretches of blocks, loud and silent in turn; `run` filters one block. */
bool check(const char* name, const std::function<void(const short*)>& run) {
  double ratio = 0.0;
  // Where others hold the CPU a run may be off; what is really slow is slow in each.
  for (int attempt = 0; attempt < 3 && (attempt == 0 || ratio >= 2.0); ++attempt) {
    std::vector<double> costs[2];
    for (int round = 0; round < 31; ++round)
      for (int quiet = 0; quiet < 2; ++quiet) {
        const Clock::time_point start = Clock::now();
        for (int block = 0; block < 12; ++block) run(quiet ? silent.data() : loud.data());
        costs[quiet].push_back(std::chrono::duration<double>(Clock::now() - start).count());
      }
    ratio = median(costs[1]) / median(costs[0]);
  }
  std::printf("%-14s silence costs %.2f of the signal\n", name, ratio);
  return ratio < 2.0;
}

/** Sections whose poles are so near 1 that denormal states would stay for ever: one stream gets the
 * signal, another one silence since long after it. For a figure to the percent the shortest
 * stretches are compared, more of them while others hold the CPU. */
bool check_sections(int sections, int channels) {
  std::vector<double> sos;
  for (int k = 0; k < sections; ++k) sos.insert(sos.end(), {0.5, 0.0, 0.0, 1.0, -1.98, 0.990025});
  const Sections_shape shape = {channels, sections};
  const size_t filter_size = MORVAX_SectionsFilterSize_API(sections, 1);
  const size_t stream_size = MORVAX_SectionsStreamSize_API(&shape);
  std::vector<double> filter_memory(filter_size / sizeof(double));
  std::vector<double> memories[2];  // of the loud stream and the silent one
  auto* const filter = reinterpret_cast<SectionsFilter_ID*>(filter_memory.data());
  bool holds = MORVAX_SectionsFilterCalcu_API(filter, filter_size, sos.data(), sections, 1) == 0;
  for (std::vector<double>& memory : memories) {
    memory.resize(stream_size / sizeof(double));
    holds &= MORVAX_SectionsStreamCalcu_API(reinterpret_cast<SectionsStream_ID*>(memory.data()),
                                            stream_size, &shape) == 0;
  }
  if (!holds) return false;
  std::vector<float> block(960);
  const auto run = [&](int quiet, const short* in) {
    for (size_t i = 0; i < block.size(); ++i) block[i] = in[i % 480];
    MORVAX_SectionsRun_API_float(reinterpret_cast<SectionsStream_ID*>(memories[quiet].data()),
                                 filter, block.data(), 960 / shape.channels, block.data());
  };
  for (int i = 0; i < 800; ++i) run(1, i < 10 ? loud.data() : silent.data());

  double shortest[2] = {1.0, 1.0}, ratio = 0.0;
  for (int round = 0; round < 2000 && (round < 200 || ratio > 1.1); ++round) {
    for (int quiet = 0; quiet < 2; ++quiet) {
      const Clock::time_point start = Clock::now();
      for (int i = 0; i < 4; ++i) run(quiet, quiet ? silent.data() : loud.data());
      const double cost = std::chrono::duration<double>(Clock::now() - start).count();
      shortest[quiet] = std::min(shortest[quiet], cost);
    }
    ratio = shortest[1] / shortest[0];
  }
  std::printf("sections, %d of %d channels: silence costs %.2f of the signal\n", sections, channels,
              ratio);
  return ratio <= 1.1;
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
  for (int sections : {1, 4})
    for (int channels : {1, 2}) holds &= check_sections(sections, channels);
  return !holds;
}
