#include "streams/live_filter.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <type_traits>

namespace jurn {
namespace {

// Values of filtertype.
constexpr int kFirType = -1, kIirType = 0, kCascadeType = 1, kAverageType = 2;

/** The histories of a record, one per channel. */
FilterIOMEM* history(Filter_ID* filter, int channel) {
  return channel == 0 ? &filter->memL : &filter->memR;
}
FilterIOMEMf* history(Filterf_ID* filter, int) {
  return &filter->memL;
}

void run(Filter_ID* filter, const short* in, int frames, short* out) {
  MORVAX_FilterRun_API(filter, in, frames * filter->chanel, out);
}
void run(Filterf_ID* filter, const float* in, int frames, float* out) {
  MORVAX_FilterfRun_API(filter, in, frames, out);
}

template <typename Record>
void configure(Record* filter, const FilterDesign& design) {
  std::copy(design.b.begin(), design.b.end(), filter->b);
  std::copy(design.a.begin(), design.a.end(), filter->a);
  filter->blen = static_cast<int>(design.b.size());
  filter->alen = static_cast<int>(design.a.size());
  filter->filtertype = design.kind == FilterDesign::kFir   ? kFirType
                       : design.kind == FilterDesign::kIir ? kIirType
                                                           : kCascadeType;
}

}  // namespace

/** One record and the channels that it filters. */
template <typename Record, typename Sample>
class LiveFilter::Lane {
 public:
  Lane(int first, int width, bool continues)
      : first_(static_cast<std::size_t>(first)),
        width_(static_cast<std::size_t>(width)),
        continues_(continues) {}

  Record filter{};  // zeroed: silence

  /** Filters the lane's channels of `channels`; a lane that continues another takes its result. */
  void process(const Sample* in, int frames, Sample* out, std::size_t channels) {
    if (continues_) in = out;
    for (int done = 0; done < frames;) {
      const int count = std::min(frames - done, kIirBlock - position_);
      const std::size_t offset = static_cast<std::size_t>(done) * channels + first_;
      Sample* const block = block_ + static_cast<std::size_t>(position_) * width_;
      for (std::size_t i = 0; i < static_cast<std::size_t>(count); ++i)
        for (std::size_t c = 0; c < width_; ++c)
          block[i * width_ + c] = in[offset + i * channels + c];
      const Sample* const result = call(count);
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
      std::fill(std::begin(inputs_[c]), std::end(inputs_[c]), Sample{});
      std::fill(std::begin(outputs_[c]), std::end(outputs_[c]), Output{});
    }
    position_ = 0;
  }

 private:
  using Output = std::remove_reference_t<decltype(history(&filter, 0)->memoutput[0])>;

  /** Filters the `count` frames that were put into the block last. */
  const Sample* call(int count) {
    if (filter.filtertype == kFirType) {
      for (int c = 0; c < static_cast<int>(width_); ++c) {
        Sample* const past = history(&filter, c)->meminput;
        std::memmove(past + count, past + last_, past_inputs() * sizeof(Sample));
      }
      last_ = count;
    }
    if (filter.filtertype != kIirType) {
      run(&filter, block_, count, result_);
      return result_;
    }

    const int length = position_ + count;
    for (int c = 0; c < static_cast<int>(width_); ++c) {
      auto* const past = history(&filter, c);
      std::copy_n(inputs_[c], past_inputs(), past->meminput + length);
      std::copy_n(outputs_[c], past_outputs(), past->memoutput + length);
    }
    run(&filter, block_, length, result_);
    const Sample* const result = result_ + static_cast<std::size_t>(position_) * width_;
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
  bool continues_;
  int last_ = kIirBlock;  // FIR: frames of the last call
  int position_ = 0;      // IIR: frames of the block that were filtered
  Sample block_[2 * kIirBlock];
  Sample result_[2 * kIirBlock];
  // IIR: the past at the start of the block.
  Sample inputs_[2][JURN_COEFFICIENTS] = {};
  Output outputs_[2][JURN_COEFFICIENTS] = {};
};

LiveFilter::LiveFilter(const FilterDesign& design, Precision precision, int channels)
    : channels_(channels) {
  if (precision == Precision::kDouble) {
    std::vector<FilterDesign> parts{design};
    if (design.kind == FilterDesign::kSections) {
      parts.clear();
      for (std::size_t i = 0; i < design.b.size(); i += 3) {
        const auto at = static_cast<std::ptrdiff_t>(i);
        parts.push_back({FilterDesign::kIir,
                         {design.b.begin() + at, design.b.begin() + at + 3},
                         {design.a.begin() + at, design.a.begin() + at + 3}});
      }
    }
    for (int c = 0; c < channels; ++c)
      for (const FilterDesign& part : parts) {
        float_lanes_.push_back(std::make_unique<Lane<Filterf_ID, float>>(c, 1, &part != &parts[0]));
        configure(&float_lanes_.back()->filter, part);
      }
    return;
  }
  for (int c = 0; c < channels; c += 2) {
    const int width = std::min(2, channels - c);
    int16_lanes_.push_back(std::make_unique<Lane<Filter_ID, short>>(c, width, false));
    Filter_ID* const filter = &int16_lanes_.back()->filter;
    configure(filter, design);
    filter->chanel = width;
    filter->n = 2;
    filter->ns = filter->blen / 3;
  }
}

LiveFilter::LiveFilter(int length, int channels) : channels_(channels) {
  for (int c = 0; c < channels; ++c) {
    int16_lanes_.push_back(std::make_unique<Lane<Filter_ID, short>>(c, 1, false));
    Filter_ID* const filter = &int16_lanes_.back()->filter;
    filter->blen = length;
    filter->chanel = 1;
    filter->filtertype = kAverageType;
  }
}

LiveFilter::~LiveFilter() = default;

void LiveFilter::process(const short* in, int frames, short* out) {
  for (const auto& lane : int16_lanes_)
    lane->process(in, frames, out, static_cast<std::size_t>(channels_));
}

void LiveFilter::process(const float* in, int frames, float* out) {
  for (const auto& lane : float_lanes_)
    lane->process(in, frames, out, static_cast<std::size_t>(channels_));
}

void LiveFilter::reset() {
  for (const auto& lane : int16_lanes_) lane->reset();
  for (const auto& lane : float_lanes_) lane->reset();
}

}  // namespace jurn
