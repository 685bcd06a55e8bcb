/**
 * SECTION:element-jurnfilter
 *
 * FIR, IIR, sections and means on 16-bit and float audio, the same bits on every machine.
 *
 * |[
 * gst-launch-1.0 filesrc location=song.flac ! decodebin ! audioconvert !
 *   jurnfilter equaliser="PK 3k -4 Q 2; HS 8k 3" gain=-3.1 ! autoaudiosink
 * ]|
 */
#include "jurnfilter.h"

#include <algorithm>
#include <cstring>
#include <exception>
#include <memory>

#include "jurnfilter_state.h"

using jurn::gst::FilterState;
using jurn::gst::StreamFormat;

namespace {

GST_DEBUG_CATEGORY_STATIC(jurn_filter_debug);
#define GST_CAT_DEFAULT jurn_filter_debug

constexpr char kCaps[] = GST_AUDIO_CAPS_MAKE("{ " GST_AUDIO_NE(S16) ", " GST_AUDIO_NE(
    F32) " }") ", layout = (string) interleaved, channels = (int) [ 1, 64 ]";

}  // namespace

static jurn::gst::Bands* bands_of(GstChildProxy* proxy) {
  return &reinterpret_cast<GstJurnFilter*>(proxy)->state->bands;
}

static void add_children(gpointer interface, gpointer) {
  auto* const children = static_cast<GstChildProxyInterface*>(interface);
  children->get_child_by_index = [](GstChildProxy* proxy, guint index) {
    return bands_of(proxy)->child(index);
  };
  children->get_children_count = [](GstChildProxy* proxy) { return bands_of(proxy)->count(); };
}

G_DEFINE_TYPE_WITH_CODE(GstJurnFilter, gst_jurn_filter, GST_TYPE_AUDIO_FILTER,
                        G_IMPLEMENT_INTERFACE(GST_TYPE_CHILD_PROXY, add_children)
                            G_IMPLEMENT_INTERFACE(GST_TYPE_PRESET, jurn::gst::add_presets))
GST_ELEMENT_REGISTER_DEFINE(jurnfilter, "jurnfilter", GST_RANK_NONE, GST_TYPE_JURN_FILTER)

/** Tells the pipeline when another filter is late by another time. */
static void tell_latency(GstJurnFilter* self) {
  const int frames = self->state->running->latency();
  if (self->state->latency.exchange(frames) != frames)
    gst_element_post_message(GST_ELEMENT(self), gst_message_new_latency(GST_OBJECT(self)));
}

static gboolean setup(GstAudioFilter* filter, const GstAudioInfo* info) {
  GstJurnFilter* const self = GST_JURN_FILTER(filter);
  FilterState* const state = self->state;
  const int channels = GST_AUDIO_INFO_CHANNELS(info);
  const StreamFormat format{GST_AUDIO_INFO_RATE(info), channels, channels, 0,
                            GST_AUDIO_INFO_FORMAT(info) == GST_AUDIO_FORMAT_F32};
  try {
    state->running.reset();
    state->preparer.set_format(format);
    state->running = std::make_unique<jurn::ChangingStream>(
        state->preparer.offers(),
        state->preparer.first(
            "no filter: set location, coefficients, equaliser, or kind=average and length"));
    state->format = format;
    tell_latency(self);
    return TRUE;
  } catch (const std::exception& error) {
    GST_ELEMENT_ERROR(self, LIBRARY, SETTINGS, ("%s", error.what()), (nullptr));
    return FALSE;
  }
}

static gboolean start(GstBaseTransform* transform) {
  FilterState* const state = GST_JURN_FILTER(transform)->state;
  state->statistics.reset();
  state->preparer.set_format({});
  return TRUE;
}

static gboolean stop(GstBaseTransform* transform) {
  FilterState* const state = GST_JURN_FILTER(transform)->state;
  state->running.reset();
  state->started = false;
  state->is_new_segment = true;
  state->preparer.set_format({});
  return TRUE;
}

/** Filters and counts the frames of a mapped buffer. */
template <typename Sample>
static void process(GstJurnFilter* self, guint8* bytes, std::size_t size) {
  FilterState* const state = self->state;
  const std::size_t channels = static_cast<std::size_t>(state->format.inputs);
  const std::size_t values = size / sizeof(Sample) / channels * channels;
  Sample* const samples = static_cast<Sample*>(static_cast<void*>(bytes));
  state->running->process(samples, static_cast<int>(values / channels), samples);
  state->statistics.count(GST_ELEMENT(self), samples, values, channels, state->format.rate);
}

static void process_bytes(GstJurnFilter* self, guint8* bytes, std::size_t size) {
  self->state->format.is_float ? process<float>(self, bytes, size)
                               : process<short>(self, bytes, size);
}

/** What control sources say of a time. */
static void follow_controls(GstJurnFilter* self, GstClockTime time) {
  const GstClockTime stream_time =
      gst_segment_to_stream_time(&GST_BASE_TRANSFORM(self)->segment, GST_FORMAT_TIME, time);
  if (GST_CLOCK_TIME_IS_VALID(stream_time)) {
    gst_object_sync_values(GST_OBJECT(self), stream_time);
    self->state->bands.sync_values(stream_time);
  }
}

static GstFlowReturn transform_ip(GstBaseTransform* transform, GstBuffer* buffer) {
  GstJurnFilter* const self = GST_JURN_FILTER(transform);
  FilterState* const state = self->state;
  if (!state->running) return GST_FLOW_NOT_NEGOTIATED;
  // The first frames of a segment follow on those of the segment before.
  if (GST_BUFFER_IS_DISCONT(buffer) && !state->is_new_segment) state->running->reset();
  state->preparer.settle([&] {
    if (GST_BUFFER_PTS_IS_VALID(buffer)) follow_controls(self, GST_BUFFER_PTS(buffer));
  });
  GstMapInfo map;
  if (!gst_buffer_map(buffer, &map, GST_MAP_READWRITE)) return GST_FLOW_ERROR;
  process_bytes(self, map.data, map.size);
  gst_buffer_unmap(buffer, &map);
  tell_latency(self);
  state->started = true;
  state->is_new_segment = false;
  state->next_time = GST_CLOCK_TIME_NONE;
  if (GST_BUFFER_PTS_IS_VALID(buffer) && GST_BUFFER_DURATION_IS_VALID(buffer))
    state->next_time = GST_BUFFER_PTS(buffer) + GST_BUFFER_DURATION(buffer);
  return GST_FLOW_OK;
}

/** Returns to silence. */
static void forget(GstJurnFilter* self) {
  if (self->state->running) self->state->running->reset();
  self->state->started = false;
}

/** Runs `frames` frames of silence and pushes them. */
static void push_silence(GstJurnFilter* self, std::int64_t frames) {
  FilterState* const state = self->state;
  const std::size_t frame_bytes = static_cast<std::size_t>(state->format.inputs) *
                                  (state->format.is_float ? sizeof(float) : sizeof(short));
  jurn::gst::push_tail(GST_BASE_TRANSFORM(self), frames, frame_bytes, state->format.rate,
                       &state->next_time, [&](guint8* bytes, int count) {
                         const std::size_t size = static_cast<std::size_t>(count) * frame_bytes;
                         std::memset(bytes, 0, size);
                         process_bytes(self, bytes, size);
                       });
}

/** Puts out what rings on, once: the filter is silent afterwards. */
static void drain(GstJurnFilter* self) {
  FilterState* const state = self->state;
  if (!state->running || !state->started) return;
  if (state->keeps_tail) push_silence(self, state->running->tail());
  forget(self);
}

/** A gap is silence: the filter rings on into it. The rest of the gap, or null, passes on. */
static GstEvent* fill_gap(GstJurnFilter* self, GstEvent* event) {
  FilterState* const state = self->state;
  GstClockTime time, duration;
  gst_event_parse_gap(event, &time, &duration);
  if (!state->running || !state->started || !GST_CLOCK_TIME_IS_VALID(time)) return event;
  const guint64 rate = static_cast<guint64>(state->format.rate);
  const std::int64_t tail = state->running->tail();
  std::int64_t frames = tail;
  if (GST_CLOCK_TIME_IS_VALID(duration))
    frames = std::min(
        tail, static_cast<std::int64_t>(gst_util_uint64_scale_round(duration, rate, GST_SECOND)));
  state->next_time = time;
  push_silence(self, frames);
  if (frames == tail) forget(self);
  const GstClockTime end = GST_CLOCK_TIME_IS_VALID(duration) ? time + duration : duration;
  GstEvent* rest = nullptr;
  if (frames == tail && (!GST_CLOCK_TIME_IS_VALID(end) || state->next_time < end))
    rest = gst_event_new_gap(state->next_time, GST_CLOCK_TIME_IS_VALID(end) ? end - state->next_time
                                                                            : GST_CLOCK_TIME_NONE);
  gst_event_unref(event);
  return rest;
}

static gboolean sink_event(GstBaseTransform* transform, GstEvent* event) {
  GstJurnFilter* const self = GST_JURN_FILTER(transform);
  switch (GST_EVENT_TYPE(event)) {
    case GST_EVENT_EOS:
      drain(self);
      break;
    case GST_EVENT_CAPS:
      if (jurn::gst::changes_caps(transform, event)) drain(self);
      break;
    case GST_EVENT_SEGMENT:
      self->state->is_new_segment = true;
      break;
    case GST_EVENT_GAP:
      event = fill_gap(self, event);
      if (!event) return TRUE;
      break;
    case GST_EVENT_FLUSH_STOP:
      forget(self);
      break;
    default:
      break;
  }
  return GST_BASE_TRANSFORM_CLASS(gst_jurn_filter_parent_class)->sink_event(transform, event);
}

static gboolean query(GstBaseTransform* transform, GstPadDirection direction, GstQuery* asked) {
  if (direction != GST_PAD_SRC || GST_QUERY_TYPE(asked) != GST_QUERY_LATENCY)
    return GST_BASE_TRANSFORM_CLASS(gst_jurn_filter_parent_class)
        ->query(transform, direction, asked);
  FilterState* const state = GST_JURN_FILTER(transform)->state;
  return jurn::gst::answer_latency(transform, asked, state->latency, state->preparer.format().rate);
}

static void finalize(GObject* object) {
  delete GST_JURN_FILTER(object)->state;
  G_OBJECT_CLASS(gst_jurn_filter_parent_class)->finalize(object);
}

static void gst_jurn_filter_init(GstJurnFilter* self) {
  self->state = new FilterState(GST_ELEMENT(self));
}

static void gst_jurn_filter_class_init(GstJurnFilterClass* klass) {
  GST_DEBUG_CATEGORY_INIT(jurn_filter_debug, "jurnfilter", 0, "filters with exact bits");
  GObjectClass* const object_class = G_OBJECT_CLASS(klass);
  object_class->finalize = finalize;
  jurn::gst::install_filter_properties(object_class);

  GstElementClass* const element_class = GST_ELEMENT_CLASS(klass);
  gst_element_class_set_static_metadata(
      element_class, "JURN filter", "Filter/Effect/Audio",
      "FIR, IIR, sections or mean on 16-bit and float audio, the same bits on every machine",
      "the JURN authors");
  GstCaps* const caps = gst_caps_from_string(kCaps);
  gst_audio_filter_class_add_pad_templates(GST_AUDIO_FILTER_CLASS(klass), caps);
  gst_caps_unref(caps);

  GstBaseTransformClass* const transform_class = GST_BASE_TRANSFORM_CLASS(klass);
  transform_class->start = start;
  transform_class->stop = stop;
  transform_class->transform_ip = transform_ip;
  transform_class->sink_event = sink_event;
  transform_class->query = query;
  GST_AUDIO_FILTER_CLASS(klass)->setup = setup;
}
