/**
 * SECTION:element-jurnconvolve
 *
 * Convolves with impulse responses of any length, without latency.
 *
 * |[
 * gst-launch-1.0 filesrc location=music.flac ! decodebin ! audioconvert !
 *   jurnconvolve location=hall.wav gain=-6 ! autoaudiosink
 * ]|
 */
#include "jurnconvolve.h"

#include "Convolution_control.h"
#include "blocks.h"
#include "convolution_source.h"

using jurn::gst::ConvolutionSource;
using jurn::gst::kChangeable;
using jurn::gst::kControllable;

namespace {

enum Property { kLocation = 1, kRoutes, kSetup, kGain, kNormalise, kResample, kPrecision };

constexpr char kCaps[] = GST_AUDIO_CAPS_MAKE("{ " GST_AUDIO_NE(S16) ", " GST_AUDIO_NE(
    F32) " }") ", layout = (string) interleaved, channels = (int) [ 1, 16 ]";

}  // namespace

struct GstJurnConvolve {
  GstJurnBlocks parent;
};
struct GstJurnConvolveClass {
  GstJurnBlocksClass parent_class;
};

G_DEFINE_TYPE_WITH_CODE(GstJurnConvolve, gst_jurn_convolve, GST_TYPE_JURN_BLOCKS,
                        G_IMPLEMENT_INTERFACE(GST_TYPE_PRESET, jurn::gst::add_presets))
GST_ELEMENT_REGISTER_DEFINE(jurnconvolve, "jurnconvolve", GST_RANK_NONE, GST_TYPE_JURN_CONVOLVE)

static ConvolutionSource* source_of(gpointer object) {
  return static_cast<ConvolutionSource*>(jurn::gst::preparer_of(GST_JURN_BLOCKS(object)));
}

static GstCaps* transform_caps(GstBaseTransform* transform, GstPadDirection direction,
                               GstCaps* caps, GstCaps* filter) {
  const jurn::gst::ChannelPairs pairs = source_of(transform)->pairs();
  if (pairs.empty())
    return filter ? gst_caps_intersect_full(filter, caps, GST_CAPS_INTERSECT_FIRST)
                  : gst_caps_ref(caps);
  GstCaps* const result = gst_caps_new_empty();
  for (const auto& [in, out] : pairs) {
    const int from = direction == GST_PAD_SINK ? in : out;
    const int to = direction == GST_PAD_SINK ? out : in;
    GstCaps* const wanted =
        gst_caps_new_simple("audio/x-raw", "channels", G_TYPE_INT, from, nullptr);
    GstCaps* const possible = gst_caps_intersect(caps, wanted);
    if (from == to)
      gst_caps_append(result,
                      filter ? gst_caps_intersect_full(filter, possible, GST_CAPS_INTERSECT_FIRST)
                             : gst_caps_ref(possible));
    else
      gst_caps_append(
          result, jurn::gst::with_channels(possible, filter, to,
                                           direction == GST_PAD_SINK ? GST_PAD_SRC : GST_PAD_SINK));
    gst_caps_unref(possible);
    gst_caps_unref(wanted);
  }
  return result;
}

static void set_property(GObject* object, guint id, const GValue* value, GParamSpec* spec) {
  ConvolutionSource* const source = source_of(object);
  const auto change = [&](auto what) { source->change(what); };
  using Settings = jurn::gst::ConvolutionSettings;
  switch (id) {
    case kLocation:
      return change([&](Settings* s) { s->set_location(jurn::gst::text_of(value)); });
    case kRoutes:
      return change([&](Settings* s) { s->set_routes(jurn::gst::text_of(value)); });
    case kSetup:
      return change([&](Settings* s) { s->set_setup(jurn::gst::text_of(value)); });
    case kGain:
      return change([&](Settings* s) { s->gain_db = g_value_get_double(value); });
    case kNormalise:
      return change([&](Settings* s) { s->normalise = g_value_get_boolean(value); });
    case kResample:
      return change([&](Settings* s) { s->resample = g_value_get_boolean(value); });
    case kPrecision:
      return change([&](Settings* s) { s->precision = jurn::gst::precision_of(value); });
    default:
      if (!jurn::gst::set_blocks_property(object, id, value))
        G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, spec);
  }
}

static void get_property(GObject* object, guint id, GValue* value, GParamSpec* spec) {
  if (jurn::gst::get_blocks_property(object, id, value)) return;
  const jurn::gst::ConvolutionSettings settings = source_of(object)->settings();
  switch (id) {
    case kLocation:
      return g_value_set_string(value, settings.location.c_str());
    case kRoutes:
      return g_value_set_string(value, settings.routes.c_str());
    case kSetup:
      return g_value_set_string(value, settings.setup.c_str());
    case kGain:
      return g_value_set_double(value, settings.gain_db);
    case kNormalise:
      return g_value_set_boolean(value, settings.normalise);
    case kResample:
      return g_value_set_boolean(value, settings.resample);
    case kPrecision:
      return g_value_set_enum(value, static_cast<gint>(settings.precision));
    default:
      G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, spec);
  }
}

static void gst_jurn_convolve_init(GstJurnConvolve* self) {
  jurn::gst::set_preparer(&self->parent, std::make_unique<ConvolutionSource>(GST_ELEMENT(self)));
}

static void gst_jurn_convolve_class_init(GstJurnConvolveClass* klass) {
  GObjectClass* const object_class = G_OBJECT_CLASS(klass);
  object_class->set_property = set_property;
  object_class->get_property = get_property;

  const auto install = [&](Property id, GParamSpec* spec) {
    g_object_class_install_property(object_class, id, spec);
  };
  install(kLocation, g_param_spec_string(
                         "location", "Location",
                         "Impulse response: one channel for all; one for each channel, or for "
                         "both ears of a mono stream; or four for stereo, left to left, left to "
                         "right, right to left, right to right; replaces routes and setup",
                         nullptr, kChangeable));
  install(kRoutes, g_param_spec_string("routes", "Routes",
                                       "File of routes between any channels, as jurn-filter reads "
                                       "it; replaces location and setup",
                                       nullptr, kChangeable));
  install(kSetup, g_param_spec_string("setup", "Setup",
                                      "File of a whole setup of loudspeakers: filters, delays and "
                                      "mixers per channel, in double; replaces location and routes",
                                      nullptr, kChangeable));
  install(kGain,
          g_param_spec_double("gain", "Gain", "Gain in dB", -200.0, 200.0, 0.0, kControllable));
  install(kNormalise, g_param_spec_boolean("normalise", "Normalise",
                                           "Scale the largest gain over all frequencies to 0 dB",
                                           FALSE, kChangeable));
  install(kResample,
          g_param_spec_boolean("resample", "Resample",
                               "Convert an impulse response at another rate than the stream's",
                               FALSE, kChangeable));
  install(kPrecision, jurn::gst::precision_spec(
                          "double, with sums in float, the result rounded to its samples; or "
                          "int16: 16 bits in and out, as on a device"));
  jurn::gst::install_blocks_properties(object_class, JURN_CONVOLUTION_BLOCK);

  GstElementClass* const element_class = GST_ELEMENT_CLASS(klass);
  gst_element_class_set_static_metadata(
      element_class, "JURN convolution", "Filter/Effect/Audio",
      "Convolves with impulse responses of any length without latency", "the JURN authors");
  jurn::gst::add_pad_templates(element_class, kCaps, kCaps);
  GST_BASE_TRANSFORM_CLASS(klass)->transform_caps = transform_caps;
  GST_JURN_BLOCKS_CLASS(klass)->no_filter = "no impulse response: set location, routes or setup";
}
