#include "streams/stages.h"

#include <algorithm>
#include <cmath>

#include "Filter_control.h"
#include "streams/samples.h"
#include "streams/voice.h"

namespace jurn {
namespace {

// Of the convolution with an FIR, whose bits follow from it.
constexpr int kFirBlock = 1024;

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

/** What runs in double: any other voice. */
class VoiceStage : public Stage {
 public:
  VoiceStage(std::unique_ptr<Voice> voice, int delay)
      : Stage(voice->format().inputs, voice->format().outputs, frames_for(*voice)),
        voice_(std::move(voice)),
        memory_(static_cast<std::size_t>((channels_in + channels_out) * call_frames)) {
    double* next = memory_.data();
    for (int c = 0; c < channels_in; ++c, next += call_frames) in_.push_back(next);
    for (int c = 0; c < channels_out; ++c, next += call_frames) out_.push_back(next);
    tail = voice_->tail();
    latency = delay;
  }

 private:
  // The length of the calls changes no bit of the result.
  static int frames_for(const Voice& voice) {
    constexpr int kFrames = 1024;
    return voice.block() < kFrames ? kFrames / voice.block() * voice.block() : voice.block();
  }

  void call(const float* in, float* out) override {
    if (!rounds && voice_->run(in, call_frames, out)) return;
    for (int c = 0; c < channels_in; ++c)
      take_samples(in + c, channels_in, call_frames, in_[static_cast<std::size_t>(c)]);
    voice_->run(in_.data(), call_frames, out_.data());
    // To float first, some would come to lie halfway between two whole numbers.
    for (int c = 0; c < channels_out && rounds; ++c)
      for (int i = 0; i < call_frames; ++i)
        out_[static_cast<std::size_t>(c)][i] = std::rint(out_[static_cast<std::size_t>(c)][i]);
    for (int c = 0; c < channels_out; ++c)
      give_samples(out_[static_cast<std::size_t>(c)], call_frames, out + c, channels_out);
  }

  std::unique_ptr<Voice> voice_;
  std::vector<double> memory_;
  std::vector<double*> in_, out_;
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

std::unique_ptr<Stage> make_filter(const Prepared& prepared, int channels, int block) {
  if (prepared.runs == Runs::kRecords) {
    auto stage = std::make_unique<FilterStage>(prepared.design, channels, block);
    stage->latency = prepared.design.delay;
    return stage;
  }
  Format format;
  format.inputs = format.outputs = channels;
  format.block = kFirBlock;
  return std::make_unique<VoiceStage>(make_voice(prepared, format), prepared.design.delay);
}

std::unique_ptr<Stage> make_stage(std::unique_ptr<Voice> voice, int latency) {
  return std::make_unique<VoiceStage>(std::move(voice), latency);
}

std::unique_ptr<Stage> make_average(int length, int channels, int block, Precision precision) {
  if (precision == Precision::kDouble) {
    Format format;
    format.inputs = format.outputs = channels;
    auto stage = std::make_unique<VoiceStage>(make_mean(length, precision, format), 0);
    stage->tail = 0;
    return stage;
  }
  return std::make_unique<AverageStage>(length, channels, block);
}

}  // namespace jurn
