/**
 * SECTION:element-jurnfilter
 *
 * FIR, IIR, sections and means on 16-bit and float audio, the same bits on every machine.
 *
 * |[
 * gst-launch-1.0 filesrc location=song.flac ! decodebin ! audioconvert !
 *   jurnfilter equaliser="PK 3k -4 Q 2; HS 8k 3" ! autoaudiosink
 * ]|
 */
#include "jurnfilter.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <exception>
#include <memory>
#include <string>
#include <vector>

#include "changing_stream.h"
#include "element.h"
#include "filter_source.h"
#include "jurnfilter_bands.h"

using jurn::gst::FilterPreparer;
using jurn::gst::FilterSource;
using jurn::gst::Kind;
using jurn::gst::OfferedFilter;
using jurn::gst::StreamFormat;

namespace {

GST_DEBUG_CATEGORY_STATIC(jurn_filter_debug);
#define GST_CAT_DEFAULT jurn_filter_debug

enum Property {
  kLocation = 1,
  kKindOfFilter,
  kCoefficients,
  kEqualiser,
  kGain,
  kLength,
  kPrecision,
  kTail,
  kStatistics,
  kStatisticsInterval
};

constexpr char kCaps[] = GST_AUDIO_CAPS_MAKE("{ " GST_AUDIO_NE(S16) ", " GST_AUDIO_NE(
    F32) " }") ", layout = (string) interleaved, channels = (int) [ 1, 64 ]";

GType kind_type() {
  static const GEnumValue values[] = {
      {static_cast<gint>(Kind::kAutomatic), "What the file or the arrays look like", "automatic"},
      {static_cast<gint>(Kind::kFir), "Taps", "fir"},
      {static_cast<gint>(Kind::kIir), "Numerator and denominator", "iir"},
      {static_cast<gint>(Kind::kSections), "Second-order sections", "sections"},
      {static_cast<gint>(Kind::kAverage), "Mean of the last length samples", "average"},
      {0, nullptr, nullptr}};
  static const GType type = g_enum_register_static("GstJurnFilterKind", values);
  return type;
}

/** What an element holds beside its base class. */
struct State {
  explicit State(GstElement* element) : preparer(element), bands(element, &preparer) {}

  FilterPreparer preparer;
  jurn::gst::Bands bands;
  std::atomic<bool> keeps_tail{true};
  jurn::gst::Statistics statistics;

  // The streaming thread's own.
  std::unique_ptr<jurn::gst::ChangingStream> running;
  StreamFormat format;
  GstClockTime next_time = GST_CLOCK_TIME_NONE;  // of the next frame
  bool started = false;                          // since the last silence
  bool is_new_segment = true;                    // until its first frame
};

}  // namespace

struct _GstJurnFilter {
  GstAudioFilter parent;
  State* state;
};

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

static void set_property(GObject* object, guint id, const GValue* value, GParamSpec* spec) {
  GstJurnFilter* const self = GST_JURN_FILTER(object);
  const auto change = [&](auto what) { self->state->preparer.change(what); };
  switch (id) {
    case kLocation:
      return change([&](FilterSource* s) { s->set_file(jurn::gst::text_of(value)); });
    case kKindOfFilter:
      return change([&](FilterSource* s) { s->kind = static_cast<Kind>(g_value_get_enum(value)); });
    case kCoefficients:
      return change([&](FilterSource* s) { s->set_coefficients(value); });
    case kEqualiser:
      return change([&](FilterSource* s) { s->set_equaliser(jurn::gst::text_of(value)); });
    case kGain:
      return change([&](FilterSource* s) { s->gain_db = g_value_get_double(value); });
    case kLength:
      return change([&](FilterSource* s) { s->length = g_value_get_int(value); });
    case kPrecision:
      return change([&](FilterSource* s) { s->precision = jurn::gst::precision_of(value); });
    case kTail:
      self->state->keeps_tail = g_value_get_boolean(value);
      return;
    case kStatisticsInterval:
      self->state->statistics.set_interval(g_value_get_uint64(value));
      return;
    default:
      G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, spec);
  }
}

static void get_property(GObject* object, guint id, GValue* value, GParamSpec* spec) {
  GstJurnFilter* const self = GST_JURN_FILTER(object);
  const FilterSource source = self->state->preparer.settings();
  switch (id) {
    case kLocation:
      return g_value_set_string(value, source.file().c_str());
    case kKindOfFilter:
      return g_value_set_enum(value, static_cast<gint>(source.kind));
    case kCoefficients:
      return source.get_coefficients(value);
    case kEqualiser:
      return g_value_set_string(value, source.equaliser().c_str());
    case kGain:
      return g_value_set_double(value, source.gain_db);
    case kLength:
      return g_value_set_int(value, source.length);
    case kPrecision:
      return g_value_set_enum(value, static_cast<gint>(source.precision));
    case kTail:
      return g_value_set_boolean(value, self->state->keeps_tail);
    case kStatistics:
      return g_value_take_boxed(value, self->state->statistics.structure());
    case kStatisticsInterval:
      return g_value_set_uint64(value, self->state->statistics.interval());
    default:
      G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, spec);
  }
}

static gboolean setup(GstAudioFilter* filter, const GstAudioInfo* info) {
  GstJurnFilter* const self = GST_JURN_FILTER(filter);
  State* const state = self->state;
  const int channels = GST_AUDIO_INFO_CHANNELS(info);
  const StreamFormat format{GST_AUDIO_INFO_RATE(info), channels, channels, 0,
                            GST_AUDIO_INFO_FORMAT(info) == GST_AUDIO_FORMAT_F32};
  try {
    state->running.reset();
    state->preparer.set_format(format);
    state->running = std::make_unique<jurn::gst::ChangingStream>(
        &state->preparer,
        state->preparer.first<OfferedFilter>(
            "no filter: set location, coefficients, equaliser, or kind=average and length"));
    state->format = format;
    return TRUE;
  } catch (const std::exception& error) {
    GST_ELEMENT_ERROR(self, LIBRARY, SETTINGS, ("%s", error.what()), (nullptr));
    return FALSE;
  }
}

static gboolean start(GstBaseTransform* transform) {
  State* const state = GST_JURN_FILTER(transform)->state;
  state->statistics.reset();
  state->preparer.set_format({});
  return TRUE;
}

static gboolean stop(GstBaseTransform* transform) {
  State* const state = GST_JURN_FILTER(transform)->state;
  state->running.reset();
  state->started = false;
  state->is_new_segment = true;
  state->preparer.set_format({});
  return TRUE;
}

/** Filters and counts the frames of a mapped buffer. */
template <typename Sample>
static void process(GstJurnFilter* self, guint8* bytes, std::size_t size) {
  State* const state = self->state;
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
  State* const state = self->state;
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
  State* const state = self->state;
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
  State* const state = self->state;
  if (!state->running || !state->started) return;
  if (state->keeps_tail) push_silence(self, state->running->tail());
  forget(self);
}

/** A gap is silence: the filter rings on into it. The rest of the gap, or null, passes on. */
static GstEvent* fill_gap(GstJurnFilter* self, GstEvent* event) {
  State* const state = self->state;
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

static void finalize(GObject* object) {
  delete GST_JURN_FILTER(object)->state;
  G_OBJECT_CLASS(gst_jurn_filter_parent_class)->finalize(object);
}

static void gst_jurn_filter_init(GstJurnFilter* self) {
  self->state = new State(GST_ELEMENT(self));
}

static void gst_jurn_filter_class_init(GstJurnFilterClass* klass) {
  GST_DEBUG_CATEGORY_INIT(jurn_filter_debug, "jurnfilter", 0, "filters with exact bits");
  GObjectClass* const object_class = G_OBJECT_CLASS(klass);
  object_class->set_property = set_property;
  object_class->get_property = get_property;
  object_class->finalize = finalize;

  constexpr auto flags = static_cast<GParamFlags>(G_PARAM_READWRITE | G_PARAM_STATIC_STRINGS |
                                                  GST_PARAM_MUTABLE_PLAYING);
  const auto install = [&](Property id, GParamSpec* spec) {
    g_object_class_install_property(object_class, id, spec);
  };
  install(kLocation, g_param_spec_string("location", "Location",
                                         "Coefficient file in any format that jurn-filter reads; "
                                         "replaces coefficients and equaliser",
                                         nullptr, flags));
  install(kKindOfFilter, g_param_spec_enum("kind", "Kind", "What the coefficients are", kind_type(),
                                           static_cast<gint>(Kind::kAutomatic), flags));
  install(
      kCoefficients,
      gst_param_spec_array(
          "coefficients", "Coefficients",
          "One array of taps, two of numerator and denominator, or one of six for each section: "
          "<<0.5,0.5>>, <<b0,b1>,<1,a1>>, <<b0,b1,b2,1,a1,a2>,...>; replaces location and "
          "equaliser",
          gst_param_spec_array("set", "Set", "Coefficients of a set",
                               g_param_spec_double("coefficient", "Coefficient", "A coefficient",
                                                   -G_MAXDOUBLE, G_MAXDOUBLE, 0.0, flags),
                               flags),
          flags));
  install(kEqualiser,
          g_param_spec_string("equaliser", "Equaliser",
                              "Lines of an equaliser, like PK 3k -4 Q 2; HS 8k 3, each "
                              "a child band0, band1 ...; replaces location and coefficients",
                              nullptr, flags));
  install(kGain, g_param_spec_double("gain", "Gain", "Gain of the filter in dB", -200.0, 200.0, 0.0,
                                     static_cast<GParamFlags>(flags | GST_PARAM_CONTROLLABLE)));
  install(kLength, g_param_spec_int("length", "Length", "Samples of the mean, with kind=average", 1,
                                    jurn::gst::kMostAveraged, 1, flags));
  install(kPrecision, jurn::gst::precision_spec(
                          "double, the result rounded to its samples; or int16: 16 bits in and out "
                          "and float inside, as on a device"));
  install(kTail, g_param_spec_boolean("tail", "Tail",
                                      "Whether the stream ends when the filter has rung out, not "
                                      "with its input",
                                      TRUE, flags));
  jurn::gst::install_statistics(object_class, kStatistics, kStatisticsInterval);

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
  GST_AUDIO_FILTER_CLASS(klass)->setup = setup;
}
