// The plugin jurn: the filters as GStreamer elements.
#include <gst/gst.h>

#include "jurnbinaural.h"
#include "jurnconvolve.h"
#include "jurnfilter.h"

static gboolean plugin_init(GstPlugin* plugin) {
  return GST_ELEMENT_REGISTER(jurnfilter, plugin) && GST_ELEMENT_REGISTER(jurnconvolve, plugin) &&
         GST_ELEMENT_REGISTER(jurnbinaural, plugin);
}

GST_PLUGIN_DEFINE(GST_VERSION_MAJOR, GST_VERSION_MINOR, jurn,
                  "Filters with the same bits on every machine", plugin_init, JURN_VERSION,
                  "MIT/X11", "JURN", "the JURN authors")
