/* The four filter records of one include: each has a header of its own, which opens with a whole
 * program. Convolution_control.h and Sections_control.h stand beside them. */
#ifndef JURN_FILTER_CONTROL_H
#define JURN_FILTER_CONTROL_H

#include "Filter_rules.h"
#include "FloatFilter_control.h"
#include "Int16Filter_control.h"
#include "LongFilter_control.h"
#include "MovingSum_control.h"

#endif
