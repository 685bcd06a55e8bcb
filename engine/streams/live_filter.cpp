#include "exact.h"

#include "streams/live_filter.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <iterator>

#include "streams/records.h"
#include "streams/state_bytes.h"

namespace jurn {
namespace {

static_assert(kMaxAverage == JURN_HISTORY);

/** The histories of a record, one per channel. */
FilterIOMEM* history(Filter_ID* filter, int channel) {
  return channel == 0 ? &filter->memL : &filter->memR;
}

void run(Filter_ID* filter, const short* in, int frames, short* out) {
  MORVAX_FilterRun_API(filter, in, frames * filter->chanel, out);
}

}  // namespace

/** One record and the channels that it filters. */
class LiveFilter::Lane {
 public:
  Lane(int first, int width)
      : first_(static_cast<std::size_t>(first)), width_(static_cast<std::size_t>(width)) {
    filter.chanel = width;
  }

  Filter_ID filter{};  // zeroed: silence

  /** Filters the lane's channels of `channels`. */
  void process(const short* in, int frames, short* out, std::size_t channels) {
    for (int done = 0; done < frames;) {
      const int count = std::min(frames - done, kIirBlock - position_);
      const std::size_t offset = static_cast<std::size_t>(done) * channels + first_;
      short* const block = block_ + static_cast<std::size_t>(position_) * width_;
      for (std::size_t i = 0; i < static_cast<std::size_t>(count); ++i)
        for (std::size_t c = 0; c < width_; ++c)
          block[i * width_ + c] = in[offset + i * channels + c];
      const short* const result = call(count);
      for (std::size_t i = 0; i < static_cast<std::size_t>(count); ++i)
        for (std::size_t c = 0; c < width_; ++c)
          out[offset + i * channels + c] = result[i * width_ + c];
      done += count;
    }
  }

  /** Returns to silence. */
  void reset() {
    for (int c = 0; c < static_cast<int>(width_); ++c) {
      *history(&filter, c) = {};
      std::fill(std::begin(inputs_[c]), std::end(inputs_[c]), short{});
      std::fill(std::begin(outputs_[c]), std::end(outputs_[c]), 0.0f);
    }
    position_ = length_ = 0;
  }

  void pass_state(StateBytes* state) {
    for (FilterIOMEM* const past : {&filter.memL, &filter.memR}) state->pass(past);
    for (int* const frames : {&last_, &position_, &length_}) state->pass(frames);
    state->pass(&block_);
    state->pass(&inputs_);
    state->pass(&outputs_);
    StateBytes::check(last_ >= 1 && last_ <= kIirBlock && position_ >= 0 && position_ < kIirBlock &&
                      length_ >= 0 && length_ <= kIirBlock && records::is_valid(filter));
  }

  bool is_lost() {
    for (int c = 0; c < static_cast<int>(width_); ++c) {
      const FilterIOMEM& past = *history(&filter, c);
      if (filter.filtertype == JURN_IIR && length_ > 0 &&
          !std::isfinite(past.memoutput[filter.alen - 2 + length_]))  // of the last frame
        return true;
      if (filter.filtertype == JURN_CASCADE &&
          !std::all_of(past.mempy, past.mempy + 3 * filter.ns,
                       [](float y) { return std::isfinite(y); }))
        return true;
    }
    return false;
  }

 private:
  /** Filters the `count` frames that were put into the block last. */
  const short* call(int count) {
    if (filter.filtertype == JURN_FIR) {
      for (int c = 0; c < static_cast<int>(width_); ++c) {
        short* const past = history(&filter, c)->meminput;
        std::memmove(past + count, past + last_, past_inputs() * sizeof(short));
      }
      last_ = count;
    }
    if (filter.filtertype != JURN_IIR) {
      run(&filter, block_, count, result_);
      return result_;
    }

    const int length = position_ + count;
    length_ = length;
    for (int c = 0; c < static_cast<int>(width_); ++c) {
      auto* const past = history(&filter, c);
      std::copy_n(inputs_[c], past_inputs(), past->meminput + length);
      std::copy_n(outputs_[c], past_outputs(), past->memoutput + length);
    }
    run(&filter, block_, length, result_);
    const short* const result = result_ + static_cast<std::size_t>(position_) * width_;
    position_ = length % kIirBlock;
    for (int c = 0; c < static_cast<int>(width_) && position_ == 0; ++c) {
      const auto* const past = history(&filter, c);
      std::copy_n(past->meminput + length, past_inputs(), inputs_[c]);
      std::copy_n(past->memoutput + length, past_outputs(), outputs_[c]);
    }
    return result;
  }

  std::size_t past_inputs() const { return static_cast<std::size_t>(filter.blen - 1); }
  std::size_t past_outputs() const { return static_cast<std::size_t>(filter.alen - 1); }

  std::size_t first_, width_;
  int last_ = kIirBlock;  // FIR: frames of the last call
  int position_ = 0;      // IIR: frames of the block that were filtered
  int length_ = 0;        // and of the last call
  short block_[2 * kIirBlock] = {};
  short result_[2 * kIirBlock] = {};
  // IIR: the past at the start of the block.
  short inputs_[2][JURN_COEFFICIENTS] = {};
  float outputs_[2][JURN_COEFFICIENTS] = {};
};

LiveFilter::LiveFilter(const FilterDesign& design, int channels) : channels_(channels) {
  for (int c = 0; c < channels; c += 2) {
    lanes_.push_back(std::make_unique<Lane>(c, std::min(2, channels - c)));
    records::set_design(lanes_.back()->filter, design);
  }
}

LiveFilter::LiveFilter(int length, int channels) : channels_(channels) {
  for (int c = 0; c < channels; ++c) {
    lanes_.push_back(std::make_unique<Lane>(c, 1));
    Filter_ID* const filter = &lanes_.back()->filter;
    filter->blen = length;
    filter->filtertype = JURN_MOVING_AVERAGE;
  }
}

LiveFilter::LiveFilter(const LiveFilter& other) : channels_(other.channels_) {
  for (const auto& lane : other.lanes_) lanes_.push_back(std::make_unique<Lane>(*lane));
}

LiveFilter::~LiveFilter() = default;

void LiveFilter::process(const short* in, int frames, short* out) {
  for (const auto& lane : lanes_)
    lane->process(in, frames, out, static_cast<std::size_t>(channels_));
}

bool LiveFilter::is_lost() const {
  return std::any_of(lanes_.begin(), lanes_.end(),
                     [](const auto& lane) { return lane->is_lost(); });
}

void LiveFilter::reset() {
  for (const auto& lane : lanes_) lane->reset();
}

void LiveFilter::pass_state(StateBytes* state) {
  for (const auto& lane : lanes_) lane->pass_state(state);
}

}  // namespace jurn
