#include "element.h"

namespace jurn::gst {

void install_statistics(GObjectClass* gobject_class, guint statistics, guint interval) {
  constexpr auto flags = static_cast<GParamFlags>(G_PARAM_READABLE | G_PARAM_STATIC_STRINGS);
  g_object_class_install_property(
      gobject_class, statistics,
      g_param_spec_boxed("statistics", "Statistics",
                         "Peak (1.0 is full scale), clipped samples and frames of the result since "
                         "the stream started",
                         GST_TYPE_STRUCTURE, flags));
  g_object_class_install_property(
      gobject_class, interval,
      g_param_spec_uint64(
          "statistics-interval", "Statistics interval",
          "Nanoseconds of audio between two element messages with the statistics; "
          "0 posts none",
          0, G_MAXUINT64, 0,
          static_cast<GParamFlags>(flags | G_PARAM_WRITABLE | GST_PARAM_MUTABLE_PLAYING)));
}

void post_warnings(GstElement* element, const std::vector<std::string>& warnings) {
  for (const std::string& warning : warnings)
    GST_ELEMENT_WARNING(element, LIBRARY, SETTINGS, ("%s", warning.c_str()), (nullptr));
}

bool changes_caps(GstBaseTransform* transform, GstEvent* event) {
  GstCaps* next = nullptr;
  gst_event_parse_caps(event, &next);
  GstCaps* const current = gst_pad_get_current_caps(GST_BASE_TRANSFORM_SINK_PAD(transform));
  const bool changes = !current || !gst_caps_is_equal(current, next);
  if (current) gst_caps_unref(current);
  return changes;
}

}  // namespace jurn::gst
