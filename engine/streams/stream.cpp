#include "exact.h"

#include "streams/stream.h"

#include <algorithm>
#include <cstddef>

#include "errors.h"
#include "streams/samples.h"

namespace jurn {
namespace {

// How many frames of the past a new filter hears at once: so many times those of the call, and
// where it takes calls of any length, which costs little, so many more.
constexpr int kPastTimes = 4;
constexpr int kPastAtOnce = 2048;

/** Interleaved samples. */
template <typename T>
struct Interleaved {
  T* samples;
  int channels;

  T* channel(int c) const { return samples + c; }
  std::ptrdiff_t stride() const { return channels; }
};

/** An array for each channel. */
template <typename T>
struct Planar {
  T* const* arrays;

  T* channel(int c) const { return arrays[c]; }
  std::ptrdiff_t stride() const { return 1; }
};

std::unique_ptr<Change> copy_of(const std::unique_ptr<Change>& change) {
  if (!change) return nullptr;
  std::unique_ptr<Voice> voice = change->voice->copy();
  if (!voice) throw Error(kInputError, "a stream of this filter cannot be copied");
  return std::make_unique<Change>(std::move(voice), change->fade);
}

}  // namespace

void free_changes(Change* list) {
  while (list) {
    const std::unique_ptr<Change> owned(list);
    list = list->next;
  }
}

Stream::Stream(const Format& format, std::unique_ptr<Voice> first)
    : format_(format), piece_(piece_of(format)), past_frames_(0) {
  if (!first) first = make_wire(format);
  if (format.history > 0) past_frames_ = std::max(format.history, first->memory()) + piece_;
  make_pieces();
  past_.resize(static_cast<std::size_t>(format.inputs) * static_cast<std::size_t>(past_frames_));
  voices_[0] = {std::make_unique<Change>(std::move(first), 1), 1};
  count_ = 1;
}

Stream::Stream(const Stream& other)
    : format_(other.format_),
      piece_(other.piece_),
      past_(other.past_),
      past_frames_(other.past_frames_),
      heard_(other.heard_),
      previewed_(other.previewed_),
      bad_samples_(other.bad_samples_),
      count_(other.count_),
      warming_(copy_of(other.warming_)),
      warmed_(other.warmed_),
      waiting_(copy_of(other.waiting_)) {
  make_pieces();
  for (std::size_t k = 0; k < voices_.size(); ++k)
    voices_[k] = {copy_of(other.voices_[k].change), other.voices_[k].done};
}

/** The memory of the pieces. */
void Stream::make_pieces() {
  const std::size_t inputs = static_cast<std::size_t>(format_.inputs);
  const std::size_t outputs = static_cast<std::size_t>(format_.outputs);
  const std::size_t piece = static_cast<std::size_t>(piece_);
  memory_.resize((2 * inputs + 2 * outputs) * piece);
  double* next = memory_.data();
  for (auto* const arrays : {&in_, &old_})
    for (std::size_t c = 0; c < inputs; ++c, next += piece) arrays->push_back(next);
  for (auto* const arrays : {&out_, &spare_})
    for (std::size_t c = 0; c < outputs; ++c, next += piece) arrays->push_back(next);
}

Stream::~Stream() {
  free_retired();
}

void Stream::process(const short* in, int frames, short* out) {
  process_interleaved(in, frames, out);
}
void Stream::process(const float* in, int frames, float* out) {
  process_interleaved(in, frames, out);
}
void Stream::process(const double* in, int frames, double* out) {
  process_interleaved(in, frames, out);
}
void Stream::process(const short* const* in, int frames, short* const* out) {
  process_pieces(Planar<const short>{in}, frames, Planar<short>{out});
}
void Stream::process(const float* const* in, int frames, float* const* out) {
  process_pieces(Planar<const float>{in}, frames, Planar<float>{out});
}
void Stream::process(const double* const* in, int frames, double* const* out) {
  process_pieces(Planar<const double>{in}, frames, Planar<double>{out});
}

template <typename Sample>
void Stream::process_interleaved(const Sample* in, int frames, Sample* out) {
  const Interleaved<const Sample> from{in, format_.inputs};
  // Only without a past to keep: what is remembered is read from the piece.
  if (past_frames_ == 0 && !changing() && voices_[0].change->voice->run(in, frames, out)) {
    heard_ += frames;
    return;
  }
  process_pieces(from, frames, Interleaved<Sample>{out, format_.outputs});
}

template <typename In, typename Out>
void Stream::process_pieces(const In& in, int frames, const Out& out) {
  for (int done = 0; done < frames; done += piece_) {
    const int count = std::min(frames - done, piece_);
    for (int c = 0; c < format_.inputs; ++c)
      bad_samples_ += take_samples(in.channel(c) + done * in.stride(), in.stride(), count,
                                   in_[static_cast<std::size_t>(c)]);
    filter(count);
    for (int c = 0; c < format_.outputs; ++c)
      give_samples(out_[static_cast<std::size_t>(c)], count, out.channel(c) + done * out.stride(),
                   out.stride());
  }
}

void Stream::preview(const short* in, int frames, short* out) {
  preview_interleaved(in, frames, out);
}
void Stream::preview(const float* in, int frames, float* out) {
  preview_interleaved(in, frames, out);
}
void Stream::preview(const double* in, int frames, double* out) {
  preview_interleaved(in, frames, out);
}

template <typename Sample>
void Stream::preview_interleaved(const Sample* in, int frames, Sample* out) {
  for (int c = 0; c < format_.inputs; ++c)
    take_samples(in + c, format_.inputs, frames, in_[static_cast<std::size_t>(c)]);
  begin_change(format_.block);
  previewed_ = true;
  voices_[0].change->voice->preview(in_.data(), frames, out_.data());
  for (int k = 1; k < count_; ++k) {
    const Sounding& sounding = voices_[static_cast<std::size_t>(k)];
    sounding.change->voice->preview(in_.data(), frames, spare_.data());
    mix(sounding, frames);
  }
  for (int c = 0; c < format_.outputs; ++c)
    give_samples(out_[static_cast<std::size_t>(c)], frames, out + c, format_.outputs);
}

/** Filters what lies in in_ to out_. */
void Stream::filter(int frames) {
  begin_change(frames);
  previewed_ = false;
  voices_[0].change->voice->run(in_.data(), frames, out_.data());
  for (int k = 1; k < count_; ++k) {
    Sounding& sounding = voices_[static_cast<std::size_t>(k)];
    sounding.change->voice->run(in_.data(), frames, spare_.data());
    mix(sounding, frames);
    sounding.done = std::min(sounding.done + frames, sounding.change->fade);
  }
  drop_faded();
  remember(frames);
  heard_ += frames;
}

/** Before a piece: what waits may begin. */
void Stream::begin_change(int frames) {
  if (previewed_) return;
  begin_waiting();
  if (warming_) hear_the_past(frames);
}

/** Fades in what lies in spare_. */
void Stream::mix(const Sounding& sounding, int frames) {
  const int ramp = sounding.change->fade;
  for (int c = 0; c < format_.outputs; ++c) {
    double* const y = out_[static_cast<std::size_t>(c)];
    const double* const v = spare_[static_cast<std::size_t>(c)];
    for (int i = 0; i < frames; ++i) {
      const int along = sounding.done + i;
      const double w = static_cast<double>(along) / static_cast<double>(ramp - 1);
      y[i] = along < ramp - 1 ? y[i] + w * (v[i] - y[i]) : v[i];
    }
  }
}

void Stream::remember(int frames) {
  if (past_frames_ == 0) return;
  const std::size_t size = static_cast<std::size_t>(past_frames_);
  const std::size_t at = static_cast<std::size_t>(heard_ % past_frames_);
  const std::size_t first = std::min(static_cast<std::size_t>(frames), size - at);
  for (std::size_t c = 0; c < in_.size(); ++c) {
    double* const ring = past_.data() + c * size;
    std::copy_n(in_[c], first, ring + at);
    std::copy(in_[c] + first, in_[c] + frames, ring);
  }
}

void Stream::change(std::unique_ptr<Change> next) {
  if (heard_ == 0 && !previewed_) {
    retire_all();
    voices_[0] = {std::move(next), 1};
    count_ = 1;
    return;
  }
  retire(std::move(waiting_));
  waiting_ = std::move(next);
}

void Stream::begin_waiting() {
  Sounding& newest = voices_[static_cast<std::size_t>(count_ - 1)];
  if (!waiting_ || warming_ || newest.change->voice->changing()) return;
  Voice& voice = *waiting_->voice;
  if (voice.replace(newest.change->voice.get())) {
    waiting_->fade = newest.change->fade;
    std::swap(newest.change, waiting_);
    retire(std::move(waiting_));
  } else if (count_ < kVoices) {
    if (voice.follow(*newest.change->voice)) {
      voices_[static_cast<std::size_t>(count_++)] = {std::move(waiting_), 0};
    } else {
      const int block = voice.block();
      const long long kept = std::min<long long>(heard_, past_frames_ - piece_);
      const long long wanted = voice.memory() + block - 1;
      warmed_ = heard_ - std::min(kept, wanted) / block * block;
      warming_ = std::move(waiting_);
    }
  }
}

void Stream::hear_the_past(int frames) {
  Voice& voice = *warming_->voice;
  const long long budget = kPastTimes * frames + (voice.block() == 1 ? kPastAtOnce : 0);
  const long long end = std::min(heard_, warmed_ + budget);
  const std::size_t size = static_cast<std::size_t>(past_frames_);
  while (warmed_ < end) {
    const int count = static_cast<int>(std::min<long long>(end - warmed_, piece_));
    for (std::size_t c = 0; c < old_.size(); ++c)
      for (int i = 0; i < count; ++i)
        old_[c][i] = past_[c * size + static_cast<std::size_t>((warmed_ + i) % past_frames_)];
    voice.hear(old_.data(), count, spare_.data());
    warmed_ += count;
  }
  if (warmed_ == heard_) voices_[static_cast<std::size_t>(count_++)] = {std::move(warming_), 0};
}

void Stream::drop_faded() {
  int first = 0;
  for (int k = 1; k < count_; ++k) {
    const Sounding& sounding = voices_[static_cast<std::size_t>(k)];
    if (sounding.done >= sounding.change->fade) first = k;
  }
  for (int k = 0; k < first; ++k) retire(std::move(voices_[static_cast<std::size_t>(k)].change));
  std::move(voices_.begin() + first, voices_.begin() + count_, voices_.begin());
  count_ -= first;
}

void Stream::retire(std::unique_ptr<Change> old) {
  if (!old) return;
  old->next = retired_;
  retired_ = old.release();
}

void Stream::retire_all() {
  for (int k = 0; k < count_; ++k) retire(std::move(voices_[static_cast<std::size_t>(k)].change));
  retire(std::move(warming_));
  retire(std::move(waiting_));
  count_ = 0;
}

Change* Stream::take_retired() {
  return std::exchange(retired_, nullptr);
}

void Stream::reset() {
  std::unique_ptr<Change> newest =
      waiting_   ? std::move(waiting_)
      : warming_ ? std::move(warming_)
                 : std::move(voices_[static_cast<std::size_t>(count_ - 1)].change);
  retire_all();
  newest->voice->reset();
  voices_[0] = {std::move(newest), 1};
  count_ = 1;
  heard_ = 0;
  previewed_ = false;
  bad_samples_ = 0;
}

int Stream::tail() const {
  int longest = 0;
  for (int k = 0; k < count_; ++k)
    longest = std::max(longest, voices_[static_cast<std::size_t>(k)].change->voice->tail());
  for (const Change* const next : {warming_.get(), waiting_.get()})
    if (next) longest = std::max(longest, next->voice->tail());
  return longest;
}

}  // namespace jurn
