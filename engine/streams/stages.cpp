#include "streams/stages.h"

#include <algorithm>
#include <cmath>

#include "Filter_control.h"

namespace jurn {
namespace {

static_assert(kMaxAverage == JURN_HISTORY && kMaxBlock == JURN_BLOCK);

int frames_per_call(const FilterDesign& design, int block) {
  if (design.kind == FilterDesign::kIir) return kIirBlock;
  if (design.kind == FilterDesign::kSections) return block;
  return std::min(block, JURN_HISTORY + 1 - static_cast<int>(design.b.size()));
}

/** One channel of an interleaved block, and back; or as many from `channel` on as `width` says. */
template <typename Sample>
void split(const Sample* in, std::size_t channels, std::size_t channel, std::vector<Sample>* out,
           std::size_t width = 1) {
  for (std::size_t i = 0; i < out->size() / width; ++i)
    for (std::size_t c = 0; c < width; ++c) (*out)[i * width + c] = in[i * channels + channel + c];
}

template <typename Sample>
void join(const std::vector<Sample>& in, std::size_t channels, std::size_t channel, Sample* out,
          std::size_t width = 1) {
  for (std::size_t i = 0; i < in.size() / width; ++i)
    for (std::size_t c = 0; c < width; ++c) out[i * channels + channel + c] = in[i * width + c];
}

/** The filter for 16-bit streams, one record for every two channels. */
class FilterStage : public Int16Stage {
 public:
  FilterStage(const FilterDesign& design, int channels, int block)
      : Int16Stage(channels, channels, frames_per_call(design, block)) {
    for (int c = 0; c < channels; c += 2) {
      // Zeroed: the reset leaves the state of a very long cascade alone.
      filters_.push_back(std::make_unique<Filter_ID>());
      Filter_ID* const filter = filters_.back().get();
      std::copy(design.b.begin(), design.b.end(), filter->b);
      std::copy(design.a.begin(), design.a.end(), filter->a);
      filter->blen = static_cast<int>(design.b.size());
      filter->alen = static_cast<int>(design.a.size());
      filter->n = 2;
      filter->ns = filter->blen / 3;
      filter->chanel = std::min(2, channels - c);
      filter->filtertype = design.kind == FilterDesign::kFir   ? JURN_FIR
                           : design.kind == FilterDesign::kIir ? JURN_IIR
                                                               : JURN_CASCADE;
      MORVAX_FilterReset_API(filter);
    }
  }

 private:
  void run(const short* in, short* out) override {
    const std::size_t channels = static_cast<std::size_t>(channels_in);
    if (filters_.size() == 1) {
      MORVAX_FilterRun_API(filters_[0].get(), in, call_frames * channels_in, out);
      return;
    }
    for (std::size_t i = 0; i < filters_.size(); ++i) {
      const std::size_t width = static_cast<std::size_t>(filters_[i]->chanel);
      pair_.resize(static_cast<std::size_t>(call_frames) * width);
      split(in, channels, 2 * i, &pair_, width);
      MORVAX_FilterRun_API(filters_[i].get(), pair_.data(), static_cast<int>(pair_.size()),
                           pair_.data());
      join(pair_, channels, 2 * i, out, width);
    }
  }

  bool is_lost(const float*) const override {
    const auto is_finite = [&](const Filter_ID& f, const FilterIOMEM& past) {
      if (f.filtertype == JURN_IIR)
        return std::isfinite(past.memoutput[f.alen - 2 + call_frames]);  // of the last frame
      return f.filtertype != JURN_CASCADE || std::all_of(past.mempy, past.mempy + 3 * f.ns,
                                                         [](float y) { return std::isfinite(y); });
    };
    return std::any_of(filters_.begin(), filters_.end(), [&](const auto& f) {
      return !is_finite(*f, f->memL) || !is_finite(*f, f->memR);
    });
  }

  std::vector<std::unique_ptr<Filter_ID>> filters_;
  std::vector<short> pair_;
};

/** FIR, IIR or sections in double precision: the kernels of the library's float filter, which take
 * histories of any length. Sections are a chain of filters of second order. */
class DoubleStage : public Stage {
 public:
  DoubleStage(const FilterDesign& design, int channels, int block)
      : Stage(channels, channels, design.kind == FilterDesign::kFir ? block : kIirBlock),
        channel_(static_cast<std::size_t>(call_frames)) {
    const std::size_t group = design.kind == FilterDesign::kSections ? 3 : design.b.size();
    for (std::size_t at = 0; at < design.b.size(); at += group) {
      const auto part = [&](const std::vector<double>& all) {
        const std::size_t end = group == 3 ? std::min(at + 3, all.size()) : all.size();
        return std::vector<double>(all.begin() + static_cast<std::ptrdiff_t>(at),
                                   all.begin() + static_cast<std::ptrdiff_t>(end));
      };
      filters_.push_back({part(design.b), part(design.a)});
    }
    const std::size_t frames = channel_.size();
    for (int c = 0; c < channels; ++c)
      for (const Filter& filter : filters_)
        histories_.push_back({std::vector<float>(filter.b.size() - 1 + frames),
                              std::vector<double>(filter.a.size() + frames)});
  }

 private:
  struct Filter {
    std::vector<double> b, a;
  };
  struct History {
    std::vector<float> inputs;
    std::vector<double> outputs;
  };

  void call(const float* in, float* out) override {
    const std::size_t channels = static_cast<std::size_t>(channels_in);
    float* const x = channel_.data();
    for (std::size_t c = 0; c < channels; ++c) {
      split(in, channels, c, &channel_);
      for (std::size_t k = 0; k < filters_.size(); ++k) {
        const Filter& f = filters_[k];
        History& history = histories_[c * filters_.size() + k];
        const short blen = static_cast<short>(f.b.size()), alen = static_cast<short>(f.a.size());
        if (f.a.empty())
          MORVAX_Qfirf(x, x, call_frames, history.inputs.data(), f.b.data(), blen);
        else
          MORVAX_Qiirf(x, x, call_frames, history.outputs.data(), history.inputs.data(), f.b.data(),
                       blen, f.a.data(), alen);
      }
      join(channel_, channels, c, out);
    }
  }

  std::vector<Filter> filters_;
  std::vector<History> histories_;  // channel by channel
  std::vector<float> channel_;
};

/** The moving average, one record per channel: the moving-sum filter up to its limit, beyond it the
 * int16 filter, whose arithmetic is the same. */
class AverageStage : public Int16Stage {
 public:
  AverageStage(int length, int channels, int block)
      : Int16Stage(channels, channels, block, false), channel_(static_cast<std::size_t>(block)) {
    const std::size_t count = static_cast<std::size_t>(channels);
    if (length <= JURN_MOVING_SUM_MAX)
      sums_.resize(count);
    else
      filters_.resize(count);
    for (shuzhiFilter_ID& sum : sums_) {
      sum.blen = length;
      MORVAX_shuzhiFilterCalcu_API(&sum);
      MORVAX_shuzhiFilterReset_API(&sum);
    }
    for (Filter_ID& filter : filters_) {
      filter.blen = length;
      filter.chanel = 1;
      filter.filtertype = JURN_MOVING_AVERAGE;
      MORVAX_FilterReset_API(&filter);
    }
  }

 private:
  void run(const short* in, short* out) override {
    const std::size_t channels = static_cast<std::size_t>(channels_in);
    for (std::size_t c = 0; c < channels; ++c) {
      split(in, channels, c, &channel_);
      if (!sums_.empty())
        MORVAX_shuzhiFilterRun_API(&sums_[c], channel_.data(), call_frames, channel_.data());
      else
        MORVAX_FilterRun_API(&filters_[c], channel_.data(), call_frames, channel_.data());
      join(channel_, channels, c, out);
    }
  }

  std::vector<shuzhiFilter_ID> sums_;
  std::vector<Filter_ID> filters_;
  std::vector<short> channel_;
};

}  // namespace

bool Stage::is_lost(const float* block) const {
  const std::size_t values = static_cast<std::size_t>(call_frames * channels_out);
  return !std::all_of(block, block + values, [](float x) { return std::isfinite(x); });
}

void Stage::push(const float* in, std::size_t frames, std::vector<float>* out) {
  const std::size_t values_in = static_cast<std::size_t>(call_frames * channels_in);
  const std::size_t values_out = static_cast<std::size_t>(call_frames * channels_out);
  const float* const end = in + frames * static_cast<std::size_t>(channels_in);
  const std::size_t begin = out->size();
  const auto call_next = [&](const float* next) {
    out->resize(out->size() + values_out);
    float* const block = out->data() + out->size() - values_out;
    call(next, block);
    if (lost_after < 0 && is_lost(block)) lost_after = made_;
    if (lost_after >= 0)  // what is no number becomes silence
      std::replace_if(
          block, block + values_out, [](float x) { return !std::isfinite(x); }, 0.0f);
    made_ += call_frames;
  };
  const auto left = [&] { return static_cast<std::size_t>(end - in); };
  if (!pending_.empty()) {
    const std::size_t missing = std::min(values_in - pending_.size(), left());
    pending_.insert(pending_.end(), in, in + missing);
    in += missing;
    if (pending_.size() == values_in) {
      call_next(pending_.data());
      pending_.clear();
    }
  }
  for (; left() >= values_in; in += values_in) call_next(in);
  pending_.insert(pending_.end(), in, end);

  const std::int64_t produced = static_cast<std::int64_t>((out->size() - begin)) / channels_out;
  const std::int64_t drop = std::min(produced, (keep_latency ? 0 : latency) - dropped_);
  const auto first = out->begin() + static_cast<std::ptrdiff_t>(begin);
  out->erase(first, first + drop * channels_out);
  dropped_ += drop;
  received_ += static_cast<std::int64_t>(frames);
  returned_ += produced - drop;
}

void Stage::finish(std::vector<float>* out) {
  const std::int64_t total = received_ + added();
  const std::vector<float> silence(static_cast<std::size_t>(call_frames * channels_in));
  while (returned_ < total) push(silence.data(), static_cast<std::size_t>(call_frames), out);
  out->resize(out->size() - static_cast<std::size_t>((returned_ - total) * channels_out));
  returned_ = total;
}

Int16Stage::Int16Stage(int in, int out, int frames, bool can_clip)
    : Stage(in, out, frames, true),
      can_clip_(can_clip),
      in_(static_cast<std::size_t>(frames * in)),
      out_(static_cast<std::size_t>(frames * out)) {}

void Int16Stage::call(const float* in, float* out) {
  to_int16(in, in_.size(), in_.data(), &input_clipped, dither.get());
  run(in_.data(), out_.data());
  int full_scale = 0;  // as wide as a sample, for the compiler's vectors
  const short* const result = out_.data();
  for (std::size_t i = 0; i < out_.size(); ++i) {
    full_scale += static_cast<int>(result[i] == 32767) + static_cast<int>(result[i] == -32768);
    out[i] = result[i];
  }
  if (can_clip_) clipped += full_scale;
}

CoefficientLimit fir_limit() {
  return {JURN_COEFFICIENTS, std::to_string(JURN_COEFFICIENTS) + " taps, the limit of this filter"};
}

CoefficientLimit iir_limit() {
  return {JURN_COEFFICIENTS,
          std::to_string(JURN_COEFFICIENTS) +
              " coefficients in numerator or denominator, the limit of this filter"};
}

CoefficientLimit section_limit() {
  return {JURN_COEFFICIENTS / 3,
          std::to_string(JURN_COEFFICIENTS / 3) + " sections, the limit of this filter"};
}

std::unique_ptr<Stage> make_filter(const FilterDesign& design, Precision precision, int channels,
                                   int block) {
  if (precision == Precision::kDouble)
    return std::make_unique<DoubleStage>(design, channels, block);
  return std::make_unique<FilterStage>(design, channels, block);
}

std::unique_ptr<Stage> make_average(int length, int channels, int block) {
  return std::make_unique<AverageStage>(length, channels, block);
}

}  // namespace jurn
