// What the engine and the files do on several threads at once, to be run under the thread
// sanitizer: filters that are prepared and offered while a stream runs, one stream of them for each
// of several threads, and work that is reported in order.
#include <atomic>
#include <cmath>
#include <cstdio>
#include <memory>
#include <stdexcept>
#include <thread>
#include <vector>

#include "design/prepare_once.h"
#include "recordings/in_order.h"
#include "streams/block_stream.h"

namespace {

using namespace jurn;

constexpr int kBlock = 64, kRate = 48000;

StreamFormat format_of_streams() {
  StreamFormat format;
  format.rate = kRate;
  format.inputs = format.outputs = 1;
  format.block = kBlock;
  format.is_float = true;
  return format;
}

/** A filter of gain 1 at 0 Hz, of every kind in turn; the same designs come again and again. */
std::unique_ptr<OfferedFilter> filter_of(int number) {
  const Format format = engine_format(format_of_streams(), kBlock, 1 << 14);
  PrepareOptions options;
  options.rate = kRate;
  options.result = SampleFormat::kFloat;
  const double pole = 0.5 + 0.01 * (number / 5 % 40);
  const std::size_t taps = number % 2 ? 20 : 700;
  std::unique_ptr<Voice> voice;
  switch (number % 5) {
    case 0:
      options.precision = Precision::kInt16;
      [[fallthrough]];
    case 1:
      voice = make_voice(
          *prepare_once({FilterDesign::kSections, {1 - pole, 0, 0}, {1, -pole, 0}}, options),
          format);
      break;
    case 2:
      voice =
          make_voice(*prepare_once({FilterDesign::kFir, {pole, 1 - pole}, {}}, options), format);
      break;
    case 3:
      voice = make_mean(static_cast<int>(taps), Precision::kDouble, format);
      break;
    default:
      voice = make_convolution({1, 1, {{0, 0, std::vector<double>(taps, 1.0 / double(taps))}}},
                               1000, Precision::kDouble, format);
  }
  auto filter = std::make_unique<OfferedFilter>(std::move(voice));
  filter->made_for = format_of_streams();
  return filter;
}

/** Runs a steady signal while its filters change `changes` times; whether it ever wavers. */
bool is_steady(int changes) {
  HandOver<OfferedFilter> offers;
  std::atomic<int> offered{0};
  std::thread preparing([&] {
    for (int i = 1; i <= changes; ++i, ++offered) offers.offer(filter_of(i));
  });
  std::thread freeing([&] {
    while (offered < changes) {
      offers.free_returned();
      std::this_thread::yield();
    }
  });
  BlockStream stream(&offers, filter_of(0));
  double worst = 0.0;
  const std::vector<float> in(48, 0.5F);  // not the streams' block
  std::vector<float> out(in.size());
  for (int call = 0, after = 0; after < 200; ++call) {
    const float* const from = in.data();
    float* const to = out.data();
    stream.process(&from, static_cast<int>(in.size()), &to);
    for (std::size_t i = 0; call > 100 && i < out.size(); ++i)
      worst = std::fmax(worst, std::fabs(out[i] - 0.5F));
    if (offered == changes) ++after;
  }
  preparing.join();
  freeing.join();
  return worst < 1e-3;
}

long faults_in_order() {
  long faults = 0;
  std::vector<int> results(300), begun;
  std::size_t reported = 0;
  const auto work = [&](std::size_t i, Lock* lock) {
    begun.push_back(static_cast<int>(i));
    lock->unlock();
    results[i] = static_cast<int>(i * i);
  };
  run_in_order(results.size(), 4, work, [&](std::size_t i) {
    faults += i != reported++ || results[i] != static_cast<int>(i * i);
  });
  for (std::size_t i = 0; i < begun.size(); ++i) faults += begun[i] != static_cast<int>(i);
  faults += begun.size() != results.size();
  try {
    run_in_order(results.size(), 3, work, [](std::size_t i) {
      if (i == 5) throw std::runtime_error("no more");
    });
    ++faults;
  } catch (const std::runtime_error&) {
  }
  return faults;
}

}  // namespace

int main() {
  std::atomic<int> wavering{0};
  std::vector<std::thread> threads;
  for (int i = 0; i < 3; ++i) threads.emplace_back([&] { wavering += is_steady(100) ? 0 : 1; });
  for (std::thread& thread : threads) thread.join();
  const long faults = faults_in_order();
  std::printf("%d streams waver, %ld faults in order\n", wavering.load(), faults);
  return wavering != 0 || faults != 0;
}
