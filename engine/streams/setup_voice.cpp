#include "exact.h"

#include "streams/setup_voice.h"

#include <algorithm>
#include <cstddef>
#include <utility>
#include <vector>

namespace jurn {
namespace {

/** A step on its channels, whose samples it changes where they are. */
class Step {
 public:
  explicit Step(const std::vector<int>& channels) : channels_(channels) {}
  virtual ~Step() = default;
  Step& operator=(const Step&) = delete;

  virtual void run(double* const* samples, int frames) = 0;
  virtual void reset() {}
  virtual int block() const { return 1; }
  /** Takes the past of the step in its place; false where that is another kind of step. */
  virtual bool follow(const Step& other) = 0;
  /** A second one with the same past. */
  virtual std::unique_ptr<Step> copy() const = 0;

 protected:
  Step(const Step&) = default;

  const std::vector<int> channels_;
};

class FilterStep : public Step {
 public:
  FilterStep(const Prepared& prepared, const std::vector<int>& channels, Format format)
      : Step(channels), own_(channels.size()) {
    format.inputs = format.outputs = static_cast<int>(channels.size());
    voice_ = make_voice(prepared, format);
  }
  FilterStep(const std::vector<int>& channels, std::unique_ptr<Voice> voice)
      : Step(channels), voice_(std::move(voice)), own_(channels.size()) {}

  void run(double* const* samples, int frames) override {
    for (std::size_t i = 0; i < own_.size(); ++i)
      own_[i] = samples[static_cast<std::size_t>(channels_[i])];
    voice_->run(own_.data(), frames, own_.data());
  }
  void reset() override { voice_->reset(); }
  int block() const override { return voice_->block(); }
  bool follow(const Step& other) override {
    const auto* const filter = dynamic_cast<const FilterStep*>(&other);
    return filter && filter->channels_ == channels_ && voice_->follow(*filter->voice_);
  }
  std::unique_ptr<Step> copy() const override {
    return std::make_unique<FilterStep>(channels_, voice_->copy());
  }

 private:
  std::unique_ptr<Voice> voice_;
  std::vector<double*> own_;
};

class DelayStep : public Step {
 public:
  DelayStep(int frames, const std::vector<int>& channels)
      : Step(channels),
        frames_(static_cast<std::size_t>(frames)),
        past_(frames_ * channels.size()) {}

  void run(double* const* samples, int frames) override {
    if (frames_ == 0) return;
    std::size_t at = at_;
    for (std::size_t i = 0; i < channels_.size(); ++i) {
      double* const x = samples[static_cast<std::size_t>(channels_[i])];
      double* const ring = past_.data() + i * frames_;
      at = at_;
      for (int n = 0; n < frames; ++n) {
        std::swap(x[n], ring[at]);
        if (++at == frames_) at = 0;
      }
    }
    at_ = at;
  }
  void reset() override { std::fill(past_.begin(), past_.end(), 0.0); }
  bool follow(const Step& other) override {
    const auto* const delay = dynamic_cast<const DelayStep*>(&other);
    if (!delay || delay->channels_ != channels_ || delay->frames_ != frames_) return false;
    std::copy(delay->past_.begin(), delay->past_.end(), past_.begin());
    at_ = delay->at_;
    return true;
  }
  std::unique_ptr<Step> copy() const override { return std::make_unique<DelayStep>(*this); }

 private:
  std::size_t frames_;
  std::vector<double> past_;  // a ring for each channel
  std::size_t at_ = 0;
};

class GainStep : public Step {
 public:
  GainStep(double gain, const std::vector<int>& channels) : Step(channels), gain_(gain) {}

  void run(double* const* samples, int frames) override {
    for (const int c : channels_)
      for (int i = 0; i < frames; ++i) samples[c][i] *= gain_;
  }
  bool follow(const Step& other) override {
    const auto* const gain = dynamic_cast<const GainStep*>(&other);
    return gain && gain->channels_ == channels_;
  }
  std::unique_ptr<Step> copy() const override { return std::make_unique<GainStep>(*this); }

 private:
  double gain_;
};

/** Replaces all channels. */
class MixerStep : public Step {
 public:
  MixerStep(const SetupStep& mixer, int piece)
      : Step({}),
        routes_(mixer.routes),
        mixed_(static_cast<std::size_t>(mixer.outputs),
               std::vector<double>(static_cast<std::size_t>(piece))) {}

  void run(double* const* samples, int frames) override {
    for (std::vector<double>& out : mixed_) std::fill_n(out.begin(), frames, 0.0);
    for (const MixerRoute& route : routes_) {
      const double* const in = samples[route.input];
      double* const out = mixed_[static_cast<std::size_t>(route.output)].data();
      for (int i = 0; i < frames; ++i) out[i] += route.gain * in[i];
    }
    for (std::size_t c = 0; c < mixed_.size(); ++c)
      std::copy_n(mixed_[c].begin(), frames, samples[c]);
  }
  bool follow(const Step& other) override {
    const auto* const mixer = dynamic_cast<const MixerStep*>(&other);
    return mixer && mixer->mixed_.size() == mixed_.size();
  }
  std::unique_ptr<Step> copy() const override { return std::make_unique<MixerStep>(*this); }

 private:
  std::vector<MixerRoute> routes_;
  std::vector<std::vector<double>> mixed_;
};

class SetupVoice : public Voice {
 public:
  SetupVoice(const PreparedSetup& prepared, const Format& format)
      : Voice(Kind::kSetup, format), tail_(prepared.tail) {
    piece_ = piece_of(format);
    const Setup& setup = prepared.setup;
    int most = setup.inputs;
    for (std::size_t s = 0; s < setup.steps.size(); ++s) {
      add(setup.steps[s], prepared.filters[s]);
      most = std::max(most, setup.channels_after(s + 1));
    }
    for (const auto& step : steps_) block_ = std::max(block_, step->block());
    make_pieces(static_cast<std::size_t>(most));
  }
  /** With the same past. */
  SetupVoice(const SetupVoice& other)
      : Voice(Kind::kSetup, other.format()),
        piece_(other.piece_),
        block_(other.block_),
        tail_(other.tail_) {
    for (const auto& step : other.steps_) steps_.push_back(step->copy());
    make_pieces(other.samples_.size());
  }

  void run(const double* const* in, int frames, double* const* out) override {
    for (int done = 0; done < frames; done += piece_) {
      const int count = std::min(frames - done, piece_);
      for (int c = 0; c < format().inputs; ++c)
        std::copy_n(in[c] + done, count, samples_[static_cast<std::size_t>(c)]);
      for (const auto& step : steps_) step->run(samples_.data(), count);
      for (int c = 0; c < format().outputs; ++c)
        std::copy_n(samples_[static_cast<std::size_t>(c)], count, out[c] + done);
    }
  }

  void reset() override {
    for (const auto& step : steps_) step->reset();
  }
  int block() const override { return block_; }
  int tail() const override { return tail_; }
  int memory() const override { return tail_; }

  bool follow(const Voice& previous) override {
    if (previous.kind() != Kind::kSetup) return false;
    const auto& other = static_cast<const SetupVoice&>(previous);
    bool same = other.steps_.size() == steps_.size();
    for (std::size_t s = 0; same && s < steps_.size(); ++s)
      same = steps_[s]->follow(*other.steps_[s]);
    if (!same) reset();
    return same;
  }
  std::unique_ptr<Voice> copy() const override { return std::make_unique<SetupVoice>(*this); }

 private:
  void make_pieces(std::size_t channels) {
    const std::size_t piece = static_cast<std::size_t>(piece_);
    memory_.resize(channels * piece);
    for (std::size_t c = 0; c < channels; ++c) samples_.push_back(memory_.data() + c * piece);
  }

  void add(const SetupStep& step, const Prepared& filter) {
    switch (step.kind) {
      case SetupStep::kMixer:
        return steps_.push_back(std::make_unique<MixerStep>(step, piece_));
      case SetupStep::kDelay:
        return steps_.push_back(std::make_unique<DelayStep>(step.delay, step.channels));
      case SetupStep::kGain:
        return steps_.push_back(std::make_unique<GainStep>(step.gain, step.channels));
      case SetupStep::kFilter:
        break;
    }
    if (filter.runs != Runs::kConvolution)
      return steps_.push_back(std::make_unique<FilterStep>(filter, step.channels, format()));
    for (const int c : step.channels)  // a convolution takes few channels
      steps_.push_back(std::make_unique<FilterStep>(filter, std::vector<int>{c}, format()));
  }

  int piece_, block_ = 1, tail_;
  std::vector<std::unique_ptr<Step>> steps_;
  std::vector<double> memory_;
  std::vector<double*> samples_;  // of each channel
};

}  // namespace

std::unique_ptr<Voice> make_setup_voice(const PreparedSetup& prepared, const Format& format) {
  return std::make_unique<SetupVoice>(prepared, format);
}

std::unique_ptr<OfferedFilter> offer_setup(const Setup& setup, const Format& format,
                                           SampleFormat result, const std::string& name,
                                           std::vector<std::string>* warnings) {
  PrepareOptions options;
  options.result = result;
  options.rate = format.rate;
  const PreparedSetup prepared = prepare(setup, options);
  for (const Notice& notice : prepared.notices)
    if (notice.is_warning()) warnings->push_back(name + ": " + notice.text);
  return std::make_unique<OfferedFilter>(make_setup_voice(prepared, format), prepared.latency());
}

}  // namespace jurn
