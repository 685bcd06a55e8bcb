/**
 * SECTION:element-jurnbinaural
 *
 * Places a mono source around a listener with headphones.
 *
 * |[
 * gst-launch-1.0 filesrc location=voice.wav ! decodebin ! audioconvert ! jurnbinaural azimuth=90 !
 *   autoaudiosink
 * ]|
 */
#include "jurnbinaural.h"

#include <string>

#include "Filter_control.h"
#include "blocks.h"
#include "hrtf_source.h"

using jurn::gst::HrtfSettings;
using jurn::gst::HrtfSource;
using jurn::gst::kChangeable;
using jurn::gst::kControllable;

namespace {

enum Property { kSofa = 1, kAzimuth, kElevation, kGain };

constexpr char kFormats[] = GST_AUDIO_CAPS_MAKE("{ " GST_AUDIO_NE(S16) ", " GST_AUDIO_NE(
    F32) " }") ", layout = (string) interleaved, channels = (int) ";

}  // namespace

struct GstJurnBinaural {
  GstJurnBlocks parent;
};
struct GstJurnBinauralClass {
  GstJurnBlocksClass parent_class;
};

G_DEFINE_TYPE_WITH_CODE(GstJurnBinaural, gst_jurn_binaural, GST_TYPE_JURN_BLOCKS,
                        G_IMPLEMENT_INTERFACE(GST_TYPE_PRESET, jurn::gst::add_presets))
GST_ELEMENT_REGISTER_DEFINE(jurnbinaural, "jurnbinaural", GST_RANK_NONE, GST_TYPE_JURN_BINAURAL)

static HrtfSource* source_of(gpointer object) {
  return static_cast<HrtfSource*>(jurn::gst::preparer_of(GST_JURN_BLOCKS(object)));
}

static GstCaps* transform_caps(GstBaseTransform*, GstPadDirection direction, GstCaps* caps,
                               GstCaps* filter) {
  return direction == GST_PAD_SINK ? jurn::gst::with_channels(caps, filter, 2, GST_PAD_SRC)
                                   : jurn::gst::with_channels(caps, filter, 1, GST_PAD_SINK);
}

static void set_property(GObject* object, guint id, const GValue* value, GParamSpec* spec) {
  const auto change = [&](auto what) { source_of(object)->change(what); };
  switch (id) {
    case kSofa:
      return change([&](HrtfSettings* s) {
        s->sofa = jurn::gst::text_of(value);
        ++s->setting;
      });
    case kAzimuth:
      return change([&](HrtfSettings* s) { s->azimuth = g_value_get_double(value); });
    case kElevation:
      return change([&](HrtfSettings* s) { s->elevation = g_value_get_double(value); });
    case kGain:
      return change([&](HrtfSettings* s) { s->gain_db = g_value_get_double(value); });
    default:
      if (!jurn::gst::set_blocks_property(object, id, value))
        G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, spec);
  }
}

static void get_property(GObject* object, guint id, GValue* value, GParamSpec* spec) {
  if (jurn::gst::get_blocks_property(object, id, value)) return;
  const HrtfSettings settings = source_of(object)->settings();
  switch (id) {
    case kSofa:
      return g_value_set_string(value, settings.sofa.c_str());
    case kAzimuth:
      return g_value_set_double(value, settings.azimuth);
    case kElevation:
      return g_value_set_double(value, settings.elevation);
    case kGain:
      return g_value_set_double(value, settings.gain_db);
    default:
      G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, spec);
  }
}

static void gst_jurn_binaural_init(GstJurnBinaural* self) {
  jurn::gst::set_preparer(&self->parent, std::make_unique<HrtfSource>(
                                             GST_ELEMENT(self), HrtfSettings{JURN_DEFAULT_SOFA}));
}

static void gst_jurn_binaural_class_init(GstJurnBinauralClass* klass) {
  GObjectClass* const object_class = G_OBJECT_CLASS(klass);
  object_class->set_property = set_property;
  object_class->get_property = get_property;

  const auto install = [&](Property id, GParamSpec* spec) {
    g_object_class_install_property(object_class, id, spec);
  };
  install(kSofa, g_param_spec_string("sofa", "SOFA file", "Set of head-related impulse responses",
                                     JURN_DEFAULT_SOFA, kChangeable));
  install(kAzimuth, g_param_spec_double("azimuth", "Azimuth", "Degrees: 0 in front, 90 to the left",
                                        -3600.0, 3600.0, 0.0, kControllable));
  install(kElevation, g_param_spec_double("elevation", "Elevation", "Degrees: 90 above, -90 below",
                                          -90.0, 90.0, 0.0, kControllable));
  install(kGain,
          g_param_spec_double("gain", "Gain", "Gain in dB", -200.0, 200.0, 0.0, kControllable));
  jurn::gst::install_blocks_properties(object_class, JURN_BLOCK);

  GstElementClass* const element_class = GST_ELEMENT_CLASS(klass);
  gst_element_class_set_static_metadata(element_class, "JURN binaural", "Filter/Effect/Audio",
                                        "Places a mono source around a listener with headphones",
                                        "the JURN authors");
  jurn::gst::add_pad_templates(element_class, (std::string(kFormats) + "1").c_str(),
                               (std::string(kFormats) + "2, channel-mask = (bitmask) 0x3").c_str());
  GST_BASE_TRANSFORM_CLASS(klass)->transform_caps = transform_caps;
  GST_JURN_BLOCKS_CLASS(klass)->no_filter =
      "no set of responses is installed; name one by the property sofa";
}
