// The element jurnfilter.
#pragma once

#include <gst/audio/gstaudiofilter.h>

G_BEGIN_DECLS

#define GST_TYPE_JURN_FILTER (gst_jurn_filter_get_type())
G_DECLARE_FINAL_TYPE(GstJurnFilter, gst_jurn_filter, GST, JURN_FILTER, GstAudioFilter)
GST_ELEMENT_REGISTER_DECLARE(jurnfilter)

G_END_DECLS
