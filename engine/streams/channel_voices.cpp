#include "exact.h"

#include "streams/channel_voices.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <vector>

#include "Fir_control.h"
#include "streams/recipe.h"

namespace jurn {
namespace {

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
  bool follow(const Voice& previous) override {
    const auto* const other = dynamic_cast<const PerChannel*>(&previous);
    if (!other || other->channels_.size() != channels_.size()) return false;
    for (std::size_t c = 0; c < channels_.size(); ++c)
      if (!channels_[c].follow(other->channels_[c])) return false;  // all or none
    return true;
  }
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

  /** Takes the newest samples of another one; false where it has too few. */
  bool follow(const History& other) {
    if (other.past_ < past_) return false;
    std::copy_n(other.samples_.data() + (other.past_ - past_), past_, samples_.data());
    return true;
  }
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
  bool follow(const FirChannel& other) { return past.follow(other.past); }

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
  /** What other coefficients have put out is no past of these. */
  bool follow(const DirectFormChannel& other) {
    return b == other.b && a == other.a && inputs.follow(other.inputs) &&
           outputs.follow(other.outputs);
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
  bool follow(const MeanChannel& other) {
    if (other.count != count) return false;
    *this = other;  // its vectors are as long, so that nothing is allocated
    return true;
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

}  // namespace

std::unique_ptr<Voice> make_fir(const Prepared& prepared, const Format& format) {
  return std::make_unique<PerChannel<FirChannel>>(Voice::Kind::kFir, format, prepared.tail,
                                                  prepared.tail, FirChannel(prepared.design.b));
}

std::unique_ptr<Voice> make_direct_form(const Prepared& prepared, const Format& format) {
  return std::make_unique<PerChannel<DirectFormChannel>>(Voice::Kind::kDirectForm, format,
                                                         prepared.tail, prepared.tail,
                                                         DirectFormChannel(prepared.design));
}

std::unique_ptr<Voice> make_mean_in_double(int length, const Format& format) {
  return std::make_unique<PerChannel<MeanChannel>>(Voice::Kind::kMean, format, length - 1,
                                                   length - 1, MeanChannel(length));
}

}  // namespace jurn
