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
      {"jurnfilter equaliser=\"" + lines + "\" gain=-3", "sos --gain -3 -c " + equaliser, 6},
      {"jurnfilter " + device + " location=" + taps, "fir " + as_device + "-c " + taps, 2},
      {"jurnfilter " + device + " location=" + long_taps, "fir " + as_device + "-c " + long_taps,
       1},
      {"jurnfilter " + device + " location=" + fifth, "iir " + as_device + "-c " + fifth, 2},
      {"jurnfilter " + device + " location=" + equaliser, "sos " + as_device + "-c " + equaliser,
       2},
      {"jurnfilter " + device + " kind=average length=24", "average " + as_device + "--length 24",
       2},
      {"jurnfilter kind=average length=5000", "average --length 5000", 1},
      {"jurnbinaural block=256 azimuth=40 elevation=20",
       "binaural --block 256 --azimuth 40 --elevation 20", 1},
      {"jurnconvolve block=480 normalise=true routes=" + routes + " location=" + band,
       "convolve --block 480 --normalise --ir " + band, 1},
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

TEST_F(Elements, AMovedSourceFadesWithoutAStep) {
  Samples sine(24000);  // whole periods
  std::vector<float> floats;
  for (std::size_t i = 0; i < sine.size(); ++i) {
    sine[i] = static_cast<short>(8000.0 * std::sin(static_cast<double>(i) * std::acos(-1.0) / 60));
    floats.push_back(static_cast<float>(sine[i]) / 32768.0f);
  }
  const auto run = [](const auto& samples, const char* format) {
    Harness harness("jurnbinaural block=480 azimuth=0 name=it");
    harness.caps(caps_of(1, format));
    harness.push_all(samples, 480, 480);
    harness.set("azimuth", 90.0);
    harness.push_all(samples, 480, 480);
    return harness.pull_all<typename std::decay_t<decltype(samples)>::value_type>();
  };
  const Samples result = run(sine, GST_AUDIO_NE(S16));
  const std::vector<float> of_floats = run(floats, GST_AUDIO_NE(F32));
  ASSERT_EQ(result.size(), 4 * sine.size());
  ASSERT_EQ(of_floats.size(), result.size());
  Samples left;
  for (std::size_t i = 0; i < result.size(); ++i) {
    // Words drop fractions, twice in a fade.
    ASSERT_NEAR(static_cast<double>(of_floats[i]) * 32768.0, result[i], 2.0) << i;
    if (i % 2 == 0) left.push_back(result[i]);
  }
  const int before = largest_step(Samples(left.begin() + 12000, left.begin() + 24000));
  const int after = largest_step(Samples(left.begin() + 36000, left.end()));
  EXPECT_LE(largest_step(Samples(left.begin() + 12000, left.end())), std::max(before, after) + 60);
  EXPECT_NE(before, after) << "nothing changed";
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
  harness.set("equaliser", "PK 1k 3 Q 1");
  harness.push(in.data(), in.size());
  EXPECT_EQ(gst_harness_query_latency(harness.get()), 0u);
  EXPECT_EQ(harness.messages(GST_MESSAGE_LATENCY).size(), 2u) << "nobody asks again";
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
  const Samples in = material(2000, 2);
  Samples results[2];
  for (const bool changes : {false, true}) {
    Harness harness("jurnfilter tail=false equaliser=\"PK Fc 3000 Hz Gain -4 dB Q 2\"");
    if (changes) {
      harness.caps(caps_of(2));
      harness.push_all(in, 200, 200);
      (void)harness.pull_all<short>();
    }
    harness.caps(caps_of(1, GST_AUDIO_NE(S16), 16000));
    harness.push_all(in, 333, 333);
    results[changes] = harness.pull_all<short>();
  }
  EXPECT_TRUE(results[0] == results[1]);
}

TEST_F(Elements, ErrorsNameTheFileAndLeaveTheRunningFilter) {
  const std::string taps = write("taps.txt", "0.5\n"), broken = write("broken.txt", "0.5\nhello\n");
  for (const char* path : {"/nowhere/taps.txt", broken.c_str()}) {
    Harness harness("jurnfilter name=it location=" + taps);
    harness.caps(caps_of(1));
    const Samples in(64, 1000);
    harness.push(in.data(), 64);
    harness.set("location", path);
    harness.push(in.data(), 64);
    EXPECT_EQ(harness.pull_all<short>(), Samples(128, 500));
    const std::vector<std::string> warnings = harness.messages(GST_MESSAGE_WARNING);
    ASSERT_EQ(warnings.size(), 1u);
    EXPECT_NE(warnings[0].find(path), std::string::npos) << warnings[0];
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
