#include "exact.h"

#include "streams/voice.h"

#include <algorithm>
#include <utility>
#include <vector>

#include "Sections_control.h"
#include "errors.h"
#include "streams/channel_voices.h"
#include "streams/memory.h"
#include "streams/recipe.h"
#include "streams/samples.h"
#include "streams/state_bytes.h"

namespace jurn {
namespace {

class Wire : public Voice {
 public:
  explicit Wire(const Format& format) : Voice(Kind::kWire, format) {}

  void run(const double* const* in, int frames, double* const* out) override {
    for (int c = format().outputs - 1; c >= 0; --c) {
      const double* const from = in[std::min(c, format().inputs - 1)];
      if (from != out[c]) std::copy_n(from, frames, out[c]);
    }
  }
  void reset() override {}
  int tail() const override { return 0; }
  int memory() const override { return 0; }
  std::unique_ptr<Voice> copy() const override { return std::make_unique<Wire>(format()); }
  bool store(StateBytes* to) override {
    write(to, Recipe(), this);
    return true;
  }
};

/** The library's sections in double, for every 64 channels a stream. */
class SectionsVoice : public Voice {
 public:
  SectionsVoice(const FilterDesign& design, int rings, const Format& format)
      : Voice(Kind::kSections, format), design_(design), tail_(rings) {
    const int sections = static_cast<int>(design.b.size() / 3);
    const std::vector<double> rows = rows_of_sections(design);
    std::size_t size = MORVAX_SectionsFilterSize_API(sections, 1);
    filter_ = allocate<SectionsFilter_ID>(size);
    if (MORVAX_SectionsFilterCalcu_API(filter_.get(), size, rows.data(), sections, 1))
      throw Error(kInputError, "the filter has coefficients beyond the numbers of double");
    for (int c = 0; c < format.inputs; c += JURN_SECTIONS_CHANNELS) {
      const Sections_shape shape = {std::min(format.inputs - c, JURN_SECTIONS_CHANNELS), sections};
      size = MORVAX_SectionsStreamSize_API(&shape);
      streams_.push_back(allocate<SectionsStream_ID>(size));
      sizes_.push_back(size);
      MORVAX_SectionsStreamCalcu_API(streams_.back().get(), size, &shape);
    }
  }

  void run(const double* const* in, int frames, double* const* out) override {
    for (std::size_t i = 0; i < streams_.size(); ++i)
      MORVAX_SectionsRun_API_planar_double(streams_[i].get(), filter_.get(),
                                           in + i * JURN_SECTIONS_CHANNELS, frames,
                                           out + i * JURN_SECTIONS_CHANNELS);
  }
  bool run(const short* in, int frames, short* out) override {
    if (streams_.size() > 1) return false;
    MORVAX_SectionsRun_API(streams_[0].get(), filter_.get(), in, frames, out);
    return true;
  }
  bool run(const float* in, int frames, float* out) override {
    if (streams_.size() > 1) return false;
    MORVAX_SectionsRun_API_float(streams_[0].get(), filter_.get(), in, frames, out);
    return true;
  }
  bool run(const double* in, int frames, double* out) override {
    if (streams_.size() > 1) return false;
    MORVAX_SectionsRun_API_double(streams_[0].get(), filter_.get(), in, frames, out);
    return true;
  }

  void reset() override {
    for (const auto& stream : streams_) MORVAX_SectionsReset_API(stream.get());
  }
  int tail() const override { return tail_; }
  int memory() const override { return tail_; }

  bool follow(const Voice& previous) override {
    if (previous.kind() != Kind::kSections) return false;
    const auto& other = static_cast<const SectionsVoice&>(previous);
    if (other.streams_.size() != streams_.size()) return false;
    for (std::size_t i = 0; i < streams_.size(); ++i)
      MORVAX_SectionsFollow_API(streams_[i].get(), filter_.get(), other.streams_[i].get(),
                                other.filter_.get());
    return true;
  }

  std::unique_ptr<Voice> copy() const override {
    auto other = std::make_unique<SectionsVoice>(design_, tail_, format());
    other->follow(*this);
    return other;
  }

  bool store(StateBytes* to) override {
    write(to, recipe_of(kind(), Runs::kSections, design_, tail_), this);
    return true;
  }
  void pass_state(StateBytes* state) override {
    for (std::size_t i = 0; i < streams_.size(); ++i)
      state->pass(static_cast<void*>(streams_[i].get()), sizes_[i]);
  }

  unsigned long long bad_samples() const override {
    unsigned long long sum = 0;
    for (const auto& stream : streams_) sum += MORVAX_SectionsBadSamples_API(stream.get());
    return sum;
  }

 private:
  FilterDesign design_;
  Owned<SectionsFilter_ID> filter_;
  std::vector<Owned<SectionsStream_ID>> streams_;
  std::vector<std::size_t> sizes_;
  int tail_;
};

/** The library's 16-bit records. */
class Int16Voice : public Voice {
 public:
  Int16Voice(const Recipe& recipe, const Format& format)
      : Int16Voice(recipe, format,
                   recipe.kind == Kind::kMean ? LiveFilter(recipe.length, format.inputs)
                                              : LiveFilter(recipe.prepared.design, format.inputs)) {
  }
  /** With the past of `filter`. */
  Int16Voice(const Recipe& recipe, const Format& format, const LiveFilter& filter)
      : Voice(recipe.kind, format),
        recipe_(recipe),
        filter_(filter),
        samples_(static_cast<std::size_t>(format.inputs) * kPiece),
        scale_(32768.0 / format.full_scale) {}

  void run(const double* const* in, int frames, double* const* out) override {
    const int channels = format().inputs;
    for (int done = 0; done < frames; done += kPiece) {
      const int count = std::min(frames - done, kPiece);
      for (int c = 0; c < channels; ++c)
        for (int i = 0; i < count; ++i)
          samples_[static_cast<std::size_t>(i * channels + c)] =
              to_sample(in[c][done + i] * scale_, short{});
      filter_.process(samples_.data(), count, samples_.data());
      for (int c = 0; c < channels; ++c)
        for (int i = 0; i < count; ++i)
          out[c][done + i] = samples_[static_cast<std::size_t>(i * channels + c)] / scale_;
    }
  }
  bool run(const short* in, int frames, short* out) override {
    filter_.process(in, frames, out);
    return true;
  }

  void reset() override { filter_.reset(); }
  bool is_lost() const override { return filter_.is_lost(); }
  int tail() const override { return recipe_.prepared.tail; }
  int memory() const override { return tail(); }
  std::unique_ptr<Voice> copy() const override {
    return std::make_unique<Int16Voice>(recipe_, format(), filter_);
  }
  bool store(StateBytes* to) override {
    write(to, recipe_, this);
    return true;
  }
  void pass_state(StateBytes* state) override { filter_.pass_state(state); }

 private:
  Recipe recipe_;
  LiveFilter filter_;
  std::vector<short> samples_;
  double scale_;  // from the format's samples to the int16 scale
};

}  // namespace

bool Voice::run(const short*, int, short*) {
  return false;
}
bool Voice::run(const float*, int, float*) {
  return false;
}
bool Voice::run(const double*, int, double*) {
  return false;
}
void Voice::preview(const double* const* in, int frames, double* const* out) {
  if (const std::unique_ptr<Voice> twin = copy()) twin->run(in, frames, out);
}

std::unique_ptr<Voice> make_wire(const Format& format) {
  return std::make_unique<Wire>(format);
}

std::unique_ptr<Voice> make_mean(int length, Precision precision, const Format& format) {
  if (precision == Precision::kInt16)
    return std::make_unique<Int16Voice>(recipe_of_mean(length, precision), format);
  if (length == 1) return make_wire(format);
  return make_mean_in_double(length, format);
}

std::unique_ptr<Voice> make_voice(const Prepared& prepared, const Format& format) {
  const FilterDesign& design = prepared.design;
  switch (prepared.runs) {
    case Runs::kRecords:
      return std::make_unique<Int16Voice>(
          recipe_of(Voice::Kind::kInt16, Runs::kRecords, design, prepared.tail), format);
    case Runs::kSections:
      return std::make_unique<SectionsVoice>(design, prepared.tail, format);
    case Runs::kFir:
      return make_fir(prepared, format);
    case Runs::kDirectForm:
      return make_direct_form(prepared, format);
    case Runs::kConvolution:
      break;
  }
  Routing routing{format.inputs, format.outputs, {}};
  for (int c = 0; c < format.inputs; ++c) routing.routes.push_back({c, c, design.b});
  return make_convolution(routing, routing.longest(), Precision::kDouble, format);
}

std::unique_ptr<Voice> restored_voice(StateBytes* from, const Format& format) {
  Recipe recipe;
  from->pass(&recipe.kind);
  if (recipe.kind == Voice::Kind::kConvolution) return restored_convolution(from, format);
  pass(from, &recipe);
  FilterDesign& design = recipe.prepared.design;
  if (recipe.kind != Voice::Kind::kWire && recipe.kind != Voice::Kind::kMean)
    design = checked_design(design.kind, std::move(design.b), std::move(design.a));
  std::unique_ptr<Voice> voice = recipe.kind == Voice::Kind::kWire ? make_wire(format)
                                 : recipe.kind == Voice::Kind::kMean
                                     ? make_mean(recipe.length, recipe.precision, format)
                                     : make_voice(recipe.prepared, format);
  voice->pass_state(from);
  return voice;
}

}  // namespace jurn
