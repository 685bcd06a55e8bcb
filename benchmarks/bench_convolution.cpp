/* Convolution without latency as its user calls it: int16 in and out, blocks of one length. The
 * peers take and give floats. */
#include <algorithm>
#include <memory>
#include <numeric>

#include "Convolution_control.h"
#include "OKA_Filter/records/convolution.h"
#include "groups.h"
#include "plain_loops.h"

#ifdef PEER_ZITA
#include <zita-convolver.h>
#endif
#ifdef PEER_FFTW
#include <fftw3.h>
#endif

namespace {

constexpr int kPeriod = 32768;  // frames that hold every piece of work equally often

struct Shape {
  int taps, frames, routes;  // one: mono; two: stereo, each channel by itself; four: true stereo
  std::string name() const {
    return std::to_string(taps) +
           (routes == 4   ? " true stereo"
            : routes == 1 ? " mono"
                          : "") +
           "/" + std::to_string(frames);
  }
};

class Jurn {
 public:
  /** With a second response to fade to, if `fades`. */
  explicit Jurn(const Shape& s, bool fades = false)
      : shape_{s.routes == 1 ? 1 : 2, s.routes == 1 ? 1 : 2, s.frames, s.taps},
        taps_(noise<float>(s.taps, 1.0 / s.taps)),
        block_(noise<short>(2 * s.frames, 20000.0)) {
    const Convolution_shape& shape = shape_;
    size_t size = 0;
    for (int i = 0; i < (fades ? 2 : 1); ++i, taps_[0] += 1.0f) {
      const Convolution_route routes[] = {{0, 0, taps_.data(), s.taps},
                                          {1, 1, taps_.data(), s.taps},
                                          {0, 1, taps_.data(), s.taps},
                                          {1, 0, taps_.data(), s.taps}};
      size = MORVAX_ConvolutionResponseSize_API(&shape, routes, s.routes);
      responses_[i] = memory(size);
      MORVAX_ConvolutionResponseCalcu_API(response(i), size, &shape, routes, s.routes);
    }
    size = MORVAX_ConvolutionStreamSize_API(&shape);
    stream_ = memory(size);
    MORVAX_ConvolutionStreamCalcu_API(stream(), size, &shape);
    output_.resize(block_.size());
  }
  void run() {
    MORVAX_ConvolutionRun_API(stream(), response(playing_), block_.data(), output_.data());
  }
  void prepare() { MORVAX_ConvolutionPrepareFade_API(stream(), response(1 - playing_)); }
  void fade() {
    MORVAX_ConvolutionFade_API(stream(), response(playing_), response(1 - playing_), block_.data(),
                               output_.data());
    playing_ = 1 - playing_;
  }
  /** Calls of a step of the longest level. */
  int step() const {
    ConvolutionPlan plan;
    JURN_plan_convolution(&plan, &shape_);
    return plan.level[plan.levels - 1].calls;
  }

 private:
  using Memory = std::shared_ptr<void>;
  static Memory memory(size_t bytes) {
    return Memory(std::aligned_alloc(64, (bytes + 63) / 64 * 64), std::free);
  }
  ConvolutionResponse_ID* response(int i) {
    return static_cast<ConvolutionResponse_ID*>(responses_[i].get());
  }
  ConvolutionStream_ID* stream() { return static_cast<ConvolutionStream_ID*>(stream_.get()); }

  Convolution_shape shape_;
  std::vector<float> taps_;
  std::vector<short> block_, output_;
  Memory responses_[2], stream_;
  int playing_ = 0;
};

Side jurn(const Shape& shape) {
  auto filter = std::make_shared<Jurn>(shape);
  const int calls = kPeriod / shape.frames;
  return {"jurn", 2.0 * calls * shape.frames, [filter, calls] {
            for (int i = 0; i < calls; ++i) filter->run();
          }};
}

#ifdef PEER_ZITA
/** Uniform partitions of the block's length: its way without threads and latency. Or up to
 * `longest`, which threads of its own convolve; a call waits for them, so that its time has their
 * work. */
class Zita {
 public:
  explicit Zita(const Shape& s, int longest = 0)
      : channels_(s.routes == 1 ? 1 : 2),
        waits_(longest > 0),
        taps_(noise<float>(s.taps, 1.0 / s.taps)),
        input_(noise<float>(s.frames, 0.5)) {
    const unsigned frames = static_cast<unsigned>(s.frames);
    convolver_.set_options(Convproc::OPT_FFTW_MEASURE | Convproc::OPT_VECTOR_MODE);
    convolver_.configure(channels_, channels_, static_cast<unsigned>(s.taps), frames, frames,
                         waits_ ? static_cast<unsigned>(longest) : frames, 0.0f);
    for (unsigned in = 0; in < channels_; ++in)
      for (unsigned out = 0; out < channels_; ++out)
        if (in == out || s.routes == 4)
          convolver_.impdata_create(in, out, 1, taps_.data(), 0, s.taps);
    convolver_.start_process(0, 0);
  }
  ~Zita() {
    convolver_.stop_process();
    convolver_.cleanup();
  }
  void run() {
    for (unsigned c = 0; c < channels_; ++c)
      std::copy(input_.begin(), input_.end(), convolver_.inpdata(c));
    convolver_.process(waits_);
  }

 private:
  unsigned channels_;
  bool waits_;
  Convproc convolver_;
  std::vector<float> taps_, input_;
};
#endif

#ifdef PEER_FFTW
/** The usual uniform convolution: a transform of two blocks by FFTW, a delay line of spectra, and a
 * plain loop for the products. */
class Uniform {
 public:
  explicit Uniform(const Shape& s)
      : shape_(s),
        bins_(s.frames + 1),
        partitions_((s.taps + s.frames - 1) / s.frames),
        window_(2, std::vector<float>(2 * s.frames)),
        time_(2 * s.frames),
        taps_(noise<float>(2 * bins_ * partitions_ * s.routes, 1.0 / s.taps)),
        line_(2, std::vector<float>(2 * bins_ * partitions_)),
        sum_(2 * bins_) {
    float* const spectrum = sum_.data();
    forward_ = fftwf_plan_dft_r2c_1d(2 * s.frames, time_.data(),
                                     reinterpret_cast<fftwf_complex*>(spectrum), FFTW_MEASURE);
    backward_ = fftwf_plan_dft_c2r_1d(2 * s.frames, reinterpret_cast<fftwf_complex*>(spectrum),
                                      time_.data(), FFTW_MEASURE);
    for (auto& w : window_) w = noise<float>(2 * s.frames, 0.5);
  }
  ~Uniform() {
    fftwf_destroy_plan(forward_);
    fftwf_destroy_plan(backward_);
  }
  void run() {
    now_ = (now_ + partitions_ - 1) % partitions_;
    for (int c = 0; c < 2; ++c) {
      std::copy(window_[c].begin(), window_[c].end(), time_.begin());
      fftwf_execute(forward_);
      std::copy(sum_.begin(), sum_.end(), &line_[c][2 * bins_ * now_]);
    }
    for (int out = 0; out < 2; ++out) {
      std::fill(sum_.begin(), sum_.end(), 0.0f);
      for (int r = 0; r < shape_.routes / 2; ++r)
        for (int k = 0; k < partitions_; ++k)
          plain_products(&line_[out ^ r][2 * bins_ * ((now_ + k) % partitions_)],
                         &taps_[2 * bins_ * (partitions_ * (2 * r + out) + k)], bins_, sum_.data());
      fftwf_execute(backward_);
      benchmark::DoNotOptimize(time_.data());
    }
  }

 private:
  Shape shape_;
  int bins_, partitions_, now_ = 0;
  std::vector<std::vector<float>> window_;
  std::vector<float> time_, taps_;
  std::vector<std::vector<float>> line_;
  std::vector<float> sum_;
  fftwf_plan forward_, backward_;
};
#endif

template <class Peer>
Side side(const char* name, const Shape& shape) {
  auto filter = std::make_shared<Peer>(shape);
  return {name, 2.0 * shape.frames, [filter] { filter->run(); }};
}

/** Times every call of five steps: runs alone, a fade in one call at the end of the second, and one
 * at the end of the fifth that is prepared from within the third on. All rounds meet the same
 * moments, so a call's time is the least of its rounds. */
void fade_calls(benchmark::State& state, const Shape& shape) {
  Jurn filter(shape, true);
  const int step = filter.step();
  std::vector<double> times(5 * step, 1e12);
  while (state.KeepRunning())
    for (int i = 0; i < 5 * step; ++i) {
      const bool fades = i == 2 * step - 1 || i == 5 * step - 1;
      const double start = now_ns();
      if (fades)
        filter.fade();
      else
        filter.run();
      if (i > 2 * step && !fades) filter.prepare();
      times[i] = std::min(times[i], now_ns() - start);
    }
  const auto at = [&](int i) { return times.begin() + i; };
  state.counters["mean"] = std::accumulate(at(0), at(step), 0.0) / step;
  state.counters["dearest"] = *std::max_element(at(0), at(step));
  state.counters["one call"] = times[2 * step - 1];
  state.counters["prepared"] = *std::max_element(at(2 * step), times.end());
}

template <class Peer>
void add_dearest(const std::string& name, const Shape& shape) {
  benchmark::RegisterBenchmark(("room dearest/" + shape.name() + "/" + name).c_str(),
                               [shape](benchmark::State& state) {
                                 Peer filter(shape);
                                 time_calls(state, kPeriod / shape.frames, [&] { filter.run(); });
                               })
      ->Iterations(51);
}

const bool registered = [] {
  std::vector<Shape> shapes = {{8192, 64, 2}, {8192, 256, 2}, {96000, 256, 4}};
  for (int taps = 1024; taps <= 131072; taps *= 2)
    if (taps != 8192) shapes.push_back({taps, 256, 2});
  for (const Shape& shape : shapes)
    add_group("room/" + shape.name(), [shape] {
      std::vector<Side> sides{jurn(shape)};
#ifdef PEER_ZITA
      sides.push_back(side<Zita>("zita", shape));
#endif
#ifdef PEER_FFTW
      sides.push_back(side<Uniform>("uniform", shape));
#endif
      return sides;
    });
  add_group("room best/1048576 mono/256", [] {
    const Shape shape{1048576, 256, 1};
    const auto filter = std::make_shared<Jurn>(shape);
    const int calls = filter->step();
    std::vector<Side> sides{{"jurn", 1.0 * calls * shape.frames, [filter, calls] {
                               for (int i = 0; i < calls; ++i) filter->run();
                             }}};
#ifdef PEER_ZITA
    for (int longest : {1024, 2048, 4096, 8192}) {
      const auto peer = std::make_shared<Zita>(shape, longest);
      sides.push_back(
          {"zita " + std::to_string(longest), 1.0 * calls * shape.frames, [peer, calls] {
             for (int i = 0; i < calls; ++i) peer->run();
           }});
    }
#endif
    return sides;
  });
  for (const Shape& shape : {Shape{8192, 256, 2}, Shape{96000, 256, 4}}) {
    add_dearest<Jurn>("jurn", shape);
#ifdef PEER_ZITA
    add_dearest<Zita>("zita", shape);
#endif
  }
  for (const Shape& shape : {Shape{8192, 256, 2}, Shape{480000, 256, 2}})
    add_clones("room, " + shape.name(), [shape] { return jurn(shape); });
  for (const Shape& shape :
       {Shape{8192, 256, 2}, Shape{48000, 256, 2}, Shape{96000, 256, 4}, Shape{96000, 64, 2},
        Shape{480000, 64, 2}, Shape{480000, 256, 2}, Shape{262144, 256, 2}, Shape{524288, 256, 2},
        Shape{1048576, 256, 1}, Shape{300000, 64, 1}})
    benchmark::RegisterBenchmark(("room fades/" + shape.name()).c_str(), [shape](
                                                                             benchmark::State& s) {
      fade_calls(s, shape);
    })->Iterations(101);
  return true;
}();

}  // namespace
