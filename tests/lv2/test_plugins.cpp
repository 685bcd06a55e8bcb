// The LV2 plugins in a host: the tool's samples, changes, files, state.
#include <algorithm>
#include <cmath>
#include <numeric>
#include <random>

#include "../allocations.h"
#include "../tool_fixture.h"
#include "host.h"

namespace jurn_test {
namespace {

constexpr int kFrames = 30000, kBlock = 64;
constexpr const char* kHall = kBand;
constexpr char kOtherHall[] = "/usr/share/jconvolver/config-files/octave-band/oct-48-4k.wav";

std::vector<float> two_bands() {
  std::vector<float> controls = flat();
  const float bands[] = {1.0F, 4.0F, 80.0F, 0.0F, 0.5F, 1.0F, 0.0F, 3000.0F, -4.0F, 2.0F};
  std::copy(std::begin(bands), std::end(bands), controls.begin());
  return controls;
}
const std::vector<float> kConvolver = {-12.0F, -90.0F, 0.0F, 0.0F};

/** 16-bit samples, so that the tool reads the very same. */
Channels noise(int channels) {
  std::mt19937 random(3);
  Channels result(static_cast<std::size_t>(channels), std::vector<float>(kFrames));
  for (int i = 0; i < kFrames; ++i)
    for (auto& channel : result)
      channel[static_cast<std::size_t>(i)] =
          static_cast<float>(static_cast<int>(random() % 32768) - 16384) / 32768.0F;
  return result;
}
Channels sine() {
  Channels result(1, std::vector<float>(kFrames));
  for (int i = 0; i < kFrames; ++i)
    result[0][static_cast<std::size_t>(i)] = 0.5F * static_cast<float>(std::sin(0.02 * i));
  return result;
}
Channels silence(int channels) {
  return Channels(static_cast<std::size_t>(channels), std::vector<float>(kFrames));
}

class Plugins : public ToolFixture {
 protected:
  Channels tool(const std::string& arguments, const Channels& in, std::size_t outputs) const {
    std::vector<short> samples;
    for (std::size_t i = 0; i < kFrames; ++i)
      for (const auto& channel : in) samples.push_back(static_cast<short>(channel[i] * 32768.0F));
    std::vector<float> made =
        ToolFixture::tool<float>(arguments, samples, static_cast<int>(in.size()));
    made.resize(outputs * kFrames);
    Channels out(outputs);
    for (std::size_t i = 0; i < made.size(); ++i) out[i % outputs].push_back(made[i]);
    return out;
  }
};

/** Calls of any length. */
Channels run(Host* host, const Channels& in, int outputs) {
  std::mt19937 random(5);
  Channels out = silence(outputs);
  for (int at = 0; at < kFrames;) {
    const int most = random() % 4 ? 700 : 8192;
    const int frames =
        std::min(kFrames - at, 1 + static_cast<int>(random() % static_cast<unsigned>(most)));
    host->run(in, &out, at, frames);
    at += frames;
  }
  return out;
}

/** The same, `late` frames later. */
void expect_same(const Channels& heard, const Channels& expected, int late) {
  for (std::size_t c = 0; c < expected.size(); ++c)
    for (int i = late; i < kFrames; ++i)
      ASSERT_EQ(heard[c][static_cast<std::size_t>(i)],
                expected[c][static_cast<std::size_t>(i - late)])
          << "channel " << c << ", frame " << i;
}

TEST_F(Plugins, GiveTheToolsSamplesWhateverTheCalls) {
  for (const int channels : {1, 2}) {
    const std::string name = channels == 1 ? "-mono" : "-stereo";
    const Channels in = noise(channels);
    Host equaliser("equaliser" + name, kRate, channels, channels, true, two_bands());
    equaliser.activate();
    expect_same(run(&equaliser, in, channels),
                tool("eq 'HP 80 Q 0.5' 'PK 3000 -4 Q 2'", in, channels), 0);
    EXPECT_EQ(equaliser.latency, 0.0F);

    Host convolver("convolver" + name, kRate, channels, channels, true, kConvolver);
    State hall = convolver.save();
    EXPECT_TRUE(hall.empty());
    convolver.activate();
    Channels out = silence(channels);
    convolver.load("impulse-response", kHall, in, &out, 0, 1);
    convolver.activate();
    expect_same(run(&convolver, in, channels),
                tool(std::string("convolve --block 64 --gain -12 --ir ") + kHall, in, channels),
                kBlock);
    EXPECT_EQ(convolver.latency, kBlock);
    EXPECT_EQ(convolver.said() + equaliser.said(), "");
  }
  const Channels mono = noise(1), stereo = noise(2);
  Host binaural("binaural", kRate, 1, 2, true, {30.0F, 10.0F, 2.0F});
  binaural.activate();
  expect_same(
      run(&binaural, mono, 2),
      tool("binaural --block 64 --azimuth 30 --elevation 10 --gain -6.020599913279624", mono, 2),
      kBlock);

  Host setup("setup-8-outputs", kRate, 2, 8, false, {});
  setup.activate();
  Channels out = silence(8);
  setup.run(stereo, &out, 0, kFrames);
  for (const auto& channel : out)
    EXPECT_EQ(std::count(channel.begin(), channel.end(), 0.0F), kFrames);  // a tweeter lives
  setup.load("setup", JURN_TWO_WAY, stereo, &out, 0, 1);
  setup.activate();
  out = run(&setup, stereo, 8);
  expect_same(out, tool(std::string("setup -c ") + JURN_TWO_WAY, stereo, 4), kBlock);
  EXPECT_EQ(std::count(out[5].begin(), out[5].end(), 0.0F), kFrames);
  EXPECT_EQ(setup.said() + binaural.said(), "");
}

TEST_F(Plugins, ChangesFadeAndAllocateNothingInTheAudioThread) {
  const Channels in = sine();
  Channels out = silence(1);
  std::vector<float> controls = flat();
  Host host("equaliser-mono", kRate, 1, 1, true, controls);
  host.activate();
  for (int at = 0, call = 0; at + 250 <= kFrames; at += 250, ++call) {
    if (call == 20) host.control(0) = 1.0F, host.control(2) = 150.0F, host.control(3) = 6.0F;
    if (call == 50) host.enabled = 0.0F;
    if (call == 80) host.enabled = 1.0F, host.control(80) = -20.0F;
    if (call == 110) host.control(7) = NAN;  // of a band that is off
    host.settle();
    const long before = allocations;
    host.run(in, &out, at, 250);
    // What the worker made, it made meanwhile; so count where it has nothing to do.
    if (call % 10 == 5) {
      EXPECT_EQ(allocations, before);
    }
    host.settle();
  }
  EXPECT_EQ(host.asked, 4);
  float step = 0.0F, loudest = 0.0F;
  for (std::size_t i = 1; i < out[0].size() - 250; ++i) {
    step = std::max(step, std::abs(out[0][i] - out[0][i - 1]));
    loudest = std::max(loudest, std::abs(out[0][i]));
  }
  EXPECT_GT(loudest, 0.9F);  // the band was heard
  EXPECT_LT(step, 0.02F * loudest * 1.5F);
  const std::size_t bypassed = 70 * 250;
  EXPECT_EQ(out[0][bypassed], in[0][bypassed]);
}

TEST_F(Plugins, FilesAreStoredToldAndRefusedWithASentence) {
  const Channels in = noise(2);
  Channels out = silence(2);
  Host host("convolver-stereo", kRate, 2, 2, true, kConvolver);
  host.activate();
  const auto load = [&](const std::string& path, int at) {
    host.load("impulse-response", path, in, &out, at, 100);
  };
  load(kHall, 0);
  host.run(in, &out, 100, 100);
  EXPECT_TRUE(host.told(kHall));

  // One that is missing leaves the other in its place, and says so.
  load("/nowhere.wav", 200);
  host.run(in, &out, 300, 100);
  EXPECT_TRUE(host.told(kHall));
  EXPECT_FALSE(host.told("/nowhere.wav"));
  EXPECT_NE(host.said().find("/nowhere.wav"), std::string::npos) << host.said();

  // A level is no reason to read a file again; naming it again is.
  const std::string moved = folder_ + "/hall.wav";
  std::filesystem::copy_file(kHall, moved);
  load(moved, 400);
  std::filesystem::remove(moved);
  const std::string said = host.said();
  host.control(0) = -6.0F;
  host.run(in, &out, 500, 100);
  host.settle();
  EXPECT_EQ(host.said(), said);
  load(moved, 600);
  EXPECT_NE(host.said(), said);
  host.control(0) = kConvolver[0];
  load(kHall, 700);
  // The one request for both was enough.
  const int asked = host.asked;
  host.run(in, &out, 800, 100);
  EXPECT_EQ(host.asked, asked);

  // A name waits until the worker has room; one that is too long is refused like a missing one.
  host.has_room = false;
  load(kOtherHall, 900);
  host.has_room = true;
  host.run(in, &out, 1000, 100);
  host.settle();
  host.run(in, &out, 1100, 100);
  EXPECT_TRUE(host.told(kOtherHall));
  load("/" + std::string(5000, 'x'), 1200);
  EXPECT_NE(host.said().find("/xxx"), std::string::npos);
  load(kHall, 1300);

  const State state = host.save();
  ASSERT_EQ(state.size(), 1U);
  EXPECT_EQ(state.begin()->second, std::string("stored:") + kHall + std::string(1, '\0'));
  Host second("convolver-stereo", kRate, 2, 2, true, kConvolver);
  second.restore(state);
  second.activate();
  host.activate();
  expect_same(run(&second, in, 2), run(&host, in, 2), 0);
  // While it runs, too.
  Host third("convolver-stereo", kRate, 2, 2, true, kConvolver);
  third.activate();
  third.run(in, &out, 0, 100);
  third.restore(state);
  third.run(in, &out, 100, 100);
  EXPECT_TRUE(third.told(kHall));
  third.load("impulse-response", kOtherHall, in, &out, 200, 100);
  EXPECT_NE(third.save(), state);
}

TEST_F(Plugins, RunAtEveryRate) {
  const Channels in = noise(2);
  for (const int rate : {8000, 22050, 44100, 96000, 192000}) {
    Host equaliser("equaliser-stereo", rate, 2, 2, true, two_bands());
    Host convolver("convolver-stereo", rate, 2, 2, true, kConvolver);
    Channels out = silence(2);
    convolver.activate();
    convolver.load("impulse-response", kHall, in, &out, 0, 1);
    for (Host* const host : {&equaliser, &convolver}) {
      host->activate();
      out = run(host, in, 2);
      const double energy = std::inner_product(out[1].begin(), out[1].end(), out[1].begin(), 0.0);
      EXPECT_GT(energy, 0.1) << rate;
      EXPECT_LT(energy, kFrames) << rate;  // nor is there anything that is no number
      EXPECT_EQ(host->said(), "");
    }
  }
  std::vector<float> controls = flat();
  controls[0] = 1.0F;
  controls[2] = 12000.0F;
  Host host("equaliser-mono", 8000, 1, 1, true, controls);
  host.activate();
  EXPECT_NE(host.said().find("band 1: 12000"), std::string::npos) << host.said();
}

}  // namespace
}  // namespace jurn_test
