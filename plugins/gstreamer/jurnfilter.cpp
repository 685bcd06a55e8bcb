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

#include <atomic>
#include <cstring>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <vector>

#include "element.h"
#include "filter_source.h"

using jurn::gst::FadingFilter;
using jurn::gst::FilterSource;
using jurn::gst::Handover;
using jurn::gst::Kind;
using jurn::gst::PreparedFilter;

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

/** Everything that the streaming thread owns. */
struct Running {
  explicit Running(Handover<PreparedFilter>* handover, const jurn::gst::Stream& s)
      : stream(s), int16(handover, s.channels), floats(handover, s.channels) {}

  jurn::gst::Stream stream;
  FadingFilter<short> int16;
  FadingFilter<float> floats;

  void process(short* samples, int frames) { int16.process(samples, frames); }
  void process(float* samples, int frames) {
    // The library's float filter works on the int16 scale. Powers of two change no other bit.
    const std::size_t values = static_cast<std::size_t>(frames * stream.channels);
    for (std::size_t i = 0; i < values; ++i) samples[i] *= 32768.0f;
    floats.process(samples, frames);
    for (std::size_t i = 0; i < values; ++i) samples[i] *= 1.0f / 32768.0f;
  }
  bool is_float() const { return stream.precision == jurn::Precision::kDouble; }
  int tail() const { return is_float() ? floats.tail() : int16.tail(); }
  void reset() {
    int16.reset();
    floats.reset();
  }
};

}  // namespace

namespace {

/** What an element holds beside its base class. */
struct State {
  // Between the threads that set properties and the one that negotiates.
  std::mutex mutex;
  FilterSource source;
  jurn::gst::Stream stream;  // a rate of 0 before the caps are known
  std::string problem;       // of a property that was set before there was a stream

  Handover<PreparedFilter> handover;
  std::atomic<bool> keeps_tail{true};
  jurn::gst::Statistics statistics;

  // The streaming thread's own.
  std::unique_ptr<Running> running;
  GstClockTime next_time = GST_CLOCK_TIME_NONE;  // of the next frame
  bool started = false;                          // since the last silence
};

}  // namespace

struct _GstJurnFilter {
  GstAudioFilter parent;
  State* state;
};

G_DEFINE_TYPE(GstJurnFilter, gst_jurn_filter, GST_TYPE_AUDIO_FILTER)
GST_ELEMENT_REGISTER_DEFINE(jurnfilter, "jurnfilter", GST_RANK_NONE, GST_TYPE_JURN_FILTER)

/** Changes the source by `change`. While audio runs, the new filter is prepared at once; an error
 * leaves the old one, and what the properties say, as it was. */
template <typename Change>
static void change_source(GstJurnFilter* self, Change change) {
  std::vector<std::string> warnings;
  {
    const std::lock_guard<std::mutex> lock(self->state->mutex);
    FilterSource changed = self->state->source;
    try {
      change(&changed);
      if (self->state->stream.rate && !changed.is_empty())
        self->state->handover.offer(changed.prepare(self->state->stream, &warnings));
      self->state->source = std::move(changed);
      self->state->problem.clear();
    } catch (const std::exception& error) {
      if (self->state->stream.rate == 0) self->state->problem = error.what();
      warnings = {error.what()};
    }
  }
  jurn::gst::post_warnings(GST_ELEMENT(self), warnings);
}

static void set_property(GObject* object, guint id, const GValue* value, GParamSpec* spec) {
  GstJurnFilter* const self = GST_JURN_FILTER(object);
  const auto text = [&] {
    return std::string(g_value_get_string(value) ? g_value_get_string(value) : "");
  };
  switch (id) {
    case kLocation:
      return change_source(self, [&](FilterSource* s) { s->set_file(text()); });
    case kKindOfFilter:
      return change_source(
          self, [&](FilterSource* s) { s->kind = static_cast<Kind>(g_value_get_enum(value)); });
    case kCoefficients:
      return change_source(self, [&](FilterSource* s) { s->set_coefficients(value); });
    case kEqualiser:
      return change_source(self, [&](FilterSource* s) { s->set_equaliser(text()); });
    case kGain:
      return change_source(self, [&](FilterSource* s) { s->gain_db = g_value_get_double(value); });
    case kLength:
      return change_source(self, [&](FilterSource* s) { s->length = g_value_get_int(value); });
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
  const std::lock_guard<std::mutex> lock(self->state->mutex);
  switch (id) {
    case kLocation:
      return g_value_set_string(value, self->state->source.file().c_str());
    case kKindOfFilter:
      return g_value_set_enum(value, static_cast<gint>(self->state->source.kind));
    case kCoefficients:
      return self->state->source.get_coefficients(value);
    case kEqualiser:
      return g_value_set_string(value, self->state->source.equaliser().c_str());
    case kGain:
      return g_value_set_double(value, self->state->source.gain_db);
    case kLength:
      return g_value_set_int(value, self->state->source.length);
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
  std::vector<std::string> warnings;
  std::string problem;
  {
    const std::lock_guard<std::mutex> lock(self->state->mutex);
    const bool is_float = GST_AUDIO_INFO_FORMAT(info) == GST_AUDIO_FORMAT_F32;
    self->state->stream = {GST_AUDIO_INFO_RATE(info), GST_AUDIO_INFO_CHANNELS(info),
                           is_float ? jurn::Precision::kDouble : jurn::Precision::kInt16};
    problem = self->state->problem;
    if (problem.empty() && self->state->source.is_empty())
      problem = "no filter: set location, coefficients, equaliser, or kind=average and length";
    try {
      if (problem.empty())
        self->state->handover.offer(self->state->source.prepare(self->state->stream, &warnings));
      self->state->running = std::make_unique<Running>(&self->state->handover, self->state->stream);
    } catch (const std::exception& error) {
      problem = error.what();
    }
  }
  jurn::gst::post_warnings(GST_ELEMENT(self), warnings);
  if (problem.empty()) return TRUE;
  GST_ELEMENT_ERROR(self, LIBRARY, SETTINGS, ("%s", problem.c_str()), (nullptr));
  return FALSE;
}

static gboolean start(GstBaseTransform* transform) {
  GST_JURN_FILTER(transform)->state->statistics.reset();
  return TRUE;
}

static gboolean stop(GstBaseTransform* transform) {
  GstJurnFilter* const self = GST_JURN_FILTER(transform);
  const std::lock_guard<std::mutex> lock(self->state->mutex);
  self->state->running.reset();
  self->state->stream = {};
  return TRUE;
}

/** Filters and counts the frames of a mapped buffer. */
template <typename Sample>
static void process(GstJurnFilter* self, guint8* bytes, std::size_t size) {
  Running* const running = self->state->running.get();
  const std::size_t channels = static_cast<std::size_t>(running->stream.channels);
  const std::size_t values = size / sizeof(Sample) / channels * channels;
  Sample* const samples = static_cast<Sample*>(static_cast<void*>(bytes));
  running->process(samples, static_cast<int>(values / channels));
  self->state->statistics.count(GST_ELEMENT(self), samples, values, channels, running->stream.rate);
}

static void process_bytes(GstJurnFilter* self, guint8* bytes, std::size_t size) {
  if (self->state->running->is_float())
    process<float>(self, bytes, size);
  else
    process<short>(self, bytes, size);
}

static GstFlowReturn transform_ip(GstBaseTransform* transform, GstBuffer* buffer) {
  GstJurnFilter* const self = GST_JURN_FILTER(transform);
  if (!self->state->running) return GST_FLOW_NOT_NEGOTIATED;
  if (GST_BUFFER_IS_DISCONT(buffer)) self->state->running->reset();
  GstMapInfo map;
  if (!gst_buffer_map(buffer, &map, GST_MAP_READWRITE)) return GST_FLOW_ERROR;
  process_bytes(self, map.data, map.size);
  gst_buffer_unmap(buffer, &map);
  self->state->started = true;
  self->state->next_time = GST_CLOCK_TIME_NONE;
  if (GST_BUFFER_PTS_IS_VALID(buffer) && GST_BUFFER_DURATION_IS_VALID(buffer))
    self->state->next_time = GST_BUFFER_PTS(buffer) + GST_BUFFER_DURATION(buffer);
  return GST_FLOW_OK;
}

/** Returns to silence. */
static void forget(GstJurnFilter* self) {
  if (self->state->running) self->state->running->reset();
  self->state->started = false;
}

/** Puts out what rings on, once: the filter is silent afterwards. */
static void drain(GstJurnFilter* self) {
  State* const state = self->state;
  if (!state->running || !state->started) return;
  const jurn::gst::Stream& stream = state->running->stream;
  const std::size_t frame_bytes = static_cast<std::size_t>(stream.channels) *
                                  (state->running->is_float() ? sizeof(float) : sizeof(short));
  const auto fill = [&](guint8* bytes, int frames) {
    std::memset(bytes, 0, static_cast<std::size_t>(frames) * frame_bytes);
    process_bytes(self, bytes, static_cast<std::size_t>(frames) * frame_bytes);
  };
  if (state->keeps_tail)
    jurn::gst::push_tail(GST_BASE_TRANSFORM(self), state->running->tail(), frame_bytes, stream.rate,
                         &state->next_time, fill);
  forget(self);
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
  self->state = new State;
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
  install(kEqualiser, g_param_spec_string("equaliser", "Equaliser",
                                          "Lines of an equaliser, like PK 3k -4 Q 2; HS 8k 3; "
                                          "replaces location and coefficients",
                                          nullptr, flags));
  install(kGain, g_param_spec_double("gain", "Gain", "Gain of the filter in dB", -200.0, 200.0, 0.0,
                                     flags));
  install(kLength, g_param_spec_int("length", "Length", "Samples of the mean, with kind=average", 1,
                                    jurn::kMaxAverage, 1, flags));
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
