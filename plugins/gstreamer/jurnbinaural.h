// The element jurnbinaural.
#pragma once

#include "blocks.h"

G_BEGIN_DECLS

#define GST_TYPE_JURN_BINAURAL (gst_jurn_binaural_get_type())
GType gst_jurn_binaural_get_type(void);
GST_ELEMENT_REGISTER_DECLARE(jurnbinaural)

G_END_DECLS
