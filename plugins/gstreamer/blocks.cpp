#include "blocks.h"

#include <algorithm>
#include <cstring>
#include <exception>
#include <mutex>

#include "Convolution_control.h"

using jurn::gst::Blocks;
using jurn::gst::BlocksState;

namespace jurn::gst {

struct BlocksState {
  std::mutex mutex;  // of caps and block, which other threads read
  Caps caps;
  int block = 0;

  std::atomic<int> wanted_block{0};
  std::atomic<bool> keeps_tail{true};
  std::atomic<bool> regroups{false};
  Statistics statistics;

  // The streaming thread's own.
  std::unique_ptr<Blocks> blocks;
  std::vector<guint8> pending;     // the begin of a block
  std::size_t pending_frames = 0;  // of those
  std::vector<guint8> completed;   // a block's output, of which only a part is wanted
  GstBufferPool* pool = nullptr;
  std::size_t pool_bytes = 0;
  GstClockTime next_time = GST_CLOCK_TIME_NONE;  // of the next output frame
  bool started = false;                          // since the last silence

  std::size_t sample_bytes() const { return caps.is_float ? sizeof(float) : sizeof(short); }
  std::size_t in_bytes() const { return sample_bytes() * static_cast<std::size_t>(caps.inputs); }
  std::size_t out_bytes() const { return sample_bytes() * static_cast<std::size_t>(caps.outputs); }
};

Caps current_caps(GstJurnBlocks* self) {
  const std::lock_guard<std::mutex> lock(self->state->mutex);
  return self->state->caps;
}

int current_block(GstJurnBlocks* self) {
  const std::lock_guard<std::mutex> lock(self->state->mutex);
  return self->state->block;
}

int block_for(GstJurnBlocks* self, int frames, int most) {
  constexpr int kLeast = 64;
  if (const int wanted = self->state->wanted_block) return std::min(wanted, most);
  for (int parts = 1; frames / parts >= kLeast; ++parts)
    if (frames % parts == 0 && frames / parts <= most) return frames / parts;
  return std::clamp(frames, kLeast, 1024);
}

GstCaps* with_channels(GstCaps* caps, GstCaps* filter, int count, GstPadDirection of) {
  GstCaps* result = gst_caps_new_empty();
  for (guint i = 0; i < gst_caps_get_size(caps); ++i) {
    GstStructure* const structure = gst_structure_copy(gst_caps_get_structure(caps, i));
    gst_structure_set(structure, "channels", G_TYPE_INT, count, nullptr);
    gst_structure_remove_field(structure, "channel-mask");
    if (count > 2 && of == GST_PAD_SRC) {
      // The usual loudspeakers, or none in particular.
      if (const guint64 usual = gst_audio_channel_get_fallback_mask(count)) {
        GstStructure* const placed = gst_structure_copy(structure);
        gst_structure_set(placed, "channel-mask", GST_TYPE_BITMASK, usual, nullptr);
        gst_caps_append_structure(result, placed);
      }
      gst_structure_set(structure, "channel-mask", GST_TYPE_BITMASK, guint64{0}, nullptr);
    }
    gst_caps_append_structure(result, structure);
  }
  if (filter) {
    GstCaps* const within = gst_caps_intersect_full(filter, result, GST_CAPS_INTERSECT_FIRST);
    gst_caps_unref(result);
    result = within;
  }
  return result;
}

void add_pad_templates(GstElementClass* element_class, const char* sink, const char* source) {
  const auto add = [&](const char* name, GstPadDirection direction, const char* text) {
    GstCaps* const caps = gst_caps_from_string(text);
    gst_element_class_add_pad_template(element_class,
                                       gst_pad_template_new(name, direction, GST_PAD_ALWAYS, caps));
    gst_caps_unref(caps);
  };
  add("sink", GST_PAD_SINK, sink);
  add("src", GST_PAD_SRC, source);
}

void end_stream(GstJurnBlocks* self) {
  const std::lock_guard<std::mutex> lock(self->state->mutex);
  self->state->blocks.reset();
  self->state->caps = {};
  self->state->block = 0;
}

void install_blocks_properties(GObjectClass* object_class) {
  constexpr auto flags = static_cast<GParamFlags>(G_PARAM_READWRITE | G_PARAM_STATIC_STRINGS |
                                                  GST_PARAM_MUTABLE_READY);
  g_object_class_install_property(
      object_class, kBlock,
      g_param_spec_int("block", "Block",
                       "Frames of a block; 0 takes the first buffer's. Buffers that are no "
                       "multiples of it cost a latency of one block",
                       0, JURN_CONVOLUTION_BLOCK, 0, flags));
  g_object_class_install_property(
      object_class, kTail,
      g_param_spec_boolean(
          "tail", "Tail",
          "Whether the stream ends when the filter has rung out, not with its input", TRUE,
          static_cast<GParamFlags>(flags | GST_PARAM_MUTABLE_PLAYING)));
  install_statistics(object_class, kStatistics, kStatisticsInterval);
}

bool set_blocks_property(GObject* object, guint id, const GValue* value) {
  BlocksState* const state = GST_JURN_BLOCKS(object)->state;
  switch (id) {
    case kBlock:
      state->wanted_block = g_value_get_int(value);
      return true;
    case kTail:
      state->keeps_tail = g_value_get_boolean(value);
      return true;
    case kStatisticsInterval:
      state->statistics.set_interval(g_value_get_uint64(value));
      return true;
    default:
      return false;
  }
}

bool get_blocks_property(GObject* object, guint id, GValue* value) {
  BlocksState* const state = GST_JURN_BLOCKS(object)->state;
  switch (id) {
    case kBlock:
      g_value_set_int(value, state->wanted_block);
      return true;
    case kTail:
      g_value_set_boolean(value, state->keeps_tail);
      return true;
    case kStatistics:
      g_value_take_boxed(value, state->statistics.structure());
      return true;
    case kStatisticsInterval:
      g_value_set_uint64(value, state->statistics.interval());
      return true;
    default:
      return false;
  }
}

}  // namespace jurn::gst

G_DEFINE_ABSTRACT_TYPE(GstJurnBlocks, gst_jurn_blocks, GST_TYPE_BASE_TRANSFORM)

static void free_pool(BlocksState* state) {
  if (!state->pool) return;
  gst_buffer_pool_set_active(state->pool, FALSE);
  gst_object_unref(state->pool);
  state->pool = nullptr;
  state->pool_bytes = 0;
}

/** A buffer of `bytes`, from a pool that grows only when a larger one than ever is wanted. */
static GstBuffer* new_buffer(BlocksState* state, std::size_t bytes) {
  if (bytes > state->pool_bytes) {
    free_pool(state);
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

static void forget(BlocksState* state) {
  state->pending_frames = 0;
  state->next_time = GST_CLOCK_TIME_NONE;
  state->started = false;
  if (state->blocks) state->blocks->reset();
}

static gboolean set_caps(GstBaseTransform* transform, GstCaps* in, GstCaps* out) {
  BlocksState* const state = GST_JURN_BLOCKS(transform)->state;
  GstAudioInfo in_info, out_info;
  if (!gst_audio_info_from_caps(&in_info, in) || !gst_audio_info_from_caps(&out_info, out))
    return FALSE;
  const std::lock_guard<std::mutex> lock(state->mutex);
  state->caps = {GST_AUDIO_INFO_RATE(&in_info), GST_AUDIO_INFO_CHANNELS(&in_info),
                 GST_AUDIO_INFO_CHANNELS(&out_info),
                 GST_AUDIO_INFO_FORMAT(&in_info) == GST_AUDIO_FORMAT_F32};
  state->block = 0;
  state->blocks.reset();  // made anew for the first buffer
  forget(state);
  return TRUE;
}

static gboolean get_unit_size(GstBaseTransform*, GstCaps* caps, gsize* size) {
  GstAudioInfo info;
  if (!gst_audio_info_from_caps(&info, caps)) return FALSE;
  *size = static_cast<gsize>(GST_AUDIO_INFO_BPF(&info));
  return TRUE;
}

static bool make_blocks(GstJurnBlocks* self, std::size_t frames) {
  BlocksState* const state = self->state;
  try {
    state->blocks =
        GST_JURN_BLOCKS_GET_CLASS(self)->make(self, state->caps, static_cast<int>(frames));
  } catch (const std::exception& error) {
    GST_ELEMENT_ERROR(self, LIBRARY, SETTINGS, ("%s", error.what()), (nullptr));
    return false;
  }
  const int block = state->blocks->block;
  state->pending.resize(static_cast<std::size_t>(block) * state->in_bytes());
  state->completed.resize(static_cast<std::size_t>(block) * state->out_bytes());
  state->regroups = false;
  const std::lock_guard<std::mutex> lock(state->mutex);
  state->block = block;
  return true;
}

/** Gives the next `frames` output frames their time. */
static void stamp(BlocksState* state, GstBuffer* buffer, std::size_t frames) {
  GST_BUFFER_PTS(buffer) = state->next_time;
  GST_BUFFER_DURATION(buffer) =
      gst_util_uint64_scale(frames, GST_SECOND, static_cast<guint64>(state->caps.rate));
  if (GST_CLOCK_TIME_IS_VALID(state->next_time)) state->next_time += GST_BUFFER_DURATION(buffer);
}

template <typename Sample>
static void count(GstJurnBlocks* self, const guint8* bytes, std::size_t frames) {
  const std::size_t channels = static_cast<std::size_t>(self->state->caps.outputs);
  self->state->statistics.count(GST_ELEMENT(self),
                                static_cast<const Sample*>(static_cast<const void*>(bytes)),
                                frames * channels, channels, self->state->caps.rate);
}

static void count(GstJurnBlocks* self, const guint8* bytes, std::size_t frames) {
  self->state->caps.is_float ? count<float>(self, bytes, frames)
                             : count<short>(self, bytes, frames);
}

/** The stream time of the output frame `frames` after the next one. */
static GstClockTime stream_time(GstJurnBlocks* self, std::size_t frames) {
  const BlocksState* const state = self->state;
  if (!GST_CLOCK_TIME_IS_VALID(state->next_time)) return GST_CLOCK_TIME_NONE;
  const GstClockTime ahead =
      gst_util_uint64_scale(frames, GST_SECOND, static_cast<guint64>(state->caps.rate));
  return gst_segment_to_stream_time(&self->parent.segment, GST_FORMAT_TIME,
                                    state->next_time + ahead);
}

/** Runs the blocks that `frames` frames complete. */
static void run_blocks(GstJurnBlocks* self, const guint8* in, std::size_t frames, guint8* out) {
  BlocksState* const state = self->state;
  const std::size_t block = static_cast<std::size_t>(state->blocks->block);
  const std::size_t in_bytes = state->in_bytes();
  std::size_t produced = 0;
  const auto run = [&](const guint8* samples) {
    state->blocks->process(samples, out + produced * state->out_bytes(),
                           stream_time(self, produced));
    produced += block;
  };
  while (frames > 0) {
    if (state->pending_frames == 0 && frames >= block) {
      run(in);
      in += block * in_bytes;
      frames -= block;
      continue;
    }
    const std::size_t taken = std::min(frames, block - state->pending_frames);
    std::memcpy(state->pending.data() + state->pending_frames * in_bytes, in, taken * in_bytes);
    in += taken * in_bytes;
    frames -= taken;
    state->pending_frames += taken;
    if (state->pending_frames < block) break;
    run(state->pending.data());
    state->pending_frames = 0;
  }
}

/** Pushes what the pending frames give, and `tail` frames more; then there is silence. */
static void drain(GstJurnBlocks* self, bool with_tail) {
  BlocksState* const state = self->state;
  if (!state->blocks || !state->started) return;
  const std::int64_t rest = static_cast<std::int64_t>(state->pending_frames) +
                            (with_tail && state->keeps_tail ? state->blocks->tail() : 0);
  const std::size_t block = static_cast<std::size_t>(state->blocks->block);
  std::size_t used = block;  // frames of `completed`
  const auto fill = [&](guint8* bytes, int frames) {
    for (std::size_t i = 0; i < static_cast<std::size_t>(frames); ++i, ++used) {
      if (used == block) {
        const std::size_t from = state->pending_frames * state->in_bytes();
        std::memset(state->pending.data() + from, 0, state->pending.size() - from);
        state->blocks->process(state->pending.data(), state->completed.data(),
                               stream_time(self, i));
        state->pending_frames = 0;
        used = 0;
      }
      std::memcpy(bytes + i * state->out_bytes(),
                  state->completed.data() + used * state->out_bytes(), state->out_bytes());
    }
    count(self, bytes, static_cast<std::size_t>(frames));
  };
  jurn::gst::push_tail(GST_BASE_TRANSFORM(self), rest, state->out_bytes(), state->caps.rate,
                       &state->next_time, fill);
  forget(state);
}

static GstFlowReturn generate_output(GstBaseTransform* transform, GstBuffer** result) {
  GstJurnBlocks* const self = GST_JURN_BLOCKS(transform);
  BlocksState* const state = self->state;
  GstBuffer* const input = transform->queued_buf;
  transform->queued_buf = nullptr;
  *result = nullptr;
  if (!input) return GST_FLOW_OK;

  if (GST_BUFFER_IS_DISCONT(input)) drain(self, false);
  GstMapInfo in;
  if (!gst_buffer_map(input, &in, GST_MAP_READ)) {
    gst_buffer_unref(input);
    return GST_FLOW_ERROR;
  }
  GstFlowReturn flow = GST_FLOW_OK;
  const std::size_t frames = in.size / state->in_bytes();
  if (!state->blocks && frames > 0 && !make_blocks(self, frames)) flow = GST_FLOW_ERROR;
  if (state->blocks && frames > 0) {
    const std::size_t block = static_cast<std::size_t>(state->blocks->block);
    if (!state->started) state->next_time = GST_BUFFER_PTS(input);
    state->started = true;
    if (frames % block != 0 && !state->regroups.exchange(true))
      gst_element_post_message(GST_ELEMENT(self), gst_message_new_latency(GST_OBJECT(self)));
    const std::size_t ready = (state->pending_frames + frames) / block * block;
    GstMapInfo out{};
    GstBuffer* const output = ready ? new_buffer(state, ready * state->out_bytes()) : nullptr;
    if (ready && (!output || !gst_buffer_map(output, &out, GST_MAP_WRITE))) {
      flow = GST_FLOW_ERROR;
    } else {
      run_blocks(self, in.data, frames, out.data);
    }
    if (out.data) {
      count(self, out.data, ready);
      gst_buffer_unmap(output, &out);
      stamp(state, output, ready);
      *result = output;
    }
  }
  gst_buffer_unmap(input, &in);
  gst_buffer_unref(input);
  return flow;
}

static gboolean sink_event(GstBaseTransform* transform, GstEvent* event) {
  GstJurnBlocks* const self = GST_JURN_BLOCKS(transform);
  switch (GST_EVENT_TYPE(event)) {
    case GST_EVENT_EOS:
      drain(self, true);
      break;
    case GST_EVENT_CAPS:
      if (jurn::gst::changes_caps(transform, event)) drain(self, true);
      break;
    case GST_EVENT_FLUSH_STOP:
      forget(self->state);
      break;
    default:
      break;
  }
  return GST_BASE_TRANSFORM_CLASS(gst_jurn_blocks_parent_class)->sink_event(transform, event);
}

static gboolean query(GstBaseTransform* transform, GstPadDirection direction, GstQuery* asked) {
  GstJurnBlocks* const self = GST_JURN_BLOCKS(transform);
  if (direction != GST_PAD_SRC || GST_QUERY_TYPE(asked) != GST_QUERY_LATENCY)
    return GST_BASE_TRANSFORM_CLASS(gst_jurn_blocks_parent_class)
        ->query(transform, direction, asked);
  if (!gst_pad_peer_query(GST_BASE_TRANSFORM_SINK_PAD(transform), asked)) return FALSE;
  gboolean live;
  GstClockTime least, most;
  gst_query_parse_latency(asked, &live, &least, &most);
  if (self->state->regroups) {
    const jurn::gst::Caps caps = jurn::gst::current_caps(self);
    const GstClockTime added =
        gst_util_uint64_scale_ceil(static_cast<guint64>(jurn::gst::current_block(self)), GST_SECOND,
                                   static_cast<guint64>(std::max(caps.rate, 1)));
    least += added;
    if (GST_CLOCK_TIME_IS_VALID(most)) most += added;
  }
  gst_query_set_latency(asked, live, least, most);
  return TRUE;
}

static gboolean start(GstBaseTransform* transform) {
  GST_JURN_BLOCKS(transform)->state->statistics.reset();
  return TRUE;
}

static gboolean stop(GstBaseTransform* transform) {
  BlocksState* const state = GST_JURN_BLOCKS(transform)->state;
  jurn::gst::end_stream(GST_JURN_BLOCKS(transform));
  state->regroups = false;
  forget(state);
  free_pool(state);
  return TRUE;
}

static void finalize(GObject* object) {
  delete GST_JURN_BLOCKS(object)->state;
  G_OBJECT_CLASS(gst_jurn_blocks_parent_class)->finalize(object);
}

static void gst_jurn_blocks_init(GstJurnBlocks* self) {
  self->state = new BlocksState;
  gst_base_transform_set_in_place(&self->parent, FALSE);
  gst_base_transform_set_passthrough(&self->parent, FALSE);
}

static void gst_jurn_blocks_class_init(GstJurnBlocksClass* klass) {
  G_OBJECT_CLASS(klass)->finalize = finalize;
  GstBaseTransformClass* const transform_class = GST_BASE_TRANSFORM_CLASS(klass);
  transform_class->set_caps = set_caps;
  transform_class->get_unit_size = get_unit_size;
  transform_class->generate_output = generate_output;
  transform_class->sink_event = sink_event;
  transform_class->query = query;
  transform_class->start = start;
  transform_class->stop = stop;
}
