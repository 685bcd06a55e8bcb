// A stream in blocks of one length, and the time of what comes out.
#pragma once

#include <gst/gst.h>

#include <cstddef>
#include <memory>

#include "preparer.h"
#include "streams/changing_stream.h"
#include "streams/regrouper.h"

namespace jurn::gst {

/**
 * Takes frames of any count, runs them in blocks and counts the time of what goes out. The frames
 * of a block that is not yet complete can be put out ahead, when the time jumps or another segment
 * follows.
 */
class TimedStream {
 public:
  /** A stream of an element's, with its first filter. */
  TimedStream(GstElement* element, Preparer* preparer, std::unique_ptr<OfferedFilter> first);

  const StreamFormat& format() const { return format_; }
  /** Frames that ring on. */
  int tail() const { return filter_.tail(); }
  /** Frames by which the filter is late. */
  int latency() const { return filter_.latency(); }
  std::size_t in_bytes() const { return in_bytes_; }  // of a frame
  std::size_t out_bytes() const { return out_bytes_; }

  /** Frames that `frames` more would complete. */
  std::size_t ready(std::size_t frames) const { return blocks_.ready(frames); }
  /** Takes frames, silence for null, and writes ready(frames) to `out`. */
  void push(const guint8* in, std::size_t frames, guint8* out, const GstSegment& segment);
  /** Frames taken whose output has not left. */
  std::size_t pending() const { return blocks_.pending(); }
  /** Writes these to `out`, ahead of their block. */
  void give_pending(guint8* out);
  void reset();

  /** The time of the next frame to put out, and of the next to take in. */
  GstClockTime next_out() const { return time_of(0); }
  GstClockTime next_in() const { return time_of(pending()); }
  /** Says when the next frame comes in; none may be pending. */
  void set_time(GstClockTime time) {
    origin_ = time;
    counted_ = 0;
  }
  /** Stamps a buffer of the next frames to put out, which then have left. */
  void stamp(GstBuffer* buffer, std::size_t frames);

 private:
  GstClockTime time_of(std::size_t ahead) const;
  void process(const guint8* in, guint8* out, GstClockTime stream_time);

  GstElement* element_;
  Preparer* preparer_;
  StreamFormat format_;
  ChangingStream filter_;
  std::size_t in_bytes_, out_bytes_;
  jurn::Regrouper<guint8> blocks_;
  GstClockTime origin_ = GST_CLOCK_TIME_NONE;
  guint64 counted_ = 0;  // frames since then
};

}  // namespace jurn::gst
