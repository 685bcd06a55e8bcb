#include "streams/voice.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <utility>
#include <vector>

#include "Fir_control.h"
#include "Sections_control.h"
#include "errors.h"
#include "streams/memory.h"
#include "streams/samples.h"
#include "streams/state_bytes.h"

namespace jurn {
namespace {

/** What makes a voice that does not convolve. */
struct Recipe {
  Voice::Kind kind = Voice::Kind::kWire;
  int length = 0;  // of a mean
  Precision precision = Precision::kDouble;
  Prepared prepared;  // of a design: what runs, the coefficients and the tail
};

Recipe recipe_of(Voice::Kind kind, Runs runs, const FilterDesign& design, int tail) {
  Recipe recipe;
  recipe.kind = kind;
  recipe.prepared.runs = runs;
  recipe.prepared.design = design;
  recipe.prepared.tail = tail;
  return recipe;
}

Recipe recipe_of_mean(int length, Precision precision) {
  Recipe recipe;
  recipe.kind = Voice::Kind::kMean;
  recipe.length = length;
  recipe.precision = precision;
  recipe.prepared.tail = length - 1;
  return recipe;
}

void pass(StateBytes* state, Recipe* recipe) {
  FilterDesign& design = recipe->prepared.design;
  int kind = design.kind;
  for (int* const value : {&recipe->length, &kind, &recipe->prepared.tail}) state->pass(value);
  state->pass(&recipe->precision);
  state->pass(&recipe->prepared.runs);
  state->pass_sized(&design.b);
  state->pass_sized(&design.a);
  StateBytes::check(kind >= FilterDesign::kFir && kind <= FilterDesign::kSections &&
                    recipe->prepared.tail >= 0);
  design.kind = static_cast<FilterDesign::Kind>(kind);
}

/** Whether what was read can be made into a voice. */
bool is_sound(const Recipe& recipe) {
  const FilterDesign& design = recipe.prepared.design;
  const bool in_16_bits = recipe.precision == Precision::kInt16;
  switch (recipe.kind) {
    case Voice::Kind::kWire:
      return true;
    case Voice::Kind::kMean:
      return recipe.length >= 1 && (!in_16_bits || recipe.length <= kMaxAverage);
    case Voice::Kind::kSections:
      return recipe.prepared.runs == Runs::kSections && design.kind == FilterDesign::kSections &&
             fits(design, Precision::kDouble);
    case Voice::Kind::kFir:
      return recipe.prepared.runs == Runs::kFir && design.kind == FilterDesign::kFir;
    case Voice::Kind::kDirectForm:
      return recipe.prepared.runs == Runs::kDirectForm && design.kind == FilterDesign::kIir;
    case Voice::Kind::kInt16:
      return recipe.prepared.runs == Runs::kRecords && fits(design, Precision::kInt16);
    default:
      return false;
  }
}

/** Writes a voice, which that recipe makes. */
void write(StateBytes* to, Recipe recipe, Voice* voice) {
  to->pass(&recipe.kind);
  pass(to, &recipe);
  voice->pass_state(to);
}

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
    std::vector<double> rows;
    for (std::size_t k = 0; k < design.b.size(); k += 3) {
      rows.insert(rows.end(), design.b.begin() + static_cast<std::ptrdiff_t>(k),
                  design.b.begin() + static_cast<std::ptrdiff_t>(k) + 3);
      rows.insert(rows.end(), design.a.begin() + static_cast<std::ptrdiff_t>(k),
                  design.a.begin() + static_cast<std::ptrdiff_t>(k) + 3);
    }
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

/** Samples that a kernel runs at once. */
constexpr int kPiece = 512;

/** A filter whose channels are alike, each with a past of its own. */
template <typename Channel>
class PerChannel : public Voice {
 public:
  PerChannel(Kind kind, const Format& format, int rings, int remembers, const Channel& silent)
      : Voice(kind, format),
        channels_(static_cast<std::size_t>(format.inputs), silent),
        silent_(silent),
        tail_(rings),
        memory_(remembers) {}

  void run(const double* const* in, int frames, double* const* out) override {
    for (std::size_t c = 0; c < channels_.size(); ++c)
      for (int done = 0; done < frames; done += kPiece)
        channels_[c].run(in[c] + done, std::min(frames - done, kPiece), out[c] + done);
  }
  void hear(const double* const* in, int frames, double* const* spare) override {
    for (std::size_t c = 0; c < channels_.size(); ++c)
      for (int done = 0; done < frames; done += kPiece)
        channels_[c].hear(in[c] + done, std::min(frames - done, kPiece), spare[c] + done);
  }
  void reset() override { std::fill(channels_.begin(), channels_.end(), silent_); }
  int tail() const override { return tail_; }
  int memory() const override { return memory_; }
  std::unique_ptr<Voice> copy() const override {
    auto other = std::make_unique<PerChannel>(kind(), format(), tail_, memory_, silent_);
    other->channels_ = channels_;
    return other;
  }
  bool store(StateBytes* to) override {
    write(to, silent_.recipe(tail_), this);
    return true;
  }
  void pass_state(StateBytes* state) override {
    for (Channel& channel : channels_) channel.pass_state(state);
  }

 private:
  std::vector<Channel> channels_;
  Channel silent_;
  int tail_, memory_;
};

/** The past samples, followed by the piece. */
class History {
 public:
  explicit History(std::size_t past) : past_(past), samples_(past + kPiece) {}

  /** The piece's first sample, with the past before it. */
  const double* append(const double* in, int frames) {
    std::copy_n(in, frames, samples_.data() + past_);
    return samples_.data() + past_;
  }
  double* piece() { return samples_.data() + past_; }
  /** Makes the piece past. */
  void advance(int frames) { std::copy_n(samples_.data() + frames, past_, samples_.data()); }
  void pass_state(StateBytes* state) {
    state->pass(static_cast<void*>(samples_.data()), past_ * sizeof(double));
  }

 private:
  std::size_t past_;
  std::vector<double> samples_;
};

struct FirChannel {
  explicit FirChannel(const std::vector<double>& b) : taps(b), past(b.size() - 1) {}

  /** What it remembers is its input alone. */
  void hear(const double* in, int frames, double*) {
    past.append(in, frames);
    past.advance(frames);
  }

  void run(const double* in, int frames, double* out) {
    MORVAX_FirRun_API_double(out, past.append(in, frames), frames, taps.data(),
                             static_cast<int>(taps.size()));
    past.advance(frames);
  }

  Recipe recipe(int tail) const {
    return recipe_of(Voice::Kind::kFir, Runs::kFir, {FilterDesign::kFir, taps, {}}, tail);
  }
  void pass_state(StateBytes* state) { past.pass_state(state); }

  std::vector<double> taps;
  History past;
};

/** A direct form whose roots are not known surely: in increasing index, numerator less feedback. */
struct DirectFormChannel {
  explicit DirectFormChannel(const FilterDesign& design)
      : b(design.b), a(design.a), inputs(b.size() - 1), outputs(a.size() - 1) {}

  void hear(const double* in, int frames, double* spare) { run(in, frames, spare); }

  void run(const double* in, int frames, double* out) {
    MORVAX_FirRun_API_double(out, inputs.append(in, frames), frames, b.data(),
                             static_cast<int>(b.size()));
    inputs.advance(frames);
    double* const y = outputs.piece();
    for (int i = 0; i < frames; ++i) {
      double feedback = 0.0;
      for (std::size_t j = 1; j < a.size(); ++j)
        feedback += a[j] * y[i - static_cast<std::ptrdiff_t>(j)];
      const double sum = out[i] - feedback;
      // What decays ends in silence, and an unstable filter can recover.
      y[i] = std::abs(sum) >= 1e-30 && std::isfinite(sum) ? sum : 0.0;
      out[i] = sum;
    }
    outputs.advance(frames);
  }

  Recipe recipe(int tail) const {
    return recipe_of(Voice::Kind::kDirectForm, Runs::kDirectForm, {FilterDesign::kIir, b, a}, tail);
  }
  void pass_state(StateBytes* state) {
    inputs.pass_state(state);
    outputs.pass_state(state);
  }

  std::vector<double> b, a;
  History inputs, outputs;
};

/**
 * The mean of the last `length` samples, 2 or more, without the drift of a sum that is added to for
 * ever. The samples are cut into groups of half the length. The window is the end of one group, the
 * whole of the next one and the current one so far. While a group comes in, the one before is
 * summed from its end, a sample for each that comes, so that every call costs the same.
 */
struct MeanChannel {
  explicit MeanChannel(int length)
      : count(static_cast<std::size_t>(length)), ends(count / 2 + 1), last(ends), now(ends) {}

  void hear(const double* in, int frames, double* spare) { run(in, frames, spare); }

  void run(const double* in, int frames, double* out) {
    const std::size_t half = count / 2;
    const std::size_t skip = 1 - count % 2;
    for (int i = 0; i < frames; ++i) {
      now[at] = in[i];
      sum += in[i];
      const std::size_t back = half - 1 - at;
      end += last[back];
      last[back] = end;
      out[i] = (ends[at + skip] + whole + sum) / static_cast<double>(count);
      if (++at < half) continue;
      ends.swap(last);
      last.swap(now);
      whole = sum;
      at = 0;
      sum = end = 0.0;
    }
  }

  Recipe recipe(int) const { return recipe_of_mean(static_cast<int>(count), Precision::kDouble); }
  void pass_state(StateBytes* state) {
    for (std::vector<double>* const group : {&ends, &last, &now}) state->pass_all(group);
    state->pass(&at);
    for (double* const value : {&sum, &whole, &end}) state->pass(value);
    StateBytes::check(at < count / 2);
  }

  std::size_t count;
  // Of a group, and a 0 behind it:
  std::vector<double> ends;  // the one before the last: sums from each sample to its end
  std::vector<double> last;  // the last one: samples, and behind them such sums
  std::vector<double> now;   // the current one,
  std::size_t at = 0;        // its samples so far
  double sum = 0.0;          // and their sum
  double whole = 0.0;        // sum of the last group
  double end = 0.0;          // and of what of it was summed from its end
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
  return std::make_unique<PerChannel<MeanChannel>>(Voice::Kind::kMean, format, length - 1,
                                                   length - 1, MeanChannel(length));
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
      return std::make_unique<PerChannel<FirChannel>>(Voice::Kind::kFir, format, prepared.tail,
                                                      prepared.tail, FirChannel(design.b));
    case Runs::kDirectForm:
      return std::make_unique<PerChannel<DirectFormChannel>>(Voice::Kind::kDirectForm, format,
                                                             prepared.tail, prepared.tail,
                                                             DirectFormChannel(design));
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
  StateBytes::check(is_sound(recipe));
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
