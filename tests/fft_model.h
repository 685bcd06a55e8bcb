/* A model of the FFT kinds without a transform, and a long filter that is compared with it. */
#ifndef JURN_TESTS_FFT_MODEL_H
#define JURN_TESTS_FFT_MODEL_H

#include <gtest/gtest.h>

#include <deque>
#include <memory>

#include "reference.h"
#include "support.h"

/** Overlap-save block by block, as the record's configuration asks for it, without a transform. */
class Model {
 public:
  /** Follows a set-up that the library has just made. */
  void set_up(const Filterlongfir_ID& f) {
    chanel_ = f.chanel;
    type_ = f.filtertype;
    hM_ = std::max(f.blen, f.bRlen);
    const int previous = N_;
    for (N_ = 2; N_ < 2 * hM_;) N_ *= 2;
    in_channels_ = chanel_ == 2 && type_ != -4 ? 2 : 1;
    out_channels_ = chanel_ == 1 && type_ == -2 ? 1 : 2;
    if (primed_ != N_ * in_channels_) {
      primed_ = N_ * in_channels_;
      for (auto& channel : stream_) channel.clear();
      for (int i = 0; i < primed_; ++i) stream_[i % in_channels_].push_back(f.mBufin.membuf[1 + i]);
      start_ = 0;
      out_.clear();
    }
    if (previous == N_) {
      fading_ = true;
      for (int c = 0; c < 2; ++c) old_[c] = taps_[c];
    }
    taps_[0].assign(f.b, f.b + hM_);
    taps_[1].assign(f.bR, f.bR + hM_);
  }

  /** One call; returns the exact values that are handed out. */
  std::vector<double> run(const short* input, int inLen) {
    for (int i = 0; i < inLen; ++i)
      if (type_ != -4 || i % 2 == 0)
        stream_[type_ == -4 ? 0 : i % in_channels_].push_back(input[i]);
    for (; queued() >= N_; start_ += hop()) filter_block();
    if (start_ > 100000) {  // hours of audio need no hours of memory
      for (auto& channel : stream_)
        if (!channel.empty()) channel.erase(channel.begin(), channel.begin() + start_);
      start_ = 0;
    }
    const int wanted = type_ == -5 ? 2 * inLen : inLen;
    std::vector<double> result(out_.begin(), out_.begin() + wanted);
    out_.erase(out_.begin(), out_.begin() + wanted);
    return result;
  }

  /** The record's queues, fade state and queued input are the model's. */
  void check(const Filterlongfir_ID& f) const {
    ASSERT_EQ(MORVAX_queuehave_API(&f.mBufin), queued() * in_channels_);
    ASSERT_EQ(MORVAX_queuehave_API(&f.mBufout), static_cast<int>(out_.size()));
    ASSERT_EQ(queued() + static_cast<int>(out_.size()) / out_channels_, N_) << "the queues drift";
    ASSERT_EQ(f.cmemcall, fading_ ? 1 : 0);
    for (int i = 0; i < queued(); ++i)
      for (int c = 0; c < in_channels_; ++c)
        ASSERT_EQ(f.mBufin.membuf[(f.mBufin.front + 1 + i * in_channels_ + c) % 105600],
                  stream_[c][start_ + i]);
  }

  int hop() const { return N_ - hM_ + 1; }
  int out_channels() const { return out_channels_; }

 private:
  int queued() const { return static_cast<int>(stream_[0].size() - start_); }

  void filter_block() {
    const bool fades = type_ == -5 || (type_ == -2 && chanel_ == 2);
    for (int i = hM_ - 1; i < N_; ++i)
      for (int c = 0; c < out_channels_; ++c) {
        const int source = type_ == -7 ? 1 - c : in_channels_ == 2 ? c : 0;
        const short* newest = &stream_[source][start_ + i];
        double y = ref::convolve(taps_[c].data(), hM_, newest);
        if (fades && fading_) {
          // The previous filter may be the longer one: its wrap-around belongs to the fade.
          const int old_count = static_cast<int>(old_[c].size()),
                    linear = std::min(old_count, i + 1);
          const short* end = &stream_[source][start_ + N_ - 1];
          const double old = ref::convolve(old_[c].data(), linear, newest) +
                             ref::convolve(old_[c].data() + linear, old_count - linear, end);
          const double step = 1.0 / (N_ - 1);
          y = step * i * y + (1.0 - step * i) * old;
        }
        out_.push_back(y);
      }
    if (fades) fading_ = false;
  }

  int chanel_ = 0, type_ = 0, hM_ = 0, N_ = 0, in_channels_ = 0, out_channels_ = 0, primed_ = 0;
  bool fading_ = false;
  std::vector<float> taps_[2], old_[2];
  std::vector<short> stream_[2];
  size_t start_ = 0;
  std::deque<double> out_;
};

/** The truncated exact value; one off where it lies within 0.05 of a whole number. */
inline bool is_converted(short sample, double exact) {
  const double limited = std::max(-32768.0, std::min(32767.0, exact));
  const int off = std::abs(sample - static_cast<int>(limited));
  return off == 0 || (off == 1 && std::fabs(exact - std::round(exact)) < 0.05);
}

/** A decaying response with an energy that makes loud noise clip now and then. */
inline void response(Random& random, float* taps, int count, int room) {
  const double gain = random.one_in(3) ? 1.0 : 0.4, decay = std::exp(-3.0 / count);
  double level = gain * std::sqrt(3.0 * (1.0 - decay * decay) / (1.0 - std::exp(-6.0)));
  for (int i = 0; i < count; ++i, level *= decay) taps[i] = static_cast<float>(random.real(level));
  std::fill(taps + count, taps + room, 0.0f);
}

struct Kind {
  int chanel, type;
};
const Kind kKinds[] = {{2, -2}, {2, -7}, {2, -4}, {1, -5}, {1, -2}};

/** A long filter and its model. */
class Pair {
 public:
  Pair(Kind kind, unsigned seed) : random(seed), filter(std::make_unique<Filterlongfir_ID>()) {
    filter->chanel = kind.chanel;
    filter->filtertype = kind.type;
    filter->blen = filter->bRlen = 1;
    MORVAX_FilterlongfirReset_API(filter.get());
  }
  void set_up(int blen, int bRlen) {
    filter->blen = blen;
    filter->bRlen = bRlen;
    response(random, filter->b, blen, std::max(blen, bRlen));
    response(random, filter->bR, bRlen, std::max(blen, bRlen));
    MORVAX_FilterlongfirCalcu_API_forFFT(filter.get());
    model.set_up(*filter);
  }
  /** One call over frames, compared sample by sample; appends the output to all. */
  void run(int frames) {
    const int inLen = frames * filter->chanel;
    const int outLen = filter->filtertype == -5 ? 2 * inLen : inLen;
    std::vector<double> exact;
    std::vector<short> output(outLen);
    const auto call = [&](bool library, const short* in, short* out) {
      if (library) {
        exact = model.run(in, inLen);
        MORVAX_FilterlongfirRun_API(filter.get(), in, inLen, out);
        output.assign(out, out + outLen);
      }
      std::copy(output.begin(), output.end(), out);
    };
    ASSERT_TRUE(runs_alike(random, inLen, outLen, call)) << "the input was written";
    for (int i = 0; i < outLen; ++i)
      ASSERT_TRUE(is_converted(output[i], exact[i]))
          << "kind " << filter->filtertype << " blen " << filter->blen << " bRlen " << filter->bRlen
          << " sample " << i << ": " << output[i] << " for " << exact[i];
    all.insert(all.end(), output.begin(), output.end());
    ASSERT_NO_FATAL_FAILURE(model.check(*filter));
  }

  Random random;
  std::unique_ptr<Filterlongfir_ID> filter;
  Model model;
  std::vector<short> all;
};

#endif
