#include "element.h"

#include <algorithm>
#include <filesystem>
#include <system_error>

namespace jurn::gst {
namespace {

// GStreamer escapes a preset's strings twice and reads them once, which leaves "PK\\ 1k".
thread_local bool reads_preset = false;
gboolean (*load_plain)(GstPreset*, const gchar*) = nullptr;

gboolean load_preset(GstPreset* element, const gchar* name) {
  reads_preset = true;
  const gboolean result = load_plain(element, name);
  reads_preset = false;
  return result;
}

gchar** preset_properties(GstPreset* element) {
  guint count = 0;
  GParamSpec** const all = g_object_class_list_properties(G_OBJECT_GET_CLASS(element), &count);
  gchar** const names = g_new0(gchar*, count + 1);
  for (guint i = 0, kept = 0; i < count; ++i) {
    const bool is_own = g_type_is_a(all[i]->owner_type, GST_TYPE_BASE_TRANSFORM) &&
                        all[i]->owner_type != GST_TYPE_BASE_TRANSFORM;
    if (is_own && (all[i]->flags & G_PARAM_READWRITE) == G_PARAM_READWRITE)
      names[kept++] = g_strdup(all[i]->name);
  }
  g_free(all);
  return names;
}

}  // namespace

void add_presets(gpointer interface, gpointer) {
  auto* const presets = static_cast<GstPresetInterface*>(interface);
  load_plain = presets->load_preset;
  presets->load_preset = load_preset;
  presets->get_property_names = preset_properties;
}

std::string text_of(const GValue* value) {
  const char* const string = g_value_get_string(value);
  if (!string) return "";
  if (!reads_preset) return string;
  gchar* const plain = g_strcompress(string);
  const std::string text = plain;
  g_free(plain);
  return text;
}

GParamSpec* precision_spec(const char* description) {
  static const GEnumValue values[] = {
      {static_cast<gint>(jurn::Precision::kDouble), "Rounded once, at the end", "double"},
      {static_cast<gint>(jurn::Precision::kInt16), "As on a device with 16 bits", "int16"},
      {0, nullptr, nullptr}};
  static const GType type = g_enum_register_static("GstJurnPrecision", values);
  return g_param_spec_enum("precision", "Precision", description, type,
                           static_cast<gint>(jurn::Precision::kDouble), kChangeable);
}

jurn::Precision precision_of(const GValue* value) {
  return static_cast<jurn::Precision>(g_value_get_enum(value));
}

void install_common(GObjectClass* gobject_class, guint first) {
  g_object_class_install_property(
      gobject_class, first,
      g_param_spec_boolean(
          "tail", "Tail",
          "Whether the stream ends when the filter has rung out, not with its input", TRUE,
          kChangeable));
  g_object_class_install_property(
      gobject_class, first + 1,
      g_param_spec_boxed("statistics", "Statistics",
                         "Peak (1.0 is full scale), clipped samples and frames of the result since "
                         "the stream started",
                         GST_TYPE_STRUCTURE,
                         static_cast<GParamFlags>(G_PARAM_READABLE | G_PARAM_STATIC_STRINGS)));
  g_object_class_install_property(
      gobject_class, first + 2,
      g_param_spec_uint64("statistics-interval", "Statistics interval",
                          "Nanoseconds of audio between two element messages with the statistics; "
                          "0 posts none",
                          0, G_MAXUINT64, 0, kChangeable));
}

void post_warnings(GstElement* element, const std::vector<std::string>& warnings) {
  for (const std::string& warning : warnings)
    GST_ELEMENT_WARNING(element, LIBRARY, SETTINGS, ("%s", warning.c_str()), (nullptr));
}

gint64 time_of_writing(const std::string& path) {
  std::error_code error;
  const auto time = std::filesystem::last_write_time(path, error);
  return error ? 0 : static_cast<gint64>(time.time_since_epoch().count());
}

gboolean answer_latency(GstBaseTransform* transform, GstQuery* asked, int frames, int rate) {
  if (!gst_pad_peer_query(GST_BASE_TRANSFORM_SINK_PAD(transform), asked)) return FALSE;
  gboolean live;
  GstClockTime least, most;
  gst_query_parse_latency(asked, &live, &least, &most);
  if (frames > 0) {
    const GstClockTime added = gst_util_uint64_scale_ceil(static_cast<guint64>(frames), GST_SECOND,
                                                          static_cast<guint64>(std::max(rate, 1)));
    least += added;
    if (GST_CLOCK_TIME_IS_VALID(most)) most += added;
  }
  gst_query_set_latency(asked, live, least, most);
  return TRUE;
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
