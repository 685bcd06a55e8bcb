#include "exact.h"

#include "streams/stages.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "Filter_control.h"
#include "streams/samples.h"

namespace jurn {
namespace {

static_assert(kMaxBlock == JURN_BLOCK);

/** Frames of a stage's calls, which change no bit of a voice's result: a multiple of its block. */
int frames_for(const Voice& voice) {
  constexpr int kFrames = 1024;
  return voice.block() < kFrames ? kFrames / voice.block() * voice.block() : voice.block();
}

/** Whether any of the samples is beyond the numbers of float, or none. */
bool any_lost(const double* samples, std::size_t count) {
  // 0 times what is finite is 0; the lanes are for the compiler's vectors.
  constexpr std::size_t kLanes = 8;
  float lanes[kLanes] = {};
  std::size_t i = 0;
  for (; i + kLanes <= count; i += kLanes)
    for (std::size_t j = 0; j < kLanes; ++j) lanes[j] += static_cast<float>(samples[i + j]) * 0.0f;
  for (; i < count; ++i) lanes[0] += static_cast<float>(samples[i]) * 0.0f;
  return std::any_of(lanes, lanes + kLanes, [](float lane) { return lane != 0.0f; });
}

/** A stream and the filters that it goes over to. */
class Changing {
 public:
  Changing(const Format& format, std::unique_ptr<Voice> voice, NextFilter next)
      : frames_(next ? voice->block() : frames_for(*voice)),
        stream_(format, std::move(voice)),
        next_(std::move(next)) {}

  template <typename Sample>
  void process(const Sample* in, Sample* out) {
    if (next_) {
      if (std::unique_ptr<Change> change = next_(first_, frames_))
        stream_.change(std::move(change));
      first_ += frames_;
    }
    stream_.process(in, frames_, out);
    stream_.free_retired();
  }

  const Stream& stream() const { return stream_; }
  int frames() const { return frames_; }

 private:
  int frames_;
  Stream stream_;
  NextFilter next_;
  std::int64_t first_ = 0;  // frame of the next call
};

class DoubleStage : public BlockStage {
 public:
  explicit DoubleStage(std::unique_ptr<Changing> changing)
      : BlockStage(changing->stream().format().inputs, changing->stream().format().outputs,
                   changing->frames(), false),
        changing_(std::move(changing)) {}

 private:
  void call(const double* in, double* out) override { changing_->process(in, out); }

  std::unique_ptr<Changing> changing_;
};

class DeviceStage : public Int16Stage {
 public:
  explicit DeviceStage(std::unique_ptr<Changing> changing)
      : Int16Stage(changing->stream().format().inputs, changing->stream().format().outputs,
                   changing->frames(), changing->stream().voice().kind() != Voice::Kind::kMean),
        changing_(std::move(changing)) {}

 private:
  void run(const short* in, short* out) override { changing_->process(in, out); }
  bool is_lost(const double*) const override { return changing_->stream().voice().is_lost(); }

  std::unique_ptr<Changing> changing_;
};

}  // namespace

std::int64_t Stage::added() const {
  return keep_tail ? std::max<std::int64_t>(tail - delay, 0) + (keep_latency ? latency : 0) : 0;
}

bool BlockStage::is_lost(const double* block) const {
  return any_lost(block, static_cast<std::size_t>(call_frames * channels_out));
}

void BlockStage::call_next(const double* in, double* out) {
  call(in, out);
  if (lost_after < 0 && is_lost(out)) lost_after = made_;
  if (lost_after >= 0)  // what is no number becomes silence
    std::replace_if(
        out, out + call_frames * channels_out,
        [](double x) { return !std::isfinite(static_cast<float>(x)); }, 0.0);
  made_ += call_frames;
}

void BlockStage::push(const double* in, std::size_t frames, std::vector<double>* out) {
  const std::size_t begin = out->size();
  const std::size_t ready = blocks_.ready(frames);
  out->resize(begin + ready * static_cast<std::size_t>(channels_out));
  blocks_.push(in, frames, out->data() + begin,
               [&](const double* x, double* y, std::size_t) { call_next(x, y); });

  const std::int64_t produced = static_cast<std::int64_t>(ready);
  const std::int64_t late = delay + (keep_latency ? 0 : latency);
  const std::int64_t drop = std::min(produced, late - dropped_);
  const auto first = out->begin() + static_cast<std::ptrdiff_t>(begin);
  out->erase(first, first + drop * channels_out);
  dropped_ += drop;
  received_ += static_cast<std::int64_t>(frames);
  returned_ += produced - drop;
}

bool BlockStage::finish(std::vector<double>* out) {
  const std::int64_t total = received_ + added();
  // `push` counts what it is given as received.
  while (returned_ < total) push(nullptr, static_cast<std::size_t>(call_frames), out);
  out->resize(out->size() - static_cast<std::size_t>((returned_ - total) * channels_out));
  returned_ = total;
  return false;
}

Int16Stage::Int16Stage(int in, int out, int frames, bool can_clip)
    : BlockStage(in, out, frames, true),
      can_clip_(can_clip),
      in_(static_cast<std::size_t>(frames * in)),
      out_(static_cast<std::size_t>(frames * out)) {}

void Int16Stage::call(const double* in, double* out) {
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

std::unique_ptr<Stage> make_stage(std::unique_ptr<Voice> voice, Precision precision, int delay,
                                  NextFilter next) {
  const int rings = voice->tail();
  const Format format = voice->format();
  auto changing = std::make_unique<Changing>(format, std::move(voice), std::move(next));
  std::unique_ptr<Stage> stage;
  if (precision == Precision::kInt16)
    stage = std::make_unique<DeviceStage>(std::move(changing));
  else
    stage = std::make_unique<DoubleStage>(std::move(changing));
  stage->tail = rings;
  stage->delay = delay;
  return stage;
}

}  // namespace jurn
