// The elements in GstCheck's harness: their output has to be that of jurn-filter, bit for bit,
// however the stream is cut into buffers.
#include <cmath>
#include <cstring>
#include <string>
#include <vector>

#include "../allocations.h"
#include "harness.h"

namespace {

using namespace jurn_test;

/** A file of numpy.save of the shape (2, 6). */
std::string two_rows_of_six(const double (&values)[12]) {
  std::string text = std::string("\x93NUMPY\x01\x00v\x00", 10) +
                     "{'descr': '<f8', 'fortran_order': False, 'shape': (2, 6), }";
  text.resize(10 + 0x76, ' ');
  for (const double value : values) {
    char bytes[sizeof value];
    std::memcpy(bytes, &value, sizeof value);
    text.append(bytes, sizeof bytes);
  }
  return text;
}

// Numerator and denominator of fifth order, which are no two sections.
constexpr double kFifth[] = {0.1, 0.2, 0.1, 0.2, 0.1, 0.2, 1.0, -0.5, 0.25, -0.1, 0.05, -0.01};

constexpr char kLowCut[] = "0.9 -1.8 0.9\n1 -1.8 0.81\n";  // numerator, denominator

/** What comes out of an element, in buffers of up to `most` frames, as long as the tool's result:
 * the tool ends some kinds with the recording. What an element ends before nobody hears: it is
 * below half a step of 24 bits. */
template <typename Sample>
std::vector<Sample> result_of(const std::string& element, const std::vector<Sample>& in,
                              int channels, int most, std::vector<Sample>* expected) {
  std::vector<Sample> result = filtered(element, in, channels, 1, most, true);
  for (std::size_t i = result.size(); i < expected->size(); ++i) {
    Sample& rest = (*expected)[i];
    EXPECT_LE(std::abs(static_cast<double>(rest)), 0x1p-24);
    rest = 0;
  }
  result.resize(expected->size());
  return result;
}

template <typename Sample>
void expect_same(const std::vector<Sample>& result, const std::vector<Sample>& expected) {
  ASSERT_EQ(result.size(), expected.size());
  std::size_t different = 0;
  for (std::size_t i = 0; i < result.size(); ++i)
    if (result[i] != expected[i] && different++ == 0)
      ADD_FAILURE() << "sample " << i << ": " << result[i] << " instead of " << expected[i];
  EXPECT_EQ(different, 0u) << "of " << result.size();
}

TEST_F(Elements, EveryKindIsTheToolsWhateverTheBuffers) {
  const std::string taps = write("taps.txt", "0.5\n-0.25\n0.125\n0.5\n");
  const std::string low_cut = write("low-cut.txt", kLowCut);
  const std::string fifth = write("fifth.npy", two_rows_of_six(kFifth));
  const std::string band = kBand;
  std::string text;
  for (int i = 0; i < 300; ++i) text += std::to_string(std::sin(i * i) / (i + 1)) + "\n";
  const std::string long_taps = write("long.txt", text);
  const std::string routes =
      write("routes.txt", "1 3 " + band + "\n2 1 " + band + "\n1 1 " + band + "\n");
  const std::string lines = "PK 3k -4 Q 2; HS 8k 3; LS Fc 100 Hz Gain 2 dB";
  const std::string equaliser = write("room.txt",
                                      "Filter 1: ON PK Fc 3000 Hz Gain -4 dB Q 2\n"
                                      "Filter 2: ON HS Fc 8000 Hz Gain 3 dB\n"
                                      "Filter 3: ON LS Fc 100 Hz Gain 2 dB\n");
  const std::string device = "precision=int16", as_device = "--precision int16 ";
  const struct {
    std::string element, arguments;
    int channels;
  } cases[] = {
      {"jurnfilter location=" + taps, "fir -c " + taps, 2},
      {"jurnfilter kind=fir coefficients=\"<<0.5,-0.25,0.125,0.5>>\"", "fir -c " + taps, 1},
      {"jurnfilter location=" + long_taps, "fir --time-domain -c " + long_taps, 2},
      {"jurnfilter location=" + low_cut, "iir -c " + low_cut, 2},
      {"jurnfilter location=" + fifth, "iir -c " + fifth, 2},
      {"jurnfilter coefficients=\"<<0.1,0.2,0.1,0.2,0.1,0.2>,<1.0,-0.5,0.25,-0.1,0.05,-0.01>>\"",
       "iir -c " + fifth, 1},
      {"jurnfilter coefficients=\"<<0.9,-1.8,0.9>,<1.0,-1.8,0.81>>\"", "iir -c " + low_cut, 1},
      {"jurnfilter coefficients=\"<<1.8,-3.6,1.8>,<2.0,-3.6,1.62>>\"", "iir -c " + low_cut, 1},
      {"jurnfilter location=" + equaliser, "sos -c " + equaliser, 2},
      {"jurnfilter equaliser=\"" + lines + "\" gain=-3", "sos --gain -3 -c " + equaliser, 2},
      {"jurnfilter " + device + " location=" + taps, "fir " + as_device + "-c " + taps, 2},
      {"jurnfilter " + device + " location=" + long_taps, "fir " + as_device + "-c " + long_taps,
       1},
      {"jurnfilter " + device + " location=" + fifth, "iir " + as_device + "-c " + fifth, 2},
      {"jurnfilter " + device + " location=" + equaliser, "sos " + as_device + "-c " + equaliser,
       2},
      {"jurnfilter " + device + " kind=average length=24", "average " + as_device + "--length 24",
       2},
      {"jurnfilter kind=average length=5000", "average --length 5000", 1},
      {"jurnbinaural block=256 azimuth=40", "binaural --block 256 --azimuth 40", 1},
      {"jurnconvolve block=480 gain=-6 location=" + band,
       "convolve --block 480 --gain -6 --ir " + band, 2},
      {"jurnconvolve block=480 routes=" + routes, "convolve --block 480 --routes " + routes, 2},
      {"jurnconvolve block=480 gain=-6 location=" + band + " " + device,
       "convolve --block 480 --gain -6 --ir " + band + " --precision int16", 2},
      {"jurnconvolve block=480 routes=" + routes + " " + device,
       "convolve --block 480 --routes " + routes + " --precision int16", 2},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.element);
    const Samples in = material(40000, c.channels);
    Samples expected = tool(c.arguments, in, c.channels);
    for (const int most : {5000, 300})
      expect_same(result_of(c.element, in, c.channels, most, &expected), expected);
    std::vector<float> floats;
    for (const short x : in) floats.push_back(static_cast<float>(x) / 32768.0f);
    std::vector<float> exact = tool<float>(c.arguments, in, c.channels);
    std::vector<float> result = result_of(c.element, floats, c.channels, 700, &exact);
    // What is 600 dB below full scale ends in silence a little sooner on this scale than on
    // int16's.
    for (std::vector<float>* both : {&exact, &result})
      for (float& x : *both) x = std::abs(x) < 1e-30f ? 0.0f : x;
    expect_same(result, exact);
  }
}

TEST_F(Elements, ManyChannelsAreFilteredLikeEachAlone) {
  const std::string line =
      "jurnfilter tail=false equaliser=\"PK Fc 3000 Hz Gain -4 dB Q 2; HS Fc 8000 Hz Gain 3 dB\"";
  for (const int channels : {3, 6}) {
    const Samples in = material(3000, channels);
    const Samples result = filtered(line, in, channels, 100, 700);
    ASSERT_EQ(result.size(), in.size());
    for (int c = 0; c < channels; ++c) {
      Samples one;
      for (std::size_t i = static_cast<std::size_t>(c); i < in.size();
           i += static_cast<std::size_t>(channels))
        one.push_back(in[i]);
      const Samples expected = filtered(line, one, 1, 64, 64);
      for (std::size_t i = 0; i < expected.size(); ++i)
        ASSERT_EQ(result[i * static_cast<std::size_t>(channels) + static_cast<std::size_t>(c)],
                  expected[i]);
    }
  }
}

TEST_F(Elements, FloatsGoThroughDoublePrecision) {
  const Samples in = material(6000, 2);
  std::vector<float> quiet;
  for (const short x : in) quiet.push_back(static_cast<float>(x) / 327680.0f);
  const std::vector<float> result =
      filtered("jurnfilter tail=false equaliser=\"PK Fc 50 Hz Gain 6 dB Q 4\"", quiet, 2, 1, 900);
  ASSERT_EQ(result.size(), quiet.size());
  // The cookbook's peak, in double, on the left channel.
  const double amp = std::pow(10.0, 6.0 / 40.0), w = 2.0 * std::acos(-1.0) * 50.0 / kRate;
  const double alpha = std::sin(w) / 8.0, a0 = 1.0 + alpha / amp;
  const double b[] = {(1.0 + alpha * amp) / a0, -2.0 * std::cos(w) / a0, (1.0 - alpha * amp) / a0};
  const double a[] = {1.0, -2.0 * std::cos(w) / a0, (1.0 - alpha / amp) / a0};
  double x1 = 0, x2 = 0, y1 = 0, y2 = 0;
  for (std::size_t i = 0; i < quiet.size(); i += 2) {
    const double x = static_cast<double>(quiet[i]);
    const double y = b[0] * x + b[1] * x1 + b[2] * x2 - a[1] * y1 - a[2] * y2;
    x2 = x1, x1 = x, y2 = y1, y1 = y;
    ASSERT_NEAR(static_cast<double>(result[i]), y, 2e-8) << i / 2;
  }
}

TEST_F(Elements, ChangesFadeWithoutAStep) {
  // A constant is turned from 1.0 to -1.0 times itself: along the ramp, never in one step.
  const Samples constant(20000, 10000);
  const std::string minus = write("minus.txt", "-1\n0\n"), plus = write("plus.txt", "1\n0\n");
  for (const int size : {64, 480, 3000}) {
    Harness harness("jurnfilter tail=false name=it location=" + plus);
    harness.caps(caps_of(1));
    for (std::size_t done = 0; done + 3000 <= constant.size(); done += 3000) {
      if (done == 6000) harness.set("location", minus.c_str());
      for (int part = 0; part < 3000; part += size)
        harness.push(constant.data(), static_cast<std::size_t>(std::min(size, 3000 - part)));
    }
    const Samples result = harness.pull_all<short>();
    EXPECT_EQ(result[5999], 10000);
    EXPECT_EQ(result.back(), -10000);
    EXPECT_LE(largest_step(result), 20000 / 1023 + 1) << size;
  }
  for (const char* element :
       {"jurnconvolve block=480 location=", "jurnbinaural block=480 azimuth="}) {
    const bool binaural = element[4] == 'b';
    const std::string first = binaural ? "0" : std::string(kBand);
    Harness harness(element + first + " name=it");
    harness.caps(caps_of(1));
    Samples sine(48000);
    for (std::size_t i = 0; i < sine.size(); ++i)
      sine[i] = static_cast<short>(8000.0 * std::sin(static_cast<double>(i) * 0.05));
    harness.push_all(Samples(sine.begin(), sine.begin() + 24000), 480, 480);
    if (binaural)
      harness.set("azimuth", 90.0);
    else
      harness.set("gain", -20.0);
    harness.push_all(Samples(sine.begin() + 24000, sine.end()), 480, 480);
    Samples left, result = harness.pull_all<short>();
    for (std::size_t i = 0; i < result.size(); i += binaural ? 2 : 1) left.push_back(result[i]);
    const Samples before(left.begin() + 12000, left.begin() + 24000);
    const Samples after(left.begin() + 36000, left.end());
    EXPECT_LE(largest_step(Samples(left.begin() + 12000, left.end())),
              std::max(largest_step(before), largest_step(after)) + 60)
        << element;
    EXPECT_NE(largest_step(before), largest_step(after)) << "nothing changed";
  }
}

TEST_F(Elements, LatencyIsReportedOnceBuffersAreNoMultiplesOfTheBlock) {
  Harness harness(std::string("jurnconvolve name=it location=") + kBand);
  harness.caps(caps_of(1));
  const Samples in = material(4800, 1);
  harness.push_all(Samples(in.begin(), in.begin() + 960), 480, 480);
  EXPECT_EQ(gst_harness_query_latency(harness.get()), 0u);
  EXPECT_EQ(harness.pull_all<short>().size(), 960u);
  harness.push(in.data(), 100);
  EXPECT_EQ(gst_harness_query_latency(harness.get()), GST_SECOND / 100);
}

TEST_F(Elements, GraphicEqualisersTellByHowMuchTheyAreLate) {
  const std::string graphic = write("graphic.txt", "GraphicEQ: 20 0; 1000 6; 20000 0\n");
  Harness harness("jurnfilter name=it gain=-7 location=" + graphic);
  harness.caps(caps_of(1));
  Samples in(4800);
  in[0] = 10000;
  harness.push(in.data(), in.size());
  const Samples result = harness.pull_all<short>();
  const auto peak = std::max_element(result.begin(), result.end()) - result.begin();
  EXPECT_EQ(peak, 624);
  EXPECT_EQ(gst_harness_query_latency(harness.get()), 13 * GST_MSECOND);
  GstBus* const bus = gst_bus_new();
  GstElement* const it = harness.element();
  gst_element_set_bus(it, bus);
  harness.set("equaliser", "PK 1k 3 Q 1");
  harness.push(in.data(), in.size());
  EXPECT_EQ(gst_harness_query_latency(harness.get()), 0u);
  GstMessage* const message = gst_bus_pop_filtered(bus, GST_MESSAGE_LATENCY);
  ASSERT_TRUE(message) << "nobody asks again";
  gst_message_unref(message);
  gst_element_set_bus(it, nullptr);
  gst_object_unref(it);
  gst_object_unref(bus);
}

TEST_F(Elements, TailsEndWithTheStreamAndFlushesForgetIt) {
  const std::string taps = write("taps.txt", "0.5\n0\n0\n0.5\n");
  Harness harness("jurnfilter name=it location=" + taps);
  harness.caps(caps_of(1));
  const Samples ones(4, 1000);
  harness.push(ones.data(), 4);
  gst_harness_push_event(harness.get(), gst_event_new_flush_start());
  gst_harness_push_event(harness.get(), gst_event_new_flush_stop(TRUE));
  GstSegment segment;
  gst_segment_init(&segment, GST_FORMAT_TIME);
  gst_harness_push_event(harness.get(), gst_event_new_segment(&segment));
  (void)harness.pull_all<short>();
  harness.push(ones.data(), 4);
  EXPECT_EQ(harness.pull_all<short>(), Samples({500, 500, 500, 1000})) << "after the flush";
  harness.end();
  EXPECT_EQ(harness.pull_all<short>(), Samples({500, 500, 500}));
}

TEST_F(Elements, DiscontinuitiesStartFromSilence) {
  const std::string band = kBand;
  for (const std::string& line : {std::string("jurnfilter tail=false equaliser=\"LP 200 Q 2\""),
                                  "jurnconvolve tail=false block=64 location=" + band}) {
    SCOPED_TRACE(line);
    const Samples in = material(1280, 1);
    Harness broken(line);
    broken.caps(caps_of(1));
    broken.push_all(in, 640, 640);
    (void)broken.pull_all<short>();
    broken.push(in.data(), 640, true);
    broken.push(in.data() + 640, 640);
    EXPECT_TRUE(broken.pull_all<short>() == filtered(line, in, 1, 640, 640));
  }
}

TEST_F(Elements, SteadyStreamsAllocateNothing) {
  const std::string band = kBand, taps = write("taps.txt", "0.5\n-0.25\n0.125\n");
  for (const std::string& line :
       {std::string("jurnfilter equaliser=\"PK 1k 3 Q 1\""), "jurnfilter location=" + taps,
        std::string("jurnfilter kind=average length=99"), "jurnconvolve location=" + band,
        "jurnconvolve block=64 location=" + band, std::string("jurnbinaural azimuth=30")}) {
    SCOPED_TRACE(line);
    Harness harness(line + " name=it");
    harness.caps(caps_of(1));
    const Samples in = material(480, 1);
    for (int i = 0; i < 8; ++i) harness.push(in.data(), 480);
    const long before = allocations;
    GstFlowReturn flow = GST_FLOW_OK;
    for (int i = 0; i < 50 && flow == GST_FLOW_OK; ++i) flow = harness.push(in.data(), 480);
    EXPECT_EQ(allocations, before);
    if (line.find("location") != line.npos) {  // preparing another filter is counted
      harness.set("gain", -3.0);
      harness.push(in.data(), 480);
      EXPECT_GT(allocations, before);
    }
    EXPECT_EQ(flow, GST_FLOW_OK);
  }
}

TEST_F(Elements, CapsMayChangeInMidStream) {
  Harness harness("jurnfilter tail=false name=it equaliser=\"PK Fc 3000 Hz Gain -4 dB Q 2\"");
  const Samples in = material(2000, 2);
  harness.caps(caps_of(2));
  harness.push_all(in, 200, 200);
  (void)harness.pull_all<short>();
  harness.caps(caps_of(1, GST_AUDIO_NE(S16), 16000));
  harness.push_all(in, 333, 333);
  const Samples result = harness.pull_all<short>();
  Harness fresh("jurnfilter tail=false name=it equaliser=\"PK Fc 3000 Hz Gain -4 dB Q 2\"");
  fresh.caps(caps_of(1, GST_AUDIO_NE(S16), 16000));
  fresh.push_all(in, 333, 333);
  EXPECT_TRUE(result == fresh.pull_all<short>());
}

TEST_F(Elements, ErrorsNameTheFileAndLeaveTheRunningFilter) {
  const std::string taps = write("taps.txt", "0.5\n"), broken = write("broken.txt", "0.5\nhello\n");
  for (const char* path : {"/nowhere/taps.txt", broken.c_str()}) {
    Harness harness("jurnfilter name=it location=" + taps);
    GstBus* const bus = gst_bus_new();
    GstElement* const it = harness.element();
    gst_element_set_bus(it, bus);
    harness.caps(caps_of(1));
    const Samples in(64, 1000);
    harness.push(in.data(), 64);
    harness.set("location", path);
    harness.push(in.data(), 64);
    EXPECT_EQ(harness.pull_all<short>(), Samples(128, 500));
    GstMessage* const message = gst_bus_pop_filtered(bus, GST_MESSAGE_WARNING);
    ASSERT_TRUE(message);
    GError* error = nullptr;
    gst_message_parse_warning(message, &error, nullptr);
    EXPECT_NE(std::string(error->message).find(path), std::string::npos) << error->message;
    g_error_free(error);
    gst_message_unref(message);
    gst_element_set_bus(it, nullptr);
    gst_object_unref(it);
    gst_object_unref(bus);
  }
}

TEST_F(Elements, StatisticsCountPeakAndClippedSamples) {
  Harness harness("jurnfilter tail=false name=it kind=fir coefficients=\"<<2.0>>\"");
  harness.caps(caps_of(1));
  const Samples in{100, 20000, -20000, 50};
  harness.push(in.data(), 4);
  GstElement* const it = harness.element();
  GstStructure* statistics = nullptr;
  g_object_get(it, "statistics", &statistics, nullptr);
  double peak = 0;
  guint64 clipped = 0, frames = 0;
  EXPECT_TRUE(gst_structure_get(statistics, "peak", G_TYPE_DOUBLE, &peak, "clipped", G_TYPE_UINT64,
                                &clipped, "frames", G_TYPE_UINT64, &frames, nullptr));
  EXPECT_EQ(peak, 1.0);
  EXPECT_EQ(clipped, 2u);
  EXPECT_EQ(frames, 4u);
  gst_structure_free(statistics);
  gst_object_unref(it);
}

}  // namespace

int main(int argc, char** argv) {
  gst_init(&argc, &argv);
  testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
