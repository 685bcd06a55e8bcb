// A voice that convolves.
#include "exact.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "Convolution_control.h"
#include "streams/convolve.h"
#include "streams/samples.h"
#include "streams/state_bytes.h"
#include "streams/voice.h"

namespace jurn {
namespace {

/** Frames after which what an output rings on with stays below `least` of full scale. */
int ringing(const Routing& routing, double least) {
  std::vector<double> rest(static_cast<std::size_t>(routing.outputs));
  for (int tap = routing.longest() - 1; tap > 0; --tap)
    for (const Route& route : routing.routes) {
      if (static_cast<std::size_t>(tap) >= route.taps.size()) continue;
      double& sum = rest[static_cast<std::size_t>(route.output)];
      sum += std::abs(route.taps[static_cast<std::size_t>(tap)]);
      if (sum >= least) return tap;
    }
  return 0;
}

/** A response, and how long it rings. */
struct Room {
  Room(const Convolution_shape& shape, const Routing& routing, double least)
      : response(shape, routing), tail(ringing(routing, least)) {}

  Room(ConvolutionResponse ready, int rings) : response(std::move(ready)), tail(rings) {}

  void store(StateBytes* to) const {
    std::string bytes(static_cast<const char*>(static_cast<const void*>(get())), response.size());
    int rings = tail;
    to->pass_sized(&bytes);
    to->pass(&rings);
  }
  static std::shared_ptr<Room> restored(StateBytes* from) {
    std::string bytes;
    int rings = 0;
    from->pass_sized(&bytes);
    from->pass(&rings);
    StateBytes::check(!bytes.empty() && rings >= 0);
    return std::make_shared<Room>(ConvolutionResponse(bytes.data(), bytes.size()), rings);
  }

  const ConvolutionResponse_ID* get() const { return response.get(); }

  ConvolutionResponse response;
  int tail;
};

class ConvolutionVoice : public Voice {
 public:
  ConvolutionVoice(std::shared_ptr<Room> room, int longest, Precision precision,
                   const Format& format)
      : Voice(Kind::kConvolution, format),
        shape_{format.inputs, format.outputs, format.block, longest},
        precision_(precision),
        scale_(precision == Precision::kInt16 ? 32768.0 / format.full_scale : 1.0),
        room_(std::move(room)),
        stream_(std::make_unique<ConvolutionStream>(shape_)),
        channels_(static_cast<std::size_t>(std::max(format.inputs, format.outputs))) {
    const std::size_t block = static_cast<std::size_t>(format.block);
    floats_.resize(channels_.size() * block);
    samples_.resize(precision == Precision::kInt16 ? floats_.size() : 0);
    for (std::size_t c = 0; c < channels_.size(); ++c) channels_[c] = floats_.data() + c * block;
  }
  /** With the same past; the rooms, which nothing changes, are shared. */
  ConvolutionVoice(const ConvolutionVoice& other)
      : Voice(Kind::kConvolution, other.format()),
        shape_(other.shape_),
        precision_(other.precision_),
        scale_(other.scale_),
        room_(other.room_),
        next_(other.next_),
        stream_(std::make_unique<ConvolutionStream>(*other.stream_)),
        ready_(other.ready_),
        bad_samples_(other.bad_samples_),
        channels_(other.channels_.size()),
        floats_(other.floats_),
        samples_(other.samples_) {
    const std::size_t block = static_cast<std::size_t>(shape_.block);
    for (std::size_t c = 0; c < channels_.size(); ++c) channels_[c] = floats_.data() + c * block;
  }

  void run(const double* const* in, int frames, double* const* out) override {
    for (int done = 0; done < frames; done += shape_.block) {
      take(in, done, shape_.block);
      const bool fades = fades_now();
      convolve(fades ? previous_.get() : nullptr, *room_);
      if (next_) prepare_fade();
      give(out, done, shape_.block);
    }
  }

  bool run(const short* in, int frames, short* out) override {
    if (precision_ != Precision::kInt16) return false;
    for (int done = 0; done < frames; done += shape_.block)
      convolve_next(in + done * shape_.inputs, out + done * shape_.outputs);
    return true;
  }
  bool run(const double* in, int frames, double* out) override {
    if (precision_ == Precision::kInt16) return false;
    float* const floats = floats_.data();
    for (int done = 0; done < frames; done += shape_.block) {
      double bad = 0.0;
      for (int i = 0; i < shape_.block * shape_.inputs; ++i) {
        const float x = static_cast<float>(in[done * shape_.inputs + i]);
        const bool is_finite = x - x == 0.0f;
        floats[i] = is_finite ? x : 0.0f;
        bad += is_finite ? 0.0 : 1.0;
      }
      bad_samples_ += static_cast<unsigned long long>(bad);
      convolve_next(floats, floats);
      for (int i = 0; i < shape_.block * shape_.outputs; ++i)
        out[done * shape_.outputs + i] = static_cast<double>(floats[i]);
    }
    return true;
  }
  unsigned long long bad_samples() const override { return bad_samples_; }

  void preview(const double* const* in, int frames, double* const* out) override {
    auto copy = std::make_unique<ConvolutionStream>(*stream_);
    stream_.swap(copy);
    take(in, 0, frames);
    if (next_ && ready_)
      convolve(room_.get(), *next_);
    else
      convolve(nullptr, *room_);
    give(out, 0, frames);
    stream_.swap(copy);
  }

  void reset() override {
    MORVAX_ConvolutionReset_API(stream_->get());
    bad_samples_ = 0;
    if (!next_) return;
    previous_ = std::move(room_);
    room_ = std::exchange(next_, nullptr);
  }
  int block() const override { return shape_.block; }
  int tail() const override { return std::max(room_->tail, next_ ? next_->tail : 0); }
  int memory() const override { return tail(); }
  bool changing() const override { return next_ != nullptr; }
  std::unique_ptr<Voice> copy() const override { return std::make_unique<ConvolutionVoice>(*this); }

  bool store(StateBytes* to) override {
    auto kind = Kind::kConvolution;
    to->pass(&kind);
    to->pass(&precision_);
    to->pass(&shape_.taps);
    room_->store(to);
    pass_state(to);
    return true;
  }
  void pass_state(StateBytes* state) override {
    int fades = next_ ? 1 : 0, ready = ready_ ? 1 : 0;
    state->pass(&fades);
    state->pass(&ready);
    if (fades && state->reads())
      next_ = Room::restored(state);
    else if (fades)
      next_->store(state);
    ready_ = ready != 0;
    state->pass(&bad_samples_);
    stream_->pass_state(state);
  }

  bool replace(Voice* voice) override {
    if (voice->kind() != Kind::kConvolution) return false;
    auto* const other = static_cast<ConvolutionVoice*>(voice);
    if (precision_ != other->precision_ || std::memcmp(&shape_, &other->shape_, sizeof shape_) != 0)
      return false;
    std::swap(stream_, other->stream_);
    next_ = std::move(room_);
    room_ = std::move(other->room_);
    if (format().is_live)
      prepare_fade();
    else
      ready_ = true;
    return true;
  }

 private:
  /** Samples of the library's from the format's; silence after `frames` of them. */
  void take(const double* const* in, int first, int frames) {
    const bool int16 = precision_ == Precision::kInt16;
    for (int c = 0; c < shape_.inputs; ++c)
      for (int i = 0; i < shape_.block; ++i) {
        const double x = i < frames ? in[c][first + i] : 0.0;
        if (int16)
          samples_[static_cast<std::size_t>(i * shape_.inputs + c)] =
              to_sample(x * scale_, short{});
        else
          channels_[static_cast<std::size_t>(c)][i] = static_cast<float>(x);
      }
  }
  void give(double* const* out, int first, int frames) const {
    const bool int16 = precision_ == Precision::kInt16;
    for (int c = 0; c < shape_.outputs; ++c)
      for (int i = 0; i < frames; ++i)
        out[c][first + i] =
            int16 ? samples_[static_cast<std::size_t>(i * shape_.outputs + c)] / scale_
                  : static_cast<double>(channels_[static_cast<std::size_t>(c)][i]);
  }

  /** A block through a room, or as a fade from one to another. */
  void convolve(const Room* from, const Room& to) {
    if (precision_ == Precision::kInt16) {
      short* const x = samples_.data();
      from ? MORVAX_ConvolutionFade_API(stream_->get(), from->get(), to.get(), x, x)
           : MORVAX_ConvolutionRun_API(stream_->get(), to.get(), x, x);
    } else {
      float* const* const x = channels_.data();
      from ? MORVAX_ConvolutionFade_API_planar(stream_->get(), from->get(), to.get(), x, x)
           : MORVAX_ConvolutionRun_API_planar(stream_->get(), to.get(), x, x);
    }
  }

  /** An interleaved block, through the room or as the fade to the next one. */
  template <typename Sample>
  void convolve_next(const Sample* in, Sample* out) {
    const bool fades = fades_now();
    if constexpr (sizeof(Sample) == sizeof(short))
      fades ? MORVAX_ConvolutionFade_API(stream_->get(), previous_->get(), room_->get(), in, out)
            : MORVAX_ConvolutionRun_API(stream_->get(), room_->get(), in, out);
    else
      fades ? MORVAX_ConvolutionFade_API_float(stream_->get(), previous_->get(), room_->get(), in,
                                               out)
            : MORVAX_ConvolutionRun_API_float(stream_->get(), room_->get(), in, out);
    if (next_) prepare_fade();
  }

  /** Whether this block fades, from previous_ to room_. */
  bool fades_now() {
    if (!next_ || !ready_) return false;
    previous_ = std::move(room_);
    room_ = std::exchange(next_, nullptr);
    return true;
  }

  /** After a block: another share of the fade to come. */
  void prepare_fade() {
    ready_ = MORVAX_ConvolutionPrepareFade_API(stream_->get(), next_->get()) == 0;
  }

  Convolution_shape shape_;
  Precision precision_;
  double scale_;  // from the format's samples to those of the library
  std::shared_ptr<Room> room_;
  std::shared_ptr<Room> next_;      // to fade to, once that is prepared
  std::shared_ptr<Room> previous_;  // no longer needed; freed with the voice
  std::unique_ptr<ConvolutionStream> stream_;
  bool ready_ = false;
  unsigned long long bad_samples_ = 0;
  std::vector<float*> channels_;
  std::vector<float> floats_;
  std::vector<short> samples_;
};

}  // namespace

std::unique_ptr<Voice> make_convolution(const Routing& routing, int longest, Precision precision,
                                        const Format& format) {
  const Convolution_shape shape = {format.inputs, format.outputs, format.block, longest};
  // Half a step of 16 bits, and of 24.
  const double least = precision == Precision::kInt16 ? 0x1p-16 : 0x1p-24;
  return std::make_unique<ConvolutionVoice>(std::make_unique<Room>(shape, routing, least), longest,
                                            precision, format);
}

std::unique_ptr<Voice> make_convolution(ConvolutionResponse response, int longest,
                                        Precision precision, const Format& format) {
  return std::make_unique<ConvolutionVoice>(
      std::make_unique<Room>(std::move(response), longest - 1), longest, precision, format);
}

std::unique_ptr<Voice> restored_convolution(StateBytes* from, const Format& format) {
  auto precision = Precision::kDouble;
  int longest = 0;
  from->pass(&precision);
  from->pass(&longest);
  const Convolution_shape shape = {format.inputs, format.outputs, format.block, longest};
  StateBytes::check(MORVAX_ConvolutionStreamSize_API(&shape) > 0);
  auto voice = std::make_unique<ConvolutionVoice>(Room::restored(from), longest, precision, format);
  voice->pass_state(from);
  return voice;
}

}  // namespace jurn
