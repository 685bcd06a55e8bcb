#include "filters.h"

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

#include "Convolution_control.h"
#include "Filter_control.h"

namespace web {
namespace {

/** Over the objects that take interleaved int16 blocks. */
class Int16Filter : public Filter {
 public:
  Int16Filter(Kind kind, int channels, int block, const double* b, int b_count, const double* a,
              int a_count)
      : channels_(channels),
        block_(block),
        average_(kind == kAverage),
        filters_(static_cast<std::size_t>(average_ ? channels : 1)),
        samples_(static_cast<std::size_t>(block * channels)) {
    for (Filter_ID& filter : filters_) {
      filter.chanel = average_ ? 1 : channels;
      filter.filtertype = kind == kFir ? -1 : kind == kIir ? 0 : kind == kSections ? 1 : 2;
      filter.blen = average_ ? static_cast<int>(b[0]) : b_count;
      filter.alen = a_count;
      filter.n = 2;
      filter.ns = b_count / 3;
      for (int i = 0; i < b_count && !average_; ++i) filter.b[i] = static_cast<float>(b[i]);
      for (int i = 0; i < a_count; ++i) filter.a[i] = static_cast<float>(a[i]);
      MORVAX_FilterReset_API(&filter);
    }
    memory_ = kind == kFir || average_ ? filters_[0].blen : 1024;
  }

  void run_floats(const float* const* in, float* const* out) override {
    for (int c = 0; c < channels_; ++c)
      for (int i = 0; i < block_; ++i)
        samples_[static_cast<std::size_t>(i * channels_ + c)] = to_int16(in[c][i]);
    run_samples(samples_.data(), samples_.data());
    for (int c = 0; c < channels_; ++c)
      for (int i = 0; i < block_; ++i)
        out[c][i] = samples_[static_cast<std::size_t>(i * channels_ + c)];
  }

  void run_samples(const short* in, short* out) override {
    if (!average_) {
      MORVAX_FilterRun_API(&filters_[0], in, block_ * channels_, out);
      return;
    }
    // The moving average is a filter of one channel.
    channel_.resize(static_cast<std::size_t>(block_));
    for (int c = 0; c < channels_; ++c) {
      for (int i = 0; i < block_; ++i)
        channel_[static_cast<std::size_t>(i)] = in[i * channels_ + c];
      MORVAX_FilterRun_API(&filters_[static_cast<std::size_t>(c)], channel_.data(), block_,
                           channel_.data());
      for (int i = 0; i < block_; ++i)
        out[i * channels_ + c] = channel_[static_cast<std::size_t>(i)];
    }
  }

  int memory() const override { return memory_; }

 private:
  int channels_, block_, memory_;
  bool average_;
  std::vector<Filter_ID> filters_;
  std::vector<short> samples_, channel_;
};

/** What runs on floats; int16 samples are rounded on the way out. */
class FloatFilter : public Filter {
 public:
  FloatFilter(int inputs, int outputs, int block)
      : inputs_(inputs), outputs_(outputs), block_(block) {
    for (std::vector<float>& channel : work_) channel.resize(static_cast<std::size_t>(block));
  }

  void run_samples(const short* in, short* out) override {
    float* const channels[] = {work_[0].data(), work_[1].data()};
    for (int c = 0; c < inputs_; ++c)
      for (int i = 0; i < block_; ++i) channels[c][i] = in[i * inputs_ + c];
    run_floats(channels, channels);
    for (int c = 0; c < outputs_; ++c)
      for (int i = 0; i < block_; ++i) out[i * outputs_ + c] = to_int16(channels[c][i]);
  }

 protected:
  const int inputs_, outputs_, block_;

 private:
  std::vector<float> work_[kMaxChannels];
};

/** The float object's kernels on histories of their own lengths, one after another for sections. */
class DoubleFilter : public FloatFilter {
 public:
  DoubleFilter(Kind kind, int channels, int block, const double* b, int b_count, const double* a,
               int a_count)
      : FloatFilter(channels, channels, block),
        b_(b, b + b_count),
        a_(a, a + a_count),
        b_length_(kind == kSections ? 3 : b_count),
        a_length_(kind == kSections ? 3 : a_count),
        stages_(b_count / b_length_),
        inputs_history_(static_cast<std::size_t>(channels * stages_ * (b_length_ - 1 + block))),
        outputs_history_(
            static_cast<std::size_t>(a_count ? channels * stages_ * (a_length_ - 1 + block) : 0)) {}

  void run_floats(const float* const* in, float* const* out) override {
    float* input = inputs_history_.data();
    double* output = outputs_history_.data();
    for (int c = 0; c < inputs_; ++c) {
      const float* from = in[c];
      for (int stage = 0; stage < stages_; ++stage) {
        const double* b = b_.data() + stage * b_length_;
        if (a_.empty()) {
          MORVAX_Qfirf(out[c], from, block_, input, b, static_cast<short>(b_length_));
        } else {
          MORVAX_Qiirf(out[c], from, block_, output, input, b, static_cast<short>(b_length_),
                       a_.data() + stage * a_length_, static_cast<short>(a_length_));
          output += a_length_ - 1 + block_;
        }
        input += b_length_ - 1 + block_;
        from = out[c];
      }
    }
  }

  int memory() const override { return a_.empty() ? b_length_ : 1024; }

 private:
  std::vector<double> b_, a_;
  int b_length_, a_length_, stages_;
  std::vector<float> inputs_history_;
  std::vector<double> outputs_history_;
};

struct Free {
  void operator()(void* memory) const { std::free(memory); }
};
using Memory = std::unique_ptr<void, Free>;

class Convolution : public FloatFilter {
 public:
  Convolution(const Convolution_shape& shape, Memory response, Memory stream)
      : FloatFilter(shape.inputs, shape.outputs, shape.block),
        shape_(shape),
        response_(std::move(response)),
        stream_(std::move(stream)) {}

  void run_floats(const float* const* in, float* const* out) override {
    auto* stream = static_cast<ConvolutionStream_ID*>(stream_.get());
    const auto* response = static_cast<const ConvolutionResponse_ID*>(response_.get());
    if (previous_) {
      MORVAX_ConvolutionFade_API_planar(
          stream, static_cast<const ConvolutionResponse_ID*>(previous_.get()), response, in, out);
      previous_.reset();
    } else {
      MORVAX_ConvolutionRun_API_planar(stream, response, in, out);
    }
  }

  int memory() const override { return shape_.taps; }

  /** The tail of a room goes on under the next one: one stream, two responses. */
  bool take_over(Filter* other) override {
    auto* old = dynamic_cast<Convolution*>(other);
    if (!old || std::memcmp(&old->shape_, &shape_, sizeof shape_) != 0) return false;
    stream_ = std::move(old->stream_);
    previous_ = std::move(old->previous_ ? old->previous_ : old->response_);
    return true;
  }

 private:
  Convolution_shape shape_;
  Memory response_, stream_, previous_;
};

}  // namespace

short to_int16(float x) {
  // Written so that a NaN becomes silence.
  if (x >= 32767.0f) return 32767;
  if (x <= -32768.0f) return -32768;
  return x == x ? static_cast<short>(std::rint(x)) : short{0};
}

int most_coefficients(Kind kind, bool int16) {
  if (kind == kSections) return JURN_COEFFICIENTS / 3 * 3;
  if (kind == kAverage) return JURN_HISTORY;
  return int16 ? JURN_COEFFICIENTS : 32767;
}

Filter* make_filter(Kind kind, bool int16, int channels, int block, const double* b, int b_count,
                    const double* a, int a_count) {
  if (int16 || kind == kAverage)
    return new Int16Filter(kind, channels, block, b, b_count, a, a_count);
  return new DoubleFilter(kind, channels, block, b, b_count, a, a_count);
}

Filter* make_convolution(int inputs, int outputs, int block, int taps, void* response) {
  Memory owned(response);
  const Convolution_shape shape = {inputs, outputs, block, taps};
  const std::size_t size = MORVAX_ConvolutionStreamSize_API(&shape);
  Memory stream(std::malloc(size));
  if (!stream) return nullptr;
  auto* set_up = static_cast<ConvolutionStream_ID*>(stream.get());
  if (MORVAX_ConvolutionStreamCalcu_API(set_up, size, &shape) != 0) return nullptr;
  return new Convolution(shape, std::move(owned), std::move(stream));
}

}  // namespace web
