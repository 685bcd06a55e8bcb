#include "timed_stream.h"

#include <utility>

namespace jurn::gst {

static std::size_t size(int value) {
  return static_cast<std::size_t>(value);
}

static std::size_t sample_bytes(const StreamFormat& format) {
  return format.is_float ? sizeof(float) : sizeof(short);
}

static const float* floats(const guint8* bytes) {
  return static_cast<const float*>(static_cast<const void*>(bytes));
}
static float* floats(guint8* bytes) {
  return static_cast<float*>(static_cast<void*>(bytes));
}
static const short* shorts(const guint8* bytes) {
  return static_cast<const short*>(static_cast<const void*>(bytes));
}
static short* shorts(guint8* bytes) {
  return static_cast<short*>(static_cast<void*>(bytes));
}

TimedStream::TimedStream(GstElement* element, Preparer* preparer,
                         std::unique_ptr<OfferedFilter> first)
    : element_(element),
      preparer_(preparer),
      format_(first->made_for),
      filter_(preparer->offers(), std::move(first)),
      in_bytes_(sample_bytes(format_) * size(format_.inputs)),
      out_bytes_(sample_bytes(format_) * size(format_.outputs)),
      blocks_(size(format_.block), in_bytes_, out_bytes_) {}

/** One block. */
void TimedStream::process(const guint8* in, guint8* out, GstClockTime stream_time) {
  preparer_->settle([&] {
    if (GST_CLOCK_TIME_IS_VALID(stream_time))
      gst_object_sync_values(GST_OBJECT(element_), stream_time);
  });
  if (format_.is_float)
    filter_.process(floats(in), format_.block, floats(out));
  else
    filter_.process(shorts(in), format_.block, shorts(out));
}

void TimedStream::push(const guint8* in, std::size_t frames, guint8* out,
                       const GstSegment& segment) {
  blocks_.push(in, frames, out, [&](const guint8* x, guint8* y, std::size_t before) {
    const GstClockTime time = time_of(before);
    process(x, y,
            GST_CLOCK_TIME_IS_VALID(time)
                ? gst_segment_to_stream_time(&segment, GST_FORMAT_TIME, time)
                : GST_CLOCK_TIME_NONE);
  });
}

void TimedStream::give_pending(guint8* out) {
  blocks_.give_pending(out, [&](const guint8* x, std::size_t frames, guint8* y) {
    if (format_.is_float)
      filter_.preview(floats(x), static_cast<int>(frames), floats(y));
    else
      filter_.preview(shorts(x), static_cast<int>(frames), shorts(y));
  });
}

void TimedStream::reset() {
  blocks_.reset();
  set_time(GST_CLOCK_TIME_NONE);
  filter_.reset();
}

GstClockTime TimedStream::time_of(std::size_t ahead) const {
  if (!GST_CLOCK_TIME_IS_VALID(origin_)) return origin_;
  return origin_ +
         gst_util_uint64_scale(counted_ + ahead, GST_SECOND, static_cast<guint64>(format_.rate));
}

void TimedStream::stamp(GstBuffer* buffer, std::size_t frames) {
  GST_BUFFER_PTS(buffer) = time_of(0);
  const GstClockTime end = time_of(frames);
  GST_BUFFER_DURATION(buffer) =
      GST_CLOCK_TIME_IS_VALID(end)
          ? end - GST_BUFFER_PTS(buffer)
          : gst_util_uint64_scale(frames, GST_SECOND, static_cast<guint64>(format_.rate));
  counted_ += frames;
}

}  // namespace jurn::gst
