// A stream to bytes and back.
#include "exact.h"

#include <algorithm>
#include <cstddef>
#include <string>

#include "errors.h"
#include "streams/state_bytes.h"
#include "streams/stream.h"

namespace jurn {
namespace {

void pass_format(StateBytes* state, Format* format) {
  for (int* const value :
       {&format->rate, &format->inputs, &format->outputs, &format->block, &format->history})
    state->pass(value);
  state->pass(&format->full_scale);
  int is_live = format->is_live ? 1 : 0;
  state->pass(&is_live);
  format->is_live = is_live != 0;
  constexpr int kMost = 4096;
  const auto fits = [](int value) { return value >= 1 && value <= kMost; };
  StateBytes::check(fits(format->inputs) && fits(format->outputs) && fits(format->block) &&
                    format->history >= 0 && format->full_scale > 0.0);
}

std::string described(const Format& format) {
  return std::to_string(format.inputs) + " inputs, " + std::to_string(format.outputs) +
         " outputs, blocks of " + std::to_string(format.block) + " and " +
         std::to_string(format.rate) + " Hz";
}

}  // namespace

Stream::Stream(StateBytes* from, const Format* wanted) : piece_(0), past_frames_(0) {
  pass_format(from, &format_);
  if (wanted && *wanted != format_)
    throw Error(kInputError, "data: holds a stream of " + described(format_) + "; this one is of " +
                                 described(*wanted));
  piece_ = piece_of(format_);
  make_pieces();
  pass_state(from);
}

void Stream::store(StateBytes* to) {
  pass_format(to, &format_);
  pass_state(to);
}

void Stream::pass_state(StateBytes* state) {
  int previewed = previewed_ ? 1 : 0;
  for (int* const value : {&past_frames_, &previewed, &count_}) state->pass(value);
  for (long long* const frame : {&heard_, &warmed_}) state->pass(frame);
  state->pass(&bad_samples_);
  previewed_ = previewed != 0;
  const std::size_t inputs = static_cast<std::size_t>(format_.inputs);
  if (state->reads()) {
    StateBytes::check(count_ >= 1 && count_ <= kVoices && heard_ >= 0 && warmed_ >= 0 &&
                      (format_.history > 0 ? past_frames_ > piece_ : past_frames_ == 0));
    past_.resize(inputs * static_cast<std::size_t>(past_frames_));
  }
  const auto heard = static_cast<std::size_t>(std::min<long long>(heard_, past_frames_));
  for (std::size_t c = 0; c < inputs; ++c)  // what was never heard is silence
    state->pass(static_cast<void*>(past_.data() + c * static_cast<std::size_t>(past_frames_)),
                heard * sizeof(double));
  for (int k = 0; k < count_; ++k) {
    Sounding& sounding = voices_[static_cast<std::size_t>(k)];
    state->pass(&sounding.done);
    pass_change(state, &sounding.change);
    StateBytes::check(sounding.change && sounding.done >= 0 &&
                      sounding.done <= sounding.change->fade);
  }
  pass_change(state, &warming_);
  pass_change(state, &waiting_);
}

void Stream::pass_change(StateBytes* state, std::unique_ptr<Change>* change) const {
  int fade = *change ? (*change)->fade : 0;  // 0: there is none
  state->pass(&fade);
  StateBytes::check(fade >= 0);
  if (fade == 0) return;
  if (state->reads())
    *change = std::make_unique<Change>(restored_voice(state, format_), fade);
  else if (!(*change)->voice->store(state))
    throw Error(kInputError, "a stream of this filter cannot be stored");
}

}  // namespace jurn
