// What happens around the elements while audio runs: other tracks, jumps in time, other caps, and
// properties that any thread changes at any time.
#include <fcntl.h>
#include <gst/controller/controller.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <future>
#include <string>
#include <thread>
#include <vector>

#include "harness.h"

namespace {

using namespace jurn_test;
using namespace std::chrono_literals;

const char kRings[] = "/usr/share/jconvolver/config-files/octave-band/oct-48-125.wav";

/** The elements in blocks of 480 frames, and the one without blocks, on mono. */
std::vector<std::string> every_element() {
  return {std::string("jurnconvolve name=it block=480 gain=-6 location=") + kBand,
          "jurnbinaural name=it block=480 azimuth=40",
          "jurnfilter name=it equaliser=\"LP 200 Q 2\""};
}

/** The result of one stream without an event in it. */
Samples undisturbed(const std::string& line, const Samples& in) {
  return filtered(line, in, 1, 500, 500, true);
}

GstClockTime time_of(std::size_t frames) {
  return gst_util_uint64_scale(frames, GST_SECOND, kRate);
}

using Scenes = Elements;

TEST_F(Scenes, AFilterRingsOnIntoTheNextTrackAndBehindAJumpInTime) {
  const Samples in = material(3000, 1);
  for (const std::string& line : every_element())
    for (const bool jumps : {false, true}) {
      SCOPED_TRACE(line + (jumps ? ", jumps" : ", another track"));
      const std::size_t ears = line.find("binaural") != line.npos ? 2 : 1;
      Harness harness(line);
      harness.caps(caps_of(1));
      harness.push_all(Samples(in.begin(), in.begin() + 1000), 500, 500);
      Samples result;
      if (jumps) {
        harness.skip(5 * kRate);
      } else {
        harness.next_track();
        result = harness.pull_all<short>();
        EXPECT_EQ(result.size(), 1000 * ears) << "nothing waits for the next track";
      }
      harness.push(in.data() + 1000, 500, !jumps);
      harness.push_all(Samples(in.begin() + 1500, in.end()), 500, 500);
      harness.end();
      std::vector<GstClockTime> starts;
      const Samples rest = harness.pull_all<short>(&starts);
      EXPECT_EQ(starts.front(), 0u);
      EXPECT_EQ(starts.back(), jumps ? time_of(5 * kRate + 1000) : 0u);
      EXPECT_EQ(starts.size(), jumps ? 2u : 1u);
      result.insert(result.end(), rest.begin(), rest.end());
      EXPECT_TRUE(result == undisturbed(line, in));
    }
}

TEST_F(Scenes, AGapIsSilence) {
  const Samples in = material(3000, 1);
  for (const std::string& line : every_element())
    for (const std::size_t gap : {100, 2 * kRate}) {  // shorter and longer than the filter rings
      SCOPED_TRACE(line + ", " + std::to_string(gap));
      Samples filled(in.begin(), in.begin() + 1000);
      filled.resize(1000 + gap);
      filled.insert(filled.end(), in.begin() + 1000, in.end());
      const Samples expected = undisturbed(line, filled);
      const std::size_t ears = line.find("binaural") != line.npos ? 2 : 1;
      Harness harness(line);
      harness.caps(caps_of(1));
      harness.push_all(Samples(in.begin(), in.begin() + 1000), 500, 500);
      gst_harness_push_event(harness.get(), gst_event_new_gap(time_of(1000), time_of(gap)));
      harness.skip(gap);
      harness.push_all(Samples(in.begin() + 1000, in.end()), 500, 500);
      harness.end();
      std::vector<GstClockTime> starts;
      Samples result = harness.pull_all<short>(&starts);
      if (starts.size() == 2) {  // silence was left out
        const std::size_t left_out = expected.size() - result.size();
        const std::size_t end = ears * gst_util_uint64_scale_round(starts[1], kRate, GST_SECOND);
        result.insert(result.begin() + static_cast<std::ptrdiff_t>(end - left_out), left_out, 0);
      }
      ASSERT_EQ(result.size(), expected.size());
      // After a gap that is longer than the filter rings, blocks begin elsewhere: sums of floats
      // are rounded in another order.
      const bool same = gap == 100 || line.find("block") == line.npos;
      std::size_t different = 0;
      for (std::size_t i = 0; i < result.size(); ++i) {
        ASSERT_NEAR(result[i], expected[i], same ? 0 : 1) << i;
        different += result[i] != expected[i];
      }
      EXPECT_LE(different, result.size() / 1000);
    }
}

TEST_F(Scenes, AChangeIsForTheStreamThatItWasMadeIn) {
  // Set after the end of a stereo stream, and once more before a mono stream begins.
  Harness harness(std::string("jurnconvolve name=it block=480 location=") + kBand);
  const Samples in = material(2000, 2);
  harness.caps(caps_of(2));
  harness.push_all(in, 500, 500);
  harness.end();
  std::thread([&] { harness.set("location", kRings); }).join();
  std::this_thread::sleep_for(300ms);
  (void)harness.pull_all<short>();
  harness.restart();
  harness.set("location", kBand);
  harness.caps(caps_of(1));
  harness.push_all(Samples(in.begin(), in.begin() + 2000), 500, 500);
  const Samples result = harness.pull_all<short>();
  EXPECT_EQ(result.size(), 1920u);
  EXPECT_TRUE(result == filtered(std::string("jurnconvolve block=480 location=") + kBand,
                                 Samples(in.begin(), in.begin() + 2000), 1, 500, 500));
}

TEST_F(Scenes, PropertiesMayChangeWhileCapsAlternate) {
  const Samples in = material(480, 2);
  const struct {
    const char *line, *property;
    std::string values[2];
  } cases[] = {
      {"jurnconvolve name=it location=", "location", {kBand, kRings}},
      {"jurnfilter name=it equaliser=", "equaliser", {"\"LP 200\"", "\"PK 1k 3 Q 1\""}},
  };
  for (const auto& c : cases) {
    Harness harness(c.line + c.values[0]);
    std::atomic<bool> done{false};
    std::thread setter([&] {
      GstElement* const it = harness.element();
      for (int i = 0; !done; ++i) {
        gst_util_set_object_arg(G_OBJECT(it), c.property, c.values[i % 2].c_str());
        std::this_thread::yield();
      }
      gst_object_unref(it);
    });
    GstFlowReturn flow = GST_FLOW_OK;
    for (int round = 0; round < 200 && flow == GST_FLOW_OK; ++round) {
      harness.caps(caps_of(1 + round % 2, round % 3 ? GST_AUDIO_NE(S16) : GST_AUDIO_NE(F32)));
      const std::vector<float> silence(960);
      for (int i = 0; i < 3 && flow == GST_FLOW_OK; ++i) flow = harness.push(silence.data(), 240);
      while (GstBuffer* const buffer = gst_harness_try_pull(harness.get()))
        gst_buffer_unref(buffer);
    }
    done = true;
    setter.join();
    EXPECT_EQ(flow, GST_FLOW_OK) << c.line;
  }
}

TEST_F(Scenes, NoPropertyWaitsForAFile) {
  // A pipe without a writer is a file that takes for ever.
  const std::string pipe = folder_ + "/pipe.wav", taps = write("taps.txt", "0.5\n");
  const Samples in = material(480, 1);
  for (const auto& [line, property] :
       {std::pair<std::string, const char*>{std::string("jurnconvolve location=") + kBand,
                                            "location"},
        {"jurnfilter location=" + taps, "location"},
        {"jurnbinaural", "sofa"}}) {
    SCOPED_TRACE(line);
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    Harness harness(line + " name=it");
    harness.caps(caps_of(1));
    harness.push(in.data(), 480);
    GstElement* const it = harness.element();
    char* before = nullptr;
    g_object_get(it, property, &before, nullptr);
    auto setting = std::async(std::launch::async, [&, name = property] {
      double gain = 0.0;
      g_object_set(it, name, pipe.c_str(), "gain", -1.0, nullptr);
      g_object_get(it, "gain", &gain, nullptr);
      return gain;
    });
    const bool waited = setting.wait_for(5s) != std::future_status::ready;
    EXPECT_FALSE(waited) << "a property waits";
    for (int i = 0; i < 5 && !waited; ++i) EXPECT_EQ(harness.push(in.data(), 480), GST_FLOW_OK);
    const int end = open(pipe.c_str(), O_RDWR);  // whoever reads waits no more
    unlink(pipe.c_str());
    close(end);
    EXPECT_EQ(setting.get(), -1.0);
    // A file that cannot be read leaves the one that runs.
    char* after = nullptr;
    for (int i = 0; i < 500; ++i) {
      g_free(after);
      g_object_get(it, property, &after, nullptr);
      if (std::string(after) == before) break;
      std::this_thread::sleep_for(10ms);
    }
    EXPECT_STREQ(after, before);
    g_free(before);
    g_free(after);
    gst_object_unref(it);
  }
}

/** Lets a property of an object rise by a straight line over a second. */
void control(GObject* object, const char* property, double from, double to) {
  GstControlSource* const source = gst_interpolation_control_source_new();
  g_object_set(source, "mode", GST_INTERPOLATION_MODE_LINEAR, nullptr);
  auto* const values = GST_TIMED_VALUE_CONTROL_SOURCE(source);
  gst_timed_value_control_source_set(values, 0, from);
  gst_timed_value_control_source_set(values, GST_SECOND, to);
  gst_object_add_control_binding(GST_OBJECT(object), gst_direct_control_binding_new_absolute(
                                                         GST_OBJECT(object), property, source));
  gst_object_unref(source);
}

TEST_F(Scenes, ControlSourcesMoveGainsAndBands) {
  const std::string one = write("one.txt", "1\n0\n");
  const Samples in(kRate, 10000);
  for (const std::string& line : {"jurnfilter location=" + one,
                                  std::string("jurnfilter equaliser=\"LS Fc 8000 Hz Gain -20 dB\""),
                                  "jurnconvolve block=480 location=" + one}) {
    SCOPED_TRACE(line);
    Harness harness(line + " tail=false name=it");
    GstElement* const it = harness.element();
    GObject* const band = GST_IS_CHILD_PROXY(it)
                              ? gst_child_proxy_get_child_by_index(GST_CHILD_PROXY(it), 0)
                              : nullptr;
    control(band ? band : G_OBJECT(it), "gain", -20.0, 0.0);
    int heard = 0;  // by who asks for the band again
    if (band) {
      const auto hears = +[](GObject* told, GParamSpec*, gpointer count) {
        GstObject* const parent = gst_object_get_parent(GST_OBJECT(told));
        double gain = 1.0;
        gst_child_proxy_get(GST_CHILD_PROXY(parent), "band0::gain", &gain, nullptr);
        gst_object_unref(parent);
        *static_cast<int*>(count) += gain <= 0.0;
      };
      g_signal_connect(band, "notify::gain", G_CALLBACK(hears), &heard);
      g_object_unref(band);
    }
    gst_object_unref(it);
    harness.caps(caps_of(1));
    harness.push_all(in, 480, 480);
    const Samples result = harness.pull_all<short>();
    EXPECT_EQ(heard > 50, band != nullptr);
    ASSERT_EQ(result.size(), in.size());
    for (const int at : {12000, 24000, 36000, 47000}) {
      const double wanted = -20.0 + 20.0 * at / kRate;
      const double got = 20.0 * std::log10(result[static_cast<std::size_t>(at)] / 10000.0);
      EXPECT_NEAR(got, wanted, 0.8) << at;  // a fade of 1024 frames is under way
    }
    EXPECT_LE(largest_step(Samples(result.begin() + 4800, result.end())), 30);
  }
}

TEST_F(Scenes, BandsAreChildren) {
  Harness harness("jurnfilter tail=false name=it equaliser=\"HP 80 order 4; PK 1k 3 Q 1\"");
  GstElement* const it = harness.element();
  EXPECT_EQ(gst_child_proxy_get_children_count(GST_CHILD_PROXY(it)), 2u);
  gst_child_proxy_set(GST_CHILD_PROXY(it), "band1::frequency", 3000.0, "band1::gain", -4.5,
                      "band1::q", 2.25, nullptr);
  gint type = -1;
  gst_child_proxy_get(GST_CHILD_PROXY(it), "band0::type", &type, nullptr);
  EXPECT_EQ(type, 4) << "a high-pass";
  char* lines = nullptr;
  g_object_get(it, "equaliser", &lines, nullptr);
  EXPECT_STREQ(lines, "HP 80 order 4; PK Fc 3000 Hz Gain -4.5 dB Q 2.25");
  g_free(lines);
  const Samples in = material(4000, 1);
  harness.caps(caps_of(1));
  harness.push_all(in, 500, 500);
  EXPECT_TRUE(harness.pull_all<short>() ==
              filtered("jurnfilter tail=false equaliser=\"HP 80 order 4; PK 3k -4.5 Q 2.25\"", in,
                       1, 500, 500));
  const auto set_type = [&](guint band, const char* name) {
    GObject* const child = gst_child_proxy_get_child_by_index(GST_CHILD_PROXY(it), band);
    gst_util_set_object_arg(child, "type", name);
    gst_object_unref(child);
  };
  set_type(0, "linkwitz-transform");
  gst_child_proxy_set(GST_CHILD_PROXY(it), "band0::frequency", 70.0, "band0::q", 1.125,
                      "band0::target-frequency", 28.0, "band0::target-q", 0.75, nullptr);
  set_type(1, "tilt");
  g_object_get(it, "equaliser", &lines, nullptr);
  EXPECT_STREQ(lines, "LT Fc 70 Hz Q 1.125 to 28 Hz Q 0.75; TILT Fc 3000 Hz Gain -4.5 dB");
  g_free(lines);
  gst_util_set_object_arg(G_OBJECT(it), "equaliser", "PK 1k 3 Q 1");
  EXPECT_EQ(gst_child_proxy_get_children_count(GST_CHILD_PROXY(it)), 1u);
  gst_object_unref(it);
}

TEST_F(Scenes, AnyOtherResponseFadesIn) {
  // 8001, 9001 and 65,001 taps, the loudest of them late, by whole periods of the tone below.
  const auto room = [&](int taps) {
    std::string text;
    for (int i = 0; i < taps; ++i) {
      const double along = i,
                   rings = 0.02 * std::exp(-6.0 * along / taps) * std::sin(along * along);
      text += std::to_string(i == taps * 3 / 4 / 48 * 48 ? 1.0 : rings) + "\n";
    }
    return write(std::to_string(taps) + ".txt", text);
  };
  const std::string longer = room(65001), routes = write("routes.txt", "1 1 " + longer + "\n");
  const std::string at_44 = std::string(kBand).replace(std::string(kBand).find("-48-"), 4, "-44-");
  const struct {
    const char* property;
    std::string path;
  } changes[] = {{"location", room(9001)}, {"location", longer}, {"routes", routes},
                 {"location", at_44},      {"location", kBand},  {"location", room(300)}};
  constexpr double kTurn = 2.0 * 3.14159265358979323846 * 1000.0 / kRate;
  Samples in(kRate);  // whole periods, so that it goes on from itself
  for (std::size_t i = 0; i < in.size(); ++i)
    in[i] = static_cast<short>(std::lrint(8000.0 * std::sin(kTurn * static_cast<double>(i))));
  for (const char* precision : {"double", "int16"}) {
    const std::string line =
        std::string("jurnconvolve name=it tail=false resample=true precision=") + precision;
    Harness harness(line + " block=480 location=" + room(8001));
    harness.caps(caps_of(1));
    for (int second = 0; second < 2; ++second) harness.push_all(in, 480, 480);
    for (const auto& c : changes) {
      SCOPED_TRACE(c.path + " " + precision);
      harness.set(c.property, c.path.c_str());
      for (int second = 0; second < 3; ++second) harness.push_all(in, 480, 480);
      Harness fresh(line + " block=480 " + c.property + "=" + c.path);
      fresh.caps(caps_of(1));
      for (int second = 0; second < 3; ++second) fresh.push_all(in, 480, 480);
      const Samples result = harness.pull_all<short>(), expected = fresh.pull_all<short>();
      // Neither a step, which a tone does not explain, nor a hole.
      const std::size_t first = result.size() - 3 * in.size();
      double step = 0.0;
      for (std::size_t i = std::max<std::size_t>(first, 9600); i + 1 < result.size(); ++i)
        step = std::max(
            step, std::abs(result[i - 1] + result[i + 1] - 2.0 * std::cos(kTurn) * result[i]));
      EXPECT_LT(step, 60.0);
      for (std::size_t i = first; i < result.size(); i += 480)
        ASSERT_GT(*std::max_element(result.begin() + static_cast<std::ptrdiff_t>(i),
                                    result.begin() + static_cast<std::ptrdiff_t>(i) + 480),
                  2000)
            << i - first;
      // It is what the other response gives that ran all along.
      for (std::size_t i = 1; i <= 4800; ++i)
        ASSERT_NEAR(result[result.size() - i], expected[expected.size() - i], 1) << i;
    }
  }
}

TEST_F(Scenes, PresetsRestoreAnElement) {
  const std::string taps = write("taps.txt", "0.5\n0.25\n");
  const struct {
    std::string line;
    const char* property;
  } cases[] = {{"jurnfilter name=it gain=-3 equaliser=\"PK 1k 3 Q 1\"", "equaliser"},
               {"jurnfilter name=it gain=-3 location=" + taps, "location"},
               {std::string("jurnconvolve name=it gain=-3 location=") + kBand, "location"},
               {"jurnbinaural name=it gain=-3", "sofa"}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.line);
    Harness saved(c.line), loaded(c.line.substr(0, c.line.find(' ')) + " name=it");
    GstElement *const from = saved.element(), *const to = loaded.element();
    ASSERT_TRUE(gst_preset_save_preset(GST_PRESET(from), "a test"));
    EXPECT_TRUE(gst_preset_load_preset(GST_PRESET(to), "a test"));
    EXPECT_TRUE(gst_preset_delete_preset(GST_PRESET(from), "a test"));
    char *was = nullptr, *is = nullptr;
    double gain = 0.0;
    g_object_get(from, c.property, &was, nullptr);
    g_object_get(to, c.property, &is, "gain", &gain, nullptr);
    EXPECT_STREQ(is, was);
    EXPECT_EQ(gain, -3.0);
    g_free(was);
    g_free(is);
    gst_object_unref(from);
    gst_object_unref(to);
  }
}

TEST_F(Scenes, UpstreamAllocatesForItself) {
  // The sink's buffers are as long as what comes out, not as what goes in.
  Harness harness("jurnbinaural block=480");
  gst_harness_add_propose_allocation_meta(harness.get(), GST_AUDIO_META_API_TYPE, nullptr);
  harness.caps(caps_of(1));
  GstCaps* const caps = gst_caps_from_string(caps_of(1).c_str());
  GstQuery* const query = gst_query_new_allocation(caps, TRUE);
  EXPECT_TRUE(gst_pad_peer_query(harness.get()->srcpad, query));
  EXPECT_EQ(gst_query_get_n_allocation_pools(query), 0u);
  EXPECT_EQ(gst_query_get_n_allocation_metas(query), 0u);
  gst_query_unref(query);
  gst_caps_unref(caps);
}

TEST_F(Scenes, ASliderWarnsOnceAndSaysWhatToDo) {
  Harness harness("jurnfilter name=it equaliser=\"PK 1k 3 Q 1\" gain=-9");
  harness.caps(caps_of(1));
  const Samples in(480);
  for (int i = 0; i < 30; ++i) {
    harness.set("gain", 1.0 + 0.1 * i);
    harness.push(in.data(), 480);
  }
  const std::vector<std::string> warnings = harness.messages(GST_MESSAGE_WARNING);
  for (const std::string& text : warnings)
    EXPECT_NE(text.find("lower gain"), std::string::npos) << text;
  EXPECT_GE(warnings.size(), 1u);
  EXPECT_LE(warnings.size(), 5u);
}

}  // namespace
