#include "blocks_stream.h"

#include <algorithm>
#include <cstdlib>
#include <exception>

using jurn::gst::BlocksState;
using jurn::gst::StreamFormat;
using jurn::gst::TimedStream;

void jurn::gst::free_pool(BlocksState* state) {
  if (!state->pool) return;
  gst_buffer_pool_set_active(state->pool, FALSE);
  gst_object_unref(state->pool);
  state->pool = nullptr;
  state->pool_bytes = 0;
}

/** A buffer of `bytes`, from a pool that grows only when a larger one than ever is wanted. */
static GstBuffer* new_buffer(BlocksState* state, std::size_t bytes) {
  if (bytes > state->pool_bytes) {
    jurn::gst::free_pool(state);
    state->pool = gst_buffer_pool_new();
    GstStructure* const config = gst_buffer_pool_get_config(state->pool);
    gst_buffer_pool_config_set_params(config, nullptr, static_cast<guint>(bytes), 2, 0);
    gst_buffer_pool_set_config(state->pool, config);
    gst_buffer_pool_set_active(state->pool, TRUE);
    state->pool_bytes = bytes;
  }
  GstBuffer* buffer = nullptr;
  if (gst_buffer_pool_acquire_buffer(state->pool, &buffer, nullptr) != GST_FLOW_OK) return nullptr;
  gst_buffer_set_size(buffer, static_cast<gssize>(bytes));
  return buffer;
}

// Frames of a buffer of silence.
static constexpr std::size_t kSilence = 1024;

/** The block for a first buffer of `frames` frames: the property's; or these frames, or the largest
 * part of them that a block can have. */
static int block_for(GstJurnBlocks* self, int frames) {
  constexpr int kLeast = 64;
  const int most = GST_JURN_BLOCKS_GET_CLASS(self)->most_block;
  if (const int wanted = self->state->wanted_block) return wanted;
  for (int parts = 1; frames / parts >= kLeast; ++parts)
    if (frames % parts == 0 && frames / parts <= most) return frames / parts;
  return std::clamp(frames, kLeast, 1024);
}

/** Returns to silence. */
static void forget(BlocksState* state) {
  state->started = false;
  if (state->stream) state->stream->reset();
}

static bool make_stream(GstJurnBlocks* self, std::size_t frames) {
  BlocksState* const state = self->state;
  StreamFormat format = state->preparer->format();
  format.block = block_for(self, static_cast<int>(frames));
  try {
    state->preparer->set_format(format);
    state->stream = std::make_unique<TimedStream>(
        GST_ELEMENT(self), state->preparer.get(),
        state->preparer->first(GST_JURN_BLOCKS_GET_CLASS(self)->no_filter));
  } catch (const std::exception& error) {
    GST_ELEMENT_ERROR(self, LIBRARY, SETTINGS, ("%s", error.what()), (nullptr));
    return false;
  }
  state->regroups = false;
  return true;
}

template <typename Sample>
static void count(GstJurnBlocks* self, const guint8* bytes, std::size_t frames) {
  const StreamFormat& format = self->state->stream->format();
  const std::size_t channels = static_cast<std::size_t>(format.outputs);
  self->state->statistics.count(GST_ELEMENT(self),
                                static_cast<const Sample*>(static_cast<const void*>(bytes)),
                                frames * channels, channels, format.rate);
}

/** Tells the pipeline when another filter is late by another time. */
static void tell_latency(GstJurnBlocks* self) {
  const int frames = self->state->stream ? self->state->stream->latency() : 0;
  if (self->state->late.exchange(frames) != frames)
    gst_element_post_message(GST_ELEMENT(self), gst_message_new_latency(GST_OBJECT(self)));
}

/** A buffer of the next `frames` output frames, which `fill` writes. */
template <typename Fill>
static GstBuffer* output(GstJurnBlocks* self, std::size_t frames, Fill fill) {
  BlocksState* const state = self->state;
  GstBuffer* const buffer = new_buffer(state, frames * state->stream->out_bytes());
  GstMapInfo map;
  if (!buffer || !gst_buffer_map(buffer, &map, GST_MAP_WRITE)) {
    if (buffer) gst_buffer_unref(buffer);
    return nullptr;
  }
  fill(map.data);
  state->stream->format().is_float ? count<float>(self, map.data, frames)
                                   : count<short>(self, map.data, frames);
  gst_buffer_unmap(buffer, &map);
  state->stream->stamp(buffer, frames);
  return buffer;
}

static GstFlowReturn push(GstJurnBlocks* self, GstBuffer* buffer) {
  return buffer ? gst_pad_push(GST_BASE_TRANSFORM_SRC_PAD(self), buffer) : GST_FLOW_ERROR;
}

/** Pushes what the frames of an incomplete block give. */
static void push_pending(GstJurnBlocks* self) {
  TimedStream* const stream = self->state->stream.get();
  if (!stream || !self->state->started || !stream->pending()) return;
  push(self, output(self, stream->pending(), [&](guint8* out) { stream->give_pending(out); }));
}

/** Runs `frames` frames of silence and pushes what they complete, at most `most` frames. */
static void push_silence(GstJurnBlocks* self, std::size_t frames, std::size_t most) {
  TimedStream* const stream = self->state->stream.get();
  GstFlowReturn flow = GST_FLOW_OK;
  while (frames > 0 && most > 0 && flow == GST_FLOW_OK) {
    const std::size_t taken = std::min(frames, kSilence);
    const std::size_t ready = stream->ready(taken);
    frames -= taken;
    if (ready == 0) {
      stream->push(nullptr, taken, nullptr, self->parent.segment);
      continue;
    }
    GstBuffer* const buffer = output(
        self, ready, [&](guint8* out) { stream->push(nullptr, taken, out, self->parent.segment); });
    if (buffer && ready > most) {
      gst_buffer_set_size(buffer, static_cast<gssize>(most * stream->out_bytes()));
      GST_BUFFER_DURATION(buffer) =
          gst_util_uint64_scale(most, GST_SECOND, static_cast<guint64>(stream->format().rate));
    }
    most -= std::min(most, ready);
    flow = push(self, buffer);
  }
}

/** Pushes what the pending frames give, and what rings on; then there is silence. */
static void drain(GstJurnBlocks* self, bool with_tail) {
  BlocksState* const state = self->state;
  TimedStream* const stream = state->stream.get();
  if (!stream || !state->started) return;
  const std::size_t rest =
      stream->pending() + (with_tail ? static_cast<std::size_t>(stream->tail()) : 0);
  push_silence(self, rest + static_cast<std::size_t>(stream->format().block), rest);
  forget(state);
}

/** Lets the output follow when frames come in at another time than those before led to expect. */
static void follow(GstJurnBlocks* self, GstClockTime time) {
  constexpr GstClockTimeDiff kTolerance = GST_MSECOND;
  BlocksState* const state = self->state;
  if (!GST_CLOCK_TIME_IS_VALID(time)) return;
  const GstClockTime expected = state->stream->next_in();
  if (state->started && GST_CLOCK_TIME_IS_VALID(expected) &&
      std::abs(GST_CLOCK_DIFF(expected, time)) <= kTolerance)
    return;
  push_pending(self);
  state->stream->set_time(time);
}

GstFlowReturn jurn::gst::generate_output(GstBaseTransform* transform, GstBuffer** result) {
  GstJurnBlocks* const self = GST_JURN_BLOCKS(transform);
  BlocksState* const state = self->state;
  GstBuffer* const input = transform->queued_buf;
  transform->queued_buf = nullptr;
  *result = nullptr;
  if (!input) return GST_FLOW_OK;

  // The first frames of a segment follow on those of the segment before.
  if (GST_BUFFER_IS_DISCONT(input) && !state->is_new_segment) drain(self, false);
  GstMapInfo in;
  if (!gst_buffer_map(input, &in, GST_MAP_READ)) {
    gst_buffer_unref(input);
    return GST_FLOW_ERROR;
  }
  GstFlowReturn flow = GST_FLOW_OK;
  std::size_t frames = 0;
  if (state->stream) {
    frames = in.size / state->stream->in_bytes();
  } else {
    const StreamFormat format = state->preparer->format();
    const std::size_t sample = format.is_float ? sizeof(float) : sizeof(short);
    frames = in.size / sample / static_cast<std::size_t>(std::max(format.inputs, 1));
    if (frames > 0 && !make_stream(self, frames)) flow = GST_FLOW_ERROR;
  }
  if (state->stream && frames > 0) {
    TimedStream* const stream = state->stream.get();
    follow(self, GST_BUFFER_PTS(input));
    state->started = true;
    state->is_new_segment = false;
    if (frames % static_cast<std::size_t>(stream->format().block) != 0 &&
        !state->regroups.exchange(true))
      gst_element_post_message(GST_ELEMENT(self), gst_message_new_latency(GST_OBJECT(self)));
    if (const std::size_t ready = stream->ready(frames)) {
      *result = output(self, ready, [&](guint8* out) {
        stream->push(in.data, frames, out, transform->segment);
      });
      if (!*result) flow = GST_FLOW_ERROR;
    } else {
      stream->push(in.data, frames, nullptr, transform->segment);
    }
  }
  tell_latency(self);
  gst_buffer_unmap(input, &in);
  gst_buffer_unref(input);
  return flow;
}

/** A gap is silence: the filter rings on into it, and what is left of it, if any, passes on. */
static GstEvent* fill_gap(GstJurnBlocks* self, GstEvent* event) {
  BlocksState* const state = self->state;
  GstClockTime time, duration;
  gst_event_parse_gap(event, &time, &duration);
  if (!state->stream || !state->started) return event;
  TimedStream* const stream = state->stream.get();
  follow(self, time);
  const guint64 rate = static_cast<guint64>(stream->format().rate);
  const guint64 ringing = stream->pending() + static_cast<guint64>(stream->tail());
  const bool has_end = GST_CLOCK_TIME_IS_VALID(duration);
  const guint64 frames = has_end ? gst_util_uint64_scale_round(duration, rate, GST_SECOND) : 0;
  if (has_end && frames <= ringing) {
    push_silence(self, frames, frames + stream->pending());
    gst_event_unref(event);
    return nullptr;
  }
  const GstClockTime silent = stream->next_out() + gst_util_uint64_scale(ringing, GST_SECOND, rate);
  drain(self, true);
  if (!has_end || silent >= time + duration) return event;
  gst_event_unref(event);
  return gst_event_new_gap(silent, time + duration - silent);
}

GstEvent* jurn::gst::handle_event(GstJurnBlocks* self, GstEvent* event) {
  BlocksState* const state = self->state;
  switch (GST_EVENT_TYPE(event)) {
    case GST_EVENT_EOS:
      drain(self, state->keeps_tail);
      break;
    case GST_EVENT_CAPS:
      if (changes_caps(&self->parent, event)) drain(self, state->keeps_tail);
      break;
    case GST_EVENT_STREAM_START:
      push_pending(self);
      break;
    case GST_EVENT_SEGMENT:
      push_pending(self);
      if (state->stream) state->stream->set_time(GST_CLOCK_TIME_NONE);
      state->is_new_segment = true;
      break;
    case GST_EVENT_GAP:
      return fill_gap(self, event);
    case GST_EVENT_FLUSH_STOP:
      forget(state);
      break;
    default:
      break;
  }
  return event;
}
