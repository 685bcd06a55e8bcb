// What jurnfilter holds, and its properties.
#pragma once

#include <atomic>
#include <memory>

#include "element.h"
#include "filter_source.h"
#include "jurnfilter.h"
#include "jurnfilter_bands.h"
#include "streams/changing_stream.h"

namespace jurn::gst {

/** What an element holds beside its base class. */
struct FilterState {
  explicit FilterState(GstElement* element) : preparer(element), bands(element, &preparer) {}

  FilterPreparer preparer;
  Bands bands;
  std::atomic<bool> keeps_tail{true};
  std::atomic<int> latency{0};  // frames
  Statistics statistics;

  // The streaming thread's own.
  std::unique_ptr<ChangingStream> running;
  StreamFormat format;
  GstClockTime next_time = GST_CLOCK_TIME_NONE;  // of the next frame
  bool started = false;                          // since the last silence
  bool is_new_segment = true;                    // until its first frame
};

/** Gives the class its properties. */
void install_filter_properties(GObjectClass* object_class);

}  // namespace jurn::gst

struct _GstJurnFilter {
  GstAudioFilter parent;
  jurn::gst::FilterState* state;
};
