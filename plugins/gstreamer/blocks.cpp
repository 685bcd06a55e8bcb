#include "blocks.h"

#include <utility>

#include "blocks_stream.h"

using jurn::gst::BlocksState;
using jurn::gst::StreamFormat;

namespace jurn::gst {

void set_preparer(GstJurnBlocks* self, std::unique_ptr<Preparer> preparer) {
  self->state->preparer = std::move(preparer);
}

Preparer* preparer_of(GstJurnBlocks* self) {
  return self->state->preparer.get();
}

void install_blocks_properties(GObjectClass* object_class, int most_block) {
  reinterpret_cast<GstJurnBlocksClass*>(object_class)->most_block = most_block;
  constexpr auto flags = static_cast<GParamFlags>(G_PARAM_READWRITE | G_PARAM_STATIC_STRINGS |
                                                  GST_PARAM_MUTABLE_READY);
  g_object_class_install_property(
      object_class, kBlock,
      g_param_spec_int("block", "Block",
                       "Frames of a block; 0 takes the first buffer's. Buffers that are no "
                       "multiples of it cost a latency of one block",
                       0, most_block, 0, flags));
  install_common(object_class, kTail);
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

static gboolean set_caps(GstBaseTransform* transform, GstCaps* in, GstCaps* out) {
  BlocksState* const state = GST_JURN_BLOCKS(transform)->state;
  GstAudioInfo in_info, out_info;
  if (!gst_audio_info_from_caps(&in_info, in) || !gst_audio_info_from_caps(&out_info, out))
    return FALSE;
  state->stream.reset();  // made anew for the first buffer
  state->started = false;
  state->preparer->set_format({GST_AUDIO_INFO_RATE(&in_info), GST_AUDIO_INFO_CHANNELS(&in_info),
                               GST_AUDIO_INFO_CHANNELS(&out_info), 0,
                               GST_AUDIO_INFO_FORMAT(&in_info) == GST_AUDIO_FORMAT_F32});
  return TRUE;
}

static gboolean get_unit_size(GstBaseTransform*, GstCaps* caps, gsize* size) {
  GstAudioInfo info;
  if (!gst_audio_info_from_caps(&info, caps)) return FALSE;
  *size = static_cast<gsize>(GST_AUDIO_INFO_BPF(&info));
  return TRUE;
}

/** What comes in and what goes out differ in length and caps: upstream takes memory of its own. */
static gboolean propose_allocation(GstBaseTransform*, GstQuery*, GstQuery*) {
  return TRUE;
}

static gboolean sink_event(GstBaseTransform* transform, GstEvent* event) {
  event = jurn::gst::handle_event(GST_JURN_BLOCKS(transform), event);
  if (!event) return TRUE;
  return GST_BASE_TRANSFORM_CLASS(gst_jurn_blocks_parent_class)->sink_event(transform, event);
}

static gboolean query(GstBaseTransform* transform, GstPadDirection direction, GstQuery* asked) {
  GstJurnBlocks* const self = GST_JURN_BLOCKS(transform);
  if (direction != GST_PAD_SRC || GST_QUERY_TYPE(asked) != GST_QUERY_LATENCY)
    return GST_BASE_TRANSFORM_CLASS(gst_jurn_blocks_parent_class)
        ->query(transform, direction, asked);
  const StreamFormat format = self->state->preparer->format();
  const int block = self->state->regroups ? format.block : 0;
  return jurn::gst::answer_latency(transform, asked, block + self->state->late, format.rate);
}

static gboolean start(GstBaseTransform* transform) {
  BlocksState* const state = GST_JURN_BLOCKS(transform)->state;
  state->statistics.reset();
  state->preparer->set_format({});
  return TRUE;
}

static gboolean stop(GstBaseTransform* transform) {
  BlocksState* const state = GST_JURN_BLOCKS(transform)->state;
  state->stream.reset();
  state->started = false;
  state->is_new_segment = true;
  state->regroups = false;
  state->preparer->set_format({});
  jurn::gst::free_pool(state);
  return TRUE;
}

/** Files are read while the pipeline is made ready. */
static GstStateChangeReturn change_state(GstElement* element, GstStateChange change) {
  if (change == GST_STATE_CHANGE_NULL_TO_READY)
    GST_JURN_BLOCKS(element)->state->preparer->request();
  return GST_ELEMENT_CLASS(gst_jurn_blocks_parent_class)->change_state(element, change);
}

static void finalize(GObject* object) {
  delete GST_JURN_BLOCKS(object)->state;
  G_OBJECT_CLASS(gst_jurn_blocks_parent_class)->finalize(object);
}

static void gst_jurn_blocks_init(GstJurnBlocks* self) {
  self->state = new BlocksState;
}

static void gst_jurn_blocks_class_init(GstJurnBlocksClass* klass) {
  G_OBJECT_CLASS(klass)->finalize = finalize;
  GST_ELEMENT_CLASS(klass)->change_state = change_state;
  GstBaseTransformClass* const transform_class = GST_BASE_TRANSFORM_CLASS(klass);
  transform_class->set_caps = set_caps;
  transform_class->get_unit_size = get_unit_size;
  transform_class->propose_allocation = propose_allocation;
  transform_class->generate_output = jurn::gst::generate_output;
  transform_class->sink_event = sink_event;
  transform_class->query = query;
  transform_class->start = start;
  transform_class->stop = stop;
}
