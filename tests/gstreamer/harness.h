// One element between two pads.
#pragma once

#include <gst/audio/audio.h>
#include <gst/check/gstharness.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <string>
#include <vector>

#include "../tool_fixture.h"

namespace jurn_test {

using Samples = std::vector<short>;

/** Noise with pauses, at a level that clips now and then. */
inline Samples material(int frames, int channels) {
  std::mt19937 random(7);
  Samples samples(static_cast<std::size_t>(frames * channels));
  for (std::size_t i = 0; i < samples.size(); ++i)
    samples[i] = i / 5000 % 4 == 3 ? short{0} : static_cast<short>(random() % 65536 - 32768);
  return samples;
}

/** The largest step between neighbouring samples. */
inline int largest_step(const Samples& samples) {
  int step = 0;
  for (std::size_t i = 1; i < samples.size(); ++i)
    step = std::max(step, std::abs(samples[i] - samples[i - 1]));
  return step;
}

using Elements = ToolFixture;

inline std::string caps_of(int channels, const char* format = GST_AUDIO_NE(S16), int rate = kRate) {
  return std::string("audio/x-raw, layout=interleaved, format=") + format +
         ", rate=" + std::to_string(rate) + ", channels=" + std::to_string(channels) +
         (channels > 2 ? ", channel-mask=(bitmask)0" : "");
}

/** One element between two pads. */
class Harness {
 public:
  explicit Harness(const std::string& launch_line)
      : harness_(gst_harness_new_parse(launch_line.c_str())), bus_(gst_bus_new()) {
    gst_element_set_bus(harness_->element, bus_);
  }
  ~Harness() {
    gst_element_set_bus(harness_->element, nullptr);
    gst_object_unref(bus_);
    gst_harness_teardown(harness_);
  }

  GstHarness* get() const { return harness_; }
  GstElement* element() const {
    return GST_ELEMENT(gst_bin_get_by_name(GST_BIN(harness_->element), "it"));
  }
  template <typename Value>
  void set(const char* property, Value value) const {
    GstElement* const it = element();
    g_object_set(it, property, value, nullptr);
    gst_object_unref(it);
  }
  void caps(const std::string& text) {
    gst_harness_set_src_caps_str(harness_, text.c_str());
    GstCaps* const caps = gst_caps_from_string(text.c_str());
    GstAudioInfo info;
    gst_audio_info_from_caps(&info, caps);
    gst_caps_unref(caps);
    frame_bytes_ = static_cast<std::size_t>(GST_AUDIO_INFO_BPF(&info));
    rate_ = static_cast<guint64>(GST_AUDIO_INFO_RATE(&info));
  }

  template <typename Sample>
  GstFlowReturn push(const Sample* samples, std::size_t frames, bool discontinuous = false) {
    GstBuffer* const buffer = gst_buffer_new_allocate(nullptr, frames * frame_bytes_, nullptr);
    gst_buffer_fill(buffer, 0, samples, frames * frame_bytes_);
    if (discontinuous) GST_BUFFER_FLAG_SET(buffer, GST_BUFFER_FLAG_DISCONT);
    GST_BUFFER_PTS(buffer) = gst_util_uint64_scale(pushed_, GST_SECOND, rate_);
    pushed_ += frames;
    GST_BUFFER_DURATION(buffer) =
        gst_util_uint64_scale(pushed_, GST_SECOND, rate_) - GST_BUFFER_PTS(buffer);
    return gst_harness_push(harness_, buffer);
  }

  /** Pushes everything in buffers of `least` to `most` frames. */
  template <typename Sample>
  void push_all(const std::vector<Sample>& samples, int least, int most) {
    std::mt19937 random(3);
    const std::size_t values = frame_bytes_ / sizeof(Sample);
    for (std::size_t done = 0; done < samples.size() / values;) {
      const std::size_t wanted =
          static_cast<std::size_t>(least) + random() % static_cast<unsigned>(most - least + 1);
      const std::size_t frames = std::min(wanted, samples.size() / values - done);
      ASSERT_EQ(push(samples.data() + done * values, frames), GST_FLOW_OK);
      done += frames;
    }
  }

  /** Lets the next buffer come this much later. */
  void skip(std::size_t frames) { pushed_ += frames; }
  /** Begins another stream, whose time begins at 0. */
  void next_track() {
    const GstClockTime base = gst_util_uint64_scale(pushed_, GST_SECOND, rate_);
    gst_harness_push_event(harness_, gst_event_new_stream_start("another"));
    GstSegment segment;
    gst_segment_init(&segment, GST_FORMAT_TIME);
    segment.base = base;
    gst_harness_push_event(harness_, gst_event_new_segment(&segment));
    pushed_ = 0;
  }

  /** Stops the element and begins another stream. */
  void restart() {
    gst_element_set_state(harness_->element, GST_STATE_NULL);
    gst_element_set_state(harness_->element, GST_STATE_PLAYING);
    gst_harness_push_event(harness_, gst_event_new_stream_start("another"));
    pushed_ = 0;
  }

  void end() { gst_harness_push_event(harness_, gst_event_new_eos()); }

  /** Everything that came out. `starts` receives the time of each buffer that does not follow on
   * the one before; without it there has to be none. */
  template <typename Sample>
  std::vector<Sample> pull_all(std::vector<GstClockTime>* starts = nullptr) {
    std::vector<Sample> result;
    GstClockTime next = GST_CLOCK_TIME_NONE;
    while (GstBuffer* const buffer = gst_harness_try_pull(harness_)) {
      if (starts) {
        if (!GST_CLOCK_TIME_IS_VALID(next) ||
            std::abs(GST_CLOCK_DIFF(next, GST_BUFFER_PTS(buffer))) > 50)
          starts->push_back(GST_BUFFER_PTS(buffer));
      } else if (GST_CLOCK_TIME_IS_VALID(next)) {
        EXPECT_LE(std::abs(GST_CLOCK_DIFF(next, GST_BUFFER_PTS(buffer))), 50) << "a gap in time";
      }
      next = GST_BUFFER_PTS(buffer) + GST_BUFFER_DURATION(buffer);
      const std::size_t old = result.size(), size = gst_buffer_get_size(buffer);
      result.resize(old + size / sizeof(Sample));
      gst_buffer_extract(buffer, 0, result.data() + old, size);
      gst_buffer_unref(buffer);
    }
    return result;
  }

  /** What was said since in messages of a type, which says something only in warnings. */
  std::vector<std::string> messages(GstMessageType type) const {
    std::vector<std::string> result;
    while (GstMessage* const message = gst_bus_pop_filtered(bus_, type)) {
      GError* error = nullptr;
      if (type == GST_MESSAGE_WARNING) gst_message_parse_warning(message, &error, nullptr);
      result.emplace_back(error ? error->message : "");
      g_clear_error(&error);
      gst_message_unref(message);
    }
    return result;
  }

 private:
  GstHarness* harness_;
  GstBus* bus_;
  std::size_t frame_bytes_ = 4;
  guint64 rate_ = kRate;
  guint64 pushed_ = 0;
};

/** What comes out of an element to which nothing happens, in buffers of `least` to `most` frames.
 */
template <typename Sample>
std::vector<Sample> filtered(const std::string& line, const std::vector<Sample>& in, int channels,
                             int least, int most, bool ends = false) {
  Harness harness(line);
  harness.caps(
      caps_of(channels, std::is_same_v<Sample, float> ? GST_AUDIO_NE(F32) : GST_AUDIO_NE(S16)));
  harness.push_all(in, least, most);
  if (ends) harness.end();
  return harness.pull_all<Sample>();
}

}  // namespace jurn_test
