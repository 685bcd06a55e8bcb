// What elements that work in blocks offer their neighbours: caps and pads.
#include "blocks.h"

namespace jurn::gst {

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

}  // namespace jurn::gst
