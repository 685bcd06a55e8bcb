#include "regrouper.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace jurn::gst {

static std::size_t size(int value) {
  return static_cast<std::size_t>(value);
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

Regrouper::Regrouper(GstElement* element, Preparer* preparer, std::unique_ptr<OfferedFilter> first)
    : element_(element),
      preparer_(preparer),
      format_(first->made_for),
      filter_(preparer->offers(), std::move(first)),
      block_(size(format_.block)) {
  const std::size_t sample = format_.is_float ? sizeof(float) : sizeof(short);
  in_bytes_ = sample * size(format_.inputs);
  out_bytes_ = sample * size(format_.outputs);
  begun_.resize(block_ * in_bytes_);
  finished_.resize(block_ * out_bytes_);
}

std::size_t Regrouper::ready(std::size_t frames) const {
  const std::size_t whole = (taken_ + frames) / block_ * block_;
  return whole ? whole - given_ : 0;
}

/** One block. */
void Regrouper::process(const guint8* in, guint8* out, GstClockTime stream_time) {
  preparer_->settle([&] {
    if (GST_CLOCK_TIME_IS_VALID(stream_time))
      gst_object_sync_values(GST_OBJECT(element_), stream_time);
  });
  if (format_.is_float)
    filter_.process(floats(in), format_.block, floats(out));
  else
    filter_.process(shorts(in), format_.block, shorts(out));
}

void Regrouper::push(const guint8* in, std::size_t frames, guint8* out, const GstSegment& segment) {
  std::size_t produced = 0;
  const auto stream_time = [&] {
    const GstClockTime time = time_of(produced);
    return GST_CLOCK_TIME_IS_VALID(time)
               ? gst_segment_to_stream_time(&segment, GST_FORMAT_TIME, time)
               : GST_CLOCK_TIME_NONE;
  };
  while (frames > 0) {
    if (taken_ == 0 && frames >= block_ && in) {
      process(in, out + produced * out_bytes_, stream_time());
      in += block_ * in_bytes_;
      frames -= block_;
      produced += block_;
      continue;
    }
    const std::size_t taken = std::min(frames, block_ - taken_);
    guint8* const to = begun_.data() + taken_ * in_bytes_;
    if (in) {
      std::memcpy(to, in, taken * in_bytes_);
      in += taken * in_bytes_;
    } else {
      std::memset(to, 0, taken * in_bytes_);
    }
    frames -= taken;
    taken_ += taken;
    if (taken_ < block_) break;
    process(begun_.data(), finished_.data(), stream_time());
    std::memcpy(out + produced * out_bytes_, finished_.data() + given_ * out_bytes_,
                (block_ - given_) * out_bytes_);
    produced += block_ - given_;
    taken_ = given_ = 0;
  }
}

void Regrouper::give_pending(guint8* out) {
  const int frames = static_cast<int>(taken_);
  if (format_.is_float)
    filter_.preview(floats(begun_.data()), frames, floats(finished_.data()));
  else
    filter_.preview(shorts(begun_.data()), frames, shorts(finished_.data()));
  std::memcpy(out, finished_.data() + given_ * out_bytes_, pending() * out_bytes_);
  given_ = taken_;
}

void Regrouper::reset() {
  taken_ = given_ = 0;
  set_time(GST_CLOCK_TIME_NONE);
  filter_.reset();
}

GstClockTime Regrouper::time_of(std::size_t ahead) const {
  if (!GST_CLOCK_TIME_IS_VALID(origin_)) return origin_;
  return origin_ +
         gst_util_uint64_scale(counted_ + ahead, GST_SECOND, static_cast<guint64>(format_.rate));
}

void Regrouper::stamp(GstBuffer* buffer, std::size_t frames) {
  GST_BUFFER_PTS(buffer) = time_of(0);
  const GstClockTime end = time_of(frames);
  GST_BUFFER_DURATION(buffer) =
      GST_CLOCK_TIME_IS_VALID(end)
          ? end - GST_BUFFER_PTS(buffer)
          : gst_util_uint64_scale(frames, GST_SECOND, static_cast<guint64>(format_.rate));
  counted_ += frames;
}

}  // namespace jurn::gst
