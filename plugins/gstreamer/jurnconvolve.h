// The element jurnconvolve.
#pragma once

#include "blocks.h"

G_BEGIN_DECLS

#define GST_TYPE_JURN_CONVOLVE (gst_jurn_convolve_get_type())
GType gst_jurn_convolve_get_type(void);
GST_ELEMENT_REGISTER_DECLARE(jurnconvolve)

G_END_DECLS
