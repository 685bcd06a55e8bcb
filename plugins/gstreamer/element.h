// What the three elements have in common: statistics and messages.
#pragma once

#include <gst/base/gstbasetransform.h>

#include <atomic>
#include <cstdint>
#include <string>
#include <vector>

#include "design/prepare.h"
#include "meter.h"

namespace jurn::gst {

/** Properties that may change while the pipeline plays, and those that control sources change. */
constexpr auto kChangeable = static_cast<GParamFlags>(G_PARAM_READWRITE | G_PARAM_STATIC_STRINGS |
                                                      GST_PARAM_MUTABLE_PLAYING);
constexpr auto kControllable = static_cast<GParamFlags>(kChangeable | GST_PARAM_CONTROLLABLE);

/** The property `precision`, with what it chooses between. */
GParamSpec* precision_spec(const char* description);
jurn::Precision precision_of(const GValue* value);

/** Installs the properties `tail`, `statistics` and `statistics-interval`, from this number on. */
void install_common(GObjectClass* gobject_class, guint first);

/** The statistics of an element and how often it posts them. */
class Statistics {
 public:
  /** The streaming thread, after each buffer. */
  template <typename Sample>
  void count(GstElement* element, const Sample* samples, std::size_t values, std::size_t channels,
             int rate) {
    meter_.count(samples, values, channels);
    const guint64 interval = interval_.load(std::memory_order_relaxed);
    if (interval == 0) return;
    elapsed_ += gst_util_uint64_scale(values / channels, GST_SECOND, static_cast<guint64>(rate));
    if (elapsed_ < interval) return;
    elapsed_ = 0;
    gst_element_post_message(element, gst_message_new_element(GST_OBJECT(element), structure()));
  }

  GstStructure* structure() const { return meter_.structure(); }
  void reset() {
    meter_.reset();
    elapsed_ = 0;
  }

  void set_interval(guint64 nanoseconds) { interval_ = nanoseconds; }
  guint64 interval() const { return interval_; }

 private:
  Meter meter_;
  std::atomic<guint64> interval_{0};
  guint64 elapsed_ = 0;  // ns since the last message
};

/** Posts what the user should know; the stream goes on. */
void post_warnings(GstElement* element, const std::vector<std::string>& warnings);

/** Fills a GstPresetInterface: presets hold the element's own properties. */
void add_presets(gpointer interface, gpointer);
/** The string of a property that is set. */
std::string text_of(const GValue* value);

/** When a file was last written, 0 for none: a file that was written anew is read anew. */
gint64 time_of_writing(const std::string& path);

/** Answers a query of latency: upstream's, and `frames` more. */
gboolean answer_latency(GstBaseTransform* transform, GstQuery* asked, int frames, int rate);

/** Whether an event brings caps other than those at the sink pad. */
bool changes_caps(GstBaseTransform* transform, GstEvent* event);

/** Pushes the frames that ring on after the end of a stream. `fill` writes a buffer's frames. */
template <typename Fill>
GstFlowReturn push_tail(GstBaseTransform* transform, std::int64_t frames, std::size_t frame_bytes,
                        int rate, GstClockTime* next, Fill fill) {
  GstFlowReturn result = GST_FLOW_OK;
  constexpr std::int64_t kFrames = 1024;
  for (std::int64_t done = 0; done < frames && result == GST_FLOW_OK; done += kFrames) {
    const int count = static_cast<int>(std::min(frames - done, kFrames));
    GstBuffer* const buffer =
        gst_buffer_new_allocate(nullptr, static_cast<std::size_t>(count) * frame_bytes, nullptr);
    GstMapInfo map;
    gst_buffer_map(buffer, &map, GST_MAP_WRITE);
    fill(map.data, count);
    gst_buffer_unmap(buffer, &map);
    GST_BUFFER_DURATION(buffer) =
        gst_util_uint64_scale(static_cast<guint64>(count), GST_SECOND, static_cast<guint64>(rate));
    GST_BUFFER_PTS(buffer) = *next;
    if (GST_CLOCK_TIME_IS_VALID(*next)) *next += GST_BUFFER_DURATION(buffer);
    result = gst_pad_push(GST_BASE_TRANSFORM_SRC_PAD(transform), buffer);
  }
  return result;
}

}  // namespace jurn::gst
