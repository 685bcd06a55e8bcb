// The bands of jurnfilter's equaliser, as children whose properties can be controlled.
#pragma once

#include <gst/gst.h>

#include <atomic>
#include <mutex>
#include <vector>

#include "filter_source.h"

namespace jurn::gst {

/** The children band0, band1 ... of an element. They are made when they are asked for. */
class Bands {
 public:
  Bands(GstElement* element, FilterPreparer* preparer) : element_(element), preparer_(preparer) {}
  ~Bands();
  Bands(const Bands&) = delete;
  Bands& operator=(const Bands&) = delete;

  guint count() const { return static_cast<guint>(preparer_->settings().bands().size()); }
  /** With a reference for the caller; null beyond the bands. */
  GObject* child(guint index);
  /** The streaming thread: what control sources say of a stream time. */
  void sync_values(GstClockTime time);

 private:
  GstElement* element_;
  FilterPreparer* preparer_;
  std::mutex mutex_;
  std::vector<GstObject*> children_;
  std::atomic<bool> is_empty_{true};
};

}  // namespace jurn::gst
