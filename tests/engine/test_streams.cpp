// Streams and their voices: what runs, whatever the cut and the type of the samples, and what is
// heard when the filter changes.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "../allocations.h"
#include "design/prepare.h"
#include "errors.h"
#include "streams/changing_stream.h"
#include "streams/convolve.h"
#include "streams/recipe.h"
#include "streams/setup_voice.h"
#include "streams/stamp.h"
#include "streams/state_bytes.h"
#include "streams/stream.h"

namespace jurn {
namespace {

constexpr double kPi = 3.14159265358979323846;

FilterDesign peak(double frequency, double gain_db, double q) {
  const double a = std::pow(10.0, gain_db / 40.0), w = 2.0 * kPi * frequency / 48000.0;
  const double alpha = std::sin(w) / (2.0 * q), a0 = 1.0 + alpha / a;
  return {FilterDesign::kSections,
          {(1.0 + alpha * a) / a0, -2.0 * std::cos(w) / a0, (1.0 - alpha * a) / a0},
          {1.0, -2.0 * std::cos(w) / a0, (1.0 - alpha / a) / a0}};
}

/** Taps of unit gain at 0 Hz. */
FilterDesign low_pass(std::size_t taps) {
  FilterDesign design{FilterDesign::kFir, std::vector<double>(taps), {}};
  double sum = 0.0;
  for (std::size_t i = 0; i < taps; ++i)
    sum += design.b[i] =
        1.0 - std::cos(2.0 * kPi * static_cast<double>(i + 1) / static_cast<double>(taps + 1));
  for (double& tap : design.b) tap /= sum;
  return design;
}

/** A direct sound and what rings on after it. */
FilterDesign echo(std::size_t taps) {
  FilterDesign design{FilterDesign::kFir, std::vector<double>(taps), {}};
  for (std::size_t i = 1; i < taps; ++i) {
    const double along = static_cast<double>(i);
    design.b[i] =
        0.02 * std::exp(-6.0 * along / static_cast<double>(taps)) * std::sin(along * along);
  }
  design.b[0] = 1.0;
  return design;
}

Format format_of(int channels, int block = 64) {
  Format format;
  format.rate = 48000;
  format.inputs = format.outputs = channels;
  format.block = block;
  return format;
}

std::unique_ptr<Voice> voice_of(const FilterDesign& design, const Format& format,
                                Precision precision = Precision::kDouble) {
  PrepareOptions options;
  options.precision = precision;
  options.in_blocks = format.block > 1;
  return make_voice(prepare(design, options), format);
}

std::unique_ptr<Voice> room(int taps, const Format& format,
                            Precision precision = Precision::kDouble, int longest = 0) {
  Routing routing{format.inputs, format.outputs, {}};
  for (int c = 0; c < format.inputs; ++c)
    routing.routes.push_back({c, c, echo(static_cast<std::size_t>(taps)).b});
  return make_convolution(routing, std::max(taps, longest), precision, format);
}

/** Every kind that a stream can run, at about unit gain below 1 kHz. */
struct Kind {
  const char* name;
  std::function<std::unique_ptr<Voice>(const Format&)> make;
};
std::vector<Kind> all_kinds() {
  return {
      {"wire", [](const Format& f) { return make_wire(f); }},
      {"sections", [](const Format& f) { return voice_of(peak(1000.0, 3.0, 1.0), f); }},
      {"other sections", [](const Format& f) { return voice_of(peak(3000.0, -9.0, 4.0), f); }},
      {"FIR", [](const Format& f) { return voice_of(low_pass(31), f); }},
      {"long FIR", [](const Format& f) { return voice_of(echo(401), f); }},
      {"mean", [](const Format& f) { return make_mean(50, Precision::kDouble, f); }},
      {"room", [](const Format& f) { return room(3000, f); }},
      {"room that fades by itself",
       [](const Format& f) { return room(700, f, Precision::kDouble, 3000); }},
      {"longer room", [](const Format& f) { return room(9000, f); }},
      {"direct form",
       [](const Format& f) {
         Prepared prepared;
         prepared.runs = Runs::kDirectForm;
         prepared.design = peak(500.0, 3.0, 1.0);
         prepared.design.kind = FilterDesign::kIir;
         prepared.tail = 4000;
         return make_voice(prepared, f);
       }},
      {"direct form of the device",
       [](const Format& f) {
         return voice_of({FilterDesign::kIir, {0.5}, {1.0, -0.5}}, f, Precision::kInt16);
       }},
      {"records",
       [](const Format& f) { return voice_of(peak(1000.0, 3.0, 1.0), f, Precision::kInt16); }},
      {"mean of the device", [](const Format& f) { return make_mean(50, Precision::kInt16, f); }},
      {"room of the device", [](const Format& f) { return room(3000, f, Precision::kInt16); }}};
}

template <typename Sample = short>
std::vector<Sample> noise(std::size_t values) {
  constexpr int kLoudest = 20000;
  std::vector<Sample> samples(values);
  unsigned state = 12345;
  for (Sample& x : samples) {
    state = state * 1664525u + 1013904223u;
    x = static_cast<Sample>(static_cast<int>(state >> 16) % (2 * kLoudest + 1) - kLoudest);
  }
  return samples;
}

std::vector<double> sine(double frequency, std::size_t frames, std::size_t channels, double level) {
  std::vector<double> samples(frames * channels);
  for (std::size_t i = 0; i < samples.size(); ++i) {
    const std::size_t frame = i / channels;
    samples[i] =
        std::rint(level * std::sin(2.0 * kPi * frequency / 48000.0 * static_cast<double>(frame)));
  }
  return samples;
}

/** Runs interleaved samples in calls of `frames` that `lengths` gives in turn. */
template <typename Sample>
std::vector<Sample> run(Stream* stream, const std::vector<Sample>& in,
                        const std::vector<int>& lengths) {
  const std::size_t channels = static_cast<std::size_t>(stream->format().inputs);
  std::vector<Sample> out(in.size());
  std::size_t done = 0;
  for (std::size_t k = 0; done < in.size(); ++k) {
    const std::size_t count = std::min(static_cast<std::size_t>(lengths[k % lengths.size()]),
                                       (in.size() - done) / channels);
    stream->process(in.data() + done, static_cast<int>(count), out.data() + done);
    done += count * channels;
  }
  return out;
}

TEST(Streams, GiveTheSameInAllTypesAndCuts) {
  for (const int channels : {1, 2, 5})
    for (const Kind& kind : all_kinds()) {
      SCOPED_TRACE(std::string(kind.name) + ", " + std::to_string(channels));
      const Format format = format_of(channels);
      Format fixed = format;
      fixed.history = 0;  // the voice may run on the samples themselves
      const std::vector<short> in = noise(static_cast<std::size_t>(64 * 60 * channels));
      Stream plain(format, kind.make(format)), direct(fixed, kind.make(fixed));
      const bool in_blocks = plain.voice().block() > 1;
      const std::vector<short> expected = run(&plain, in, {64});
      EXPECT_EQ(
          run(&direct, in,
              in_blocks ? std::vector<int>{128, 64, 1024} : std::vector<int>{1, 7, 64, 513, 2}),
          expected);
      plain.reset();
      EXPECT_EQ(run(&plain, in, {64}), expected);
      plain.reset();
      plain.change(std::make_unique<Change>(kind.make(format), 4800));  // has no past to go on with
      EXPECT_EQ(run(&plain, in, {64}), expected);
      // As floats and doubles, and an array for each channel: the same before it is rounded.
      Stream floats(format, kind.make(format)), doubles(format, kind.make(format));
      const std::vector<float> f =
          run(&floats, std::vector<float>(in.begin(), in.end()), {192, 64});
      const std::vector<double> d =
          run(&doubles, std::vector<double>(in.begin(), in.end()), {64, 320});
      Stream planar(format, kind.make(format));
      std::vector<std::vector<double>> x(static_cast<std::size_t>(channels));
      for (std::size_t i = 0; i < in.size(); ++i)
        x[i % static_cast<std::size_t>(channels)].push_back(in[i]);
      std::vector<double*> arrays;
      for (std::vector<double>& channel : x) arrays.push_back(channel.data());
      planar.process(arrays.data(), 64 * 60, arrays.data());
      for (std::size_t i = 0; i < in.size(); ++i) {
        const double limited = std::min(std::max(d[i], -32768.0), 32767.0);
        ASSERT_EQ(expected[i], std::lrint(limited)) << i;
        ASSERT_EQ(f[i], static_cast<float>(d[i])) << i;
        ASSERT_EQ(x[i % static_cast<std::size_t>(channels)][i / static_cast<std::size_t>(channels)],
                  d[i])
            << i;
      }
    }
}

TEST(Streams, ComputeWhatTheDesignSays) {
  const std::vector<double> x = noise<double>(6400);
  const auto expect_near = [&](std::unique_ptr<Voice> voice, const Format& format,
                               const std::vector<long double>& truth, double tolerance) {
    Stream stream(format, std::move(voice));
    const std::vector<double> y = run(&stream, x, {64});
    for (std::size_t i = 0; i < y.size(); ++i)
      ASSERT_NEAR(y[i], static_cast<double>(truth[i]), tolerance) << i;
  };
  const auto direct = [&](const std::vector<double>& b, const std::vector<double>& a) {
    std::vector<long double> y(x.size());
    for (std::size_t i = 0; i < y.size(); ++i) {
      for (std::size_t j = 0; j < b.size() && j <= i; ++j) y[i] += b[j] * (long double)x[i - j];
      for (std::size_t j = 1; j < a.size() && j <= i; ++j) y[i] -= a[j] * y[i - j];
    }
    return y;
  };
  const Format format = format_of(1);
  const FilterDesign bell = peak(1000.0, 12.0, 4.0);
  expect_near(voice_of(bell, format), format, direct(bell.b, bell.a), 1e-9);
  // (1 - 0.9 z^-1)^4 as a direct form runs by its roots.
  const FilterDesign fourth{FilterDesign::kIir, {1e-3, 2e-3}, {1.0, -3.6, 4.86, -2.916, 0.6561}};
  expect_near(voice_of(fourth, format), format, direct(fourth.b, fourth.a), 1e-8);
  expect_near(voice_of(low_pass(63), format), format, direct(low_pass(63).b, {}), 1e-10);
  const FilterDesign long_fir = low_pass(2000);
  expect_near(voice_of(long_fir, format), format, direct(long_fir.b, {}), 0.1);
  expect_near(voice_of(long_fir, format_of(1, 1)), format_of(1, 1), direct(long_fir.b, {}), 1e-9);
  expect_near(make_mean(777, Precision::kDouble, format), format,
              direct(std::vector<double>(777, 1.0 / 777.0), {}), 1e-9);
}

TEST(Streams, AverageExactlyWhateverTheCutAndAtAnEvenCost) {
  const Format format = format_of(1, 1);
  for (const int length : {1, 2, 3, 4, 5, 50, 777}) {
    SCOPED_TRACE(length);
    // A loud passage, then silence, which the mean has to reach exactly.
    std::vector<double> x(3000 + static_cast<std::size_t>(length));
    for (std::size_t i = 0; i < 3000; ++i) x[i] = 1e4 * std::sin(static_cast<double>(i * i));
    Stream whole(format, make_mean(length, Precision::kDouble, format));
    Stream cut(format, make_mean(length, Precision::kDouble, format));
    const std::vector<double> y = run(&whole, x, {1 << 20});
    EXPECT_EQ(run(&cut, x, {1, 7, 64, 513, 2}), y);
    for (std::size_t i = 0; i < y.size(); ++i) {
      long double sum = 0.0;
      for (std::size_t j = 0; j < static_cast<std::size_t>(length) && j <= i; ++j) sum += x[i - j];
      ASSERT_NEAR(y[i], static_cast<double>(sum / length), 1e-10) << i;
    }
    EXPECT_EQ(y.back(), 0.0);
  }

  // Of every call the quickest of some runs, so that what else the machine does is not measured.
  constexpr int kLength = 1 << 17, kFrames = 64;
  Stream stream(format, make_mean(kLength, Precision::kDouble, format));
  std::vector<double> seconds(kLength / kFrames, 1.0), block(kFrames, 1.0);
  for (int round = 0; round < 8; ++round)
    for (double& least : seconds) {
      const auto start = std::chrono::steady_clock::now();
      stream.process(block.data(), kFrames, block.data());
      const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - start;
      least = std::min(least, taken.count());
    }
  std::sort(seconds.begin(), seconds.end());
  EXPECT_LT(seconds.back(), 20.0 * seconds[seconds.size() / 2]);
}

TEST(Streams, ChangeNothingByAChangeToTheSameFilter) {
  for (const Kind& kind : all_kinds()) {
    if (std::string(kind.name).find("room of") == 0) continue;  // fades in 16 bits by its own law
    SCOPED_TRACE(kind.name);
    const Format format = format_of(2);
    Stream plain(format, kind.make(format)), changing(format, kind.make(format));
    const std::vector<double> x = noise<double>(64 * 2 * 600);
    const std::vector<double> expected = run(&plain, x, {64});
    std::vector<double> out(x.size());
    const std::size_t step = 64 * 2;
    for (std::size_t done = 0; done < x.size(); done += step) {
      if (done / step % 100 == 50)
        changing.change(std::make_unique<Change>(kind.make(format), 333));
      changing.process(x.data() + done, 64, out.data() + done);
    }
    double worst = 0.0;
    for (std::size_t i = 0; i < out.size(); ++i)
      worst = std::max(worst, std::abs(out[i] - expected[i]));
    // Of the device's records the past is long, not endless.
    const bool recursive = std::string(kind.name) == "records";
    const bool transforms = std::string(kind.name).find("room") != std::string::npos ||
                            std::string(kind.name) == "long FIR";
    EXPECT_LE(worst, recursive ? 1.0 : transforms ? 0.01 : 0.0);
  }
}

/** The largest part of a signal that a tone of this frequency does not explain, frame by frame:
 * what is left of y[i-1] + y[i+1] - 2 cos(w) y[i]. */
double largest_step(const std::vector<double>& y, double frequency) {
  const double twice_cosine = 2.0 * std::cos(2.0 * kPi * frequency / 48000.0);
  double worst = 0.0;
  for (std::size_t i = 1; i + 1 < y.size(); ++i)
    worst = std::max(worst, std::abs(y[i - 1] + y[i + 1] - twice_cosine * y[i]));
  return worst;
}

TEST(Streams, FadeFromEveryKindToEveryOther) {
  constexpr double kFrequency = 100.0, kLevel = 10000.0;
  const Format format = format_of(1);
  const std::vector<double> x = sine(kFrequency, 64 * 1200, 1, kLevel);
  for (const Kind& from : all_kinds())
    for (const Kind& to : all_kinds()) {
      SCOPED_TRACE(std::string(from.name) + " to " + to.name);
      Stream stream(format, from.make(format));
      std::vector<double> out(x.size());
      for (std::size_t done = 0; done < x.size(); done += 64) {
        if (done == 64 * 400) stream.change(std::make_unique<Change>(to.make(format), 4800));
        stream.process(x.data() + done, 64, out.data() + done);
      }
      EXPECT_FALSE(stream.changing());
      // From where the first filter has settled on. Rounding to 16 bits leaves up to 4 of it.
      const std::vector<double> y(out.begin() + 64 * 300, out.end());
      EXPECT_LT(largest_step(y, kFrequency), 12.0);
      // No hole: in every period the tone is there.
      for (std::size_t i = 0; i + 480 <= y.size(); i += 480)
        ASSERT_GT(*std::max_element(y.begin() + static_cast<std::ptrdiff_t>(i),
                                    y.begin() + static_cast<std::ptrdiff_t>(i) + 480),
                  0.5 * kLevel)
            << i;
    }
}

TEST(Streams, GoOnWhileManyChangesCome) {
  const Format format = format_of(2);
  const std::vector<double> x = sine(200.0, 64 * 1500, 2, 8000.0);
  Stream stream(format, voice_of(peak(1000.0, 0.0, 1.0), format));
  std::vector<double> out(x.size());
  int offered = 0, freed = 0;
  const auto free_retired = [&] {
    for (Change* old = stream.take_retired(); old; ++freed) {
      const std::unique_ptr<Change> owned(old);
      old = old->next;
    }
  };
  const std::size_t step = 64 * 2;
  for (std::size_t block = 0; block < 1500; ++block) {
    std::unique_ptr<Change> next;
    if (block > 100 && block < 900 && block % 7 == 0) {
      const double gain = 6.0 * std::sin(static_cast<double>(block));
      next = std::make_unique<Change>(
          block % 5 == 0 ? room(500, format) : voice_of(peak(300.0, gain, 1.0), format), 1000);
      ++offered;
    }
    const long before = allocations.load();
    if (next) stream.change(std::move(next));
    stream.process(x.data() + block * step, 64, out.data() + block * step);
    EXPECT_EQ(allocations.load(), before) << block;
    if (block % 10 == 0) free_retired();
  }
  EXPECT_FALSE(stream.changing());
  free_retired();
  EXPECT_EQ(freed, offered);  // all but the one that sounds, and with the first one
  std::vector<double> left;
  for (std::size_t i = 0; i < out.size(); i += 2) left.push_back(out[i]);
  EXPECT_LT(largest_step(std::vector<double>(left.begin() + 6400, left.end()), 200.0), 12.0);
  // The newest won: the last change is what runs.
  Stream last(format, voice_of(peak(300.0, 6.0 * std::sin(896.0), 1.0), format));
  const std::vector<double> expected = run(&last, x, {64});
  for (std::size_t i = out.size() - 1000; i < out.size(); ++i)
    ASSERT_NEAR(out[i], expected[i], 1e-6) << i;
}

/** A direct sound and an echo at the end of so many taps, in a shape of `longest`. */
std::unique_ptr<Voice> two_taps(double direct, int taps, int longest, const Format& format) {
  Routing routing{1, 1, {{0, 0, std::vector<double>(static_cast<std::size_t>(taps))}}};
  routing.routes[0].taps.back() = 1e-3;
  routing.routes[0].taps.front() = direct;
  return make_convolution(routing, longest, Precision::kDouble, format);
}

TEST(Streams, HearTheNewestOfferThoughEveryBlockBringsOne) {
  // Of one shape, whose fades are prepared for many blocks; and of shapes and kinds in turn.
  for (const bool is_mixed : {false, true}) {
    SCOPED_TRACE(is_mixed);
    Format format = format_of(1);
    format.history = 20000;
    Stream stream(format, two_taps(0.0, 9000, 9000, format));
    const std::vector<double> ones(64, 1.0);
    double worst = 0.0;
    constexpr int kBlocks = 1600, kMostLate = 600;  // of these, 512 to prepare a fade
    for (int block = 0; block < kBlocks; ++block) {
      const int kind = is_mixed ? block % 3 : 0;
      stream.change(std::make_unique<Change>(
          kind == 2 ? voice_of({FilterDesign::kFir, {double(block), 0.0}, {}}, format)
                    : two_taps(block, kind == 1 ? 3000 : 9000, kind == 1 ? 3000 : 9000, format),
          1024));
      std::vector<double> out(64);
      stream.process(ones.data(), 64, out.data());
      worst = std::max(worst, block - out.back());
    }
    EXPECT_LT(worst, kMostLate);
    std::vector<double> out(64);
    for (int block = 0; block < kMostLate && stream.changing(); ++block)
      stream.process(ones.data(), 64, out.data());
    EXPECT_FALSE(stream.changing());
    EXPECT_NEAR(out.back(), kBlocks - 1, 0.01);
  }
}

TEST(Streams, FadeToALongRoomThatHasHeardThePast) {
  Format format = format_of(1, 480);
  format.history = kConvolutionHistory;
  const std::vector<double> x = noise<double>(480 * 700);
  for (const int after : {9001, 65001}) {
    Stream stream(format, room(8001, format)), whole(format, room(after, format));
    const std::vector<double> expected = run(&whole, x, {480});
    std::vector<double> out(x.size());
    std::size_t complete = 0;
    for (std::size_t done = 0; done < x.size(); done += 480) {
      if (done == 480 * 300) stream.change(std::make_unique<Change>(room(after, format), 1024));
      stream.process(x.data() + done, 480, out.data() + done);
      if (!complete && done >= 480 * 300 && !stream.changing()) complete = done + 480;
    }
    EXPECT_LE(complete, 480u * 370) << after;
    for (std::size_t i = complete; i < out.size(); ++i) ASSERT_NEAR(out[i], expected[i], 0.01) << i;
    // One hears the past and the next one waits: a reset drops the first of them.
    stream.change(std::make_unique<Change>(room(70001, format), 1024));
    stream.process(x.data(), 480, out.data());
    stream.change(std::make_unique<Change>(room(after, format), 1024));
    stream.reset();
    EXPECT_FALSE(stream.changing());
    EXPECT_EQ(run(&stream, x, {480}), expected);
  }
}

TEST(Streams, MixTheInputInEachStraightRoute) {
  Routing routing{3, 2, {{0, 1, {1.0, 0.5}}, {1, 1, {0.25, 0.5}}}};
  const Routing as_it_was = routing;
  add_input(&routing, 0.0);
  EXPECT_EQ(routing.routes.size(), as_it_was.routes.size());
  add_input(&routing, 0.5);
  ASSERT_EQ(routing.routes.size(), 3u);
  for (const Route& route : routing.routes)
    EXPECT_EQ(route.taps,
              (route.input == 0 && route.output == 0   ? std::vector<double>{0.5}
               : route.input == 1 && route.output == 1 ? std::vector<double>{0.75, 0.5}
                                                       : std::vector<double>{1.0, 0.5}));
}

TEST(Streams, StampsAreTheCrcOfTheBytes) {
  const auto stamp_of = [](const auto* values, std::size_t count) {
    Stamp stamp;
    stamp.add(values, count);
    return stamp.number();
  };
  const auto expect = [&](const auto& samples) {
    std::string bytes;
    for (const auto sample : samples) {
      std::uint32_t bits = 0;
      std::memcpy(&bits, &sample, sizeof sample);
      for (std::size_t k = 0; k < sizeof sample; ++k)
        bytes += static_cast<char>(sizeof sample == 2 ? static_cast<std::uint16_t>(sample) >> 8 * k
                                                      : bits >> 8 * k);
    }
    for (std::size_t count = 0; count <= samples.size(); ++count)
      EXPECT_EQ(
          stamp_of(samples.data(), count),
          stamp_of(reinterpret_cast<const unsigned char*>(bytes.data()), count * sizeof samples[0]))
          << count;
  };
  expect(noise(20));
  expect(std::vector<float>{1.5f, -0.25f, 3e-20f, 7.0f, -9.5f});
  expect(std::vector<int>{1, -2, 1 << 30, 12345678, -98765432});
  EXPECT_EQ(stamp_of(reinterpret_cast<const unsigned char*>("123456789"), 9), 0xCBF43926u);
}

TEST(Streams, RingAsLongAsTheResponse) {
  const Format format = format_of(1);
  const auto voice = [&](int taps, int longest) { return two_taps(1.0, taps, longest, format); };
  EXPECT_EQ(voice(501, 8192)->tail(), 500);
  EXPECT_EQ(voice(501, 8192)->memory(), 500);
  EXPECT_EQ(voice(1, 8192)->tail(), 0);
  // What nobody hears does not count.
  Routing fades_out{1, 1, {{0, 0, {1.0, 0.5}}}};
  fades_out.routes[0].taps.resize(5000, 1e-12);
  EXPECT_EQ(make_convolution(fades_out, 5000, Precision::kDouble, format)->tail(), 1);
  // Of a response that comes prepared the length alone is known.
  EXPECT_EQ(make_convolution(ConvolutionResponse({1, 1, format.block, 5000}, fades_out), 5000,
                             Precision::kDouble, format)
                ->tail(),
            4999);
  // After a change, as long as that one; while it comes, as long as both.
  Stream stream(format, voice(8001, 8192));
  const std::vector<double> silence(64);
  std::vector<double> out(64);
  stream.process(silence.data(), 64, out.data());
  stream.change(std::make_unique<Change>(voice(101, 8192), 1024));
  stream.process(silence.data(), 64, out.data());
  EXPECT_EQ(stream.tail(), 8000);
  for (int block = 0; block < 600; ++block) stream.process(silence.data(), 64, out.data());
  EXPECT_EQ(stream.tail(), 100);
}

TEST(Streams, PreviewABlockThatIsNotComplete) {
  for (const Precision precision : {Precision::kDouble, Precision::kInt16}) {
    const Format format = format_of(2, 480);
    const std::vector<short> in = noise(480 * 2 * 40);
    const auto change = [&](int taps) {
      return std::make_unique<Change>(room(taps, format, precision), 1024);
    };
    Stream stream(format, room(3000, format, precision));
    std::vector<short> out(480 * 2), ahead(out.size());
    for (std::size_t block = 0; block < 40; ++block) {
      const short* const x = in.data() + block * out.size();
      if (block == 5) stream.change(change(3000));   // fades by itself
      if (block == 10) stream.change(change(5000));  // hears the past
      const int frames = static_cast<int>(1 + (97 * block + 400) % 479);
      stream.preview(x, frames / 2, ahead.data());
      stream.preview(x, frames, ahead.data());
      // Is for the next block, also when no block is complete yet.
      if (block == 0 || block == 20) stream.change(change(2000));
      stream.process(x, 480, out.data());
      for (std::size_t i = 0; i < static_cast<std::size_t>(2 * frames); ++i)
        ASSERT_NEAR(ahead[i], out[i], 1) << block << ", " << i;  // by rounding
    }
  }
}

std::string stored(Stream* stream) {
  StateBytes to;
  stream->store(&to);
  return to.sealed("stream");
}
std::unique_ptr<Stream> restored(const std::string& bytes, const Format* wanted = nullptr) {
  StateBytes from(bytes, "stream");
  auto stream = std::make_unique<Stream>(&from, wanted);
  from.check_end();
  return stream;
}

TEST(Streams, GoOnAsCopiesAndFromBytesAlsoWithinAChange) {
  for (const Kind& from : all_kinds())
    for (const Kind& to : all_kinds()) {
      SCOPED_TRACE(from.name + std::string(" to ") + to.name);
      Format format = format_of(2);
      format.is_live = true;  // rooms prepare a fade over some blocks then
      const std::vector<short> in = noise(64 * 2 * 60);
      Stream stream(format, from.make(format));
      std::vector<short> out(64 * 2), copied(out.size()), ahead(out.size());
      std::vector<std::unique_ptr<Stream>> others;
      for (std::size_t block = 0; block < 60; ++block) {
        const short* const x = in.data() + block * out.size();
        if (block == 20) stream.change(std::make_unique<Change>(to.make(format), 1000));
        if (block == 20 || block == 21 || block == 25 || block == 50) {
          others.push_back(std::make_unique<Stream>(stream));
          others.push_back(restored(stored(&stream), &format));
          ASSERT_EQ(stored(others.back().get()), stored(&stream));
        }
        stream.preview(x, 30, ahead.data());
        stream.process(x, 64, out.data());
        for (std::size_t i = 0; i < 60; ++i) ASSERT_NEAR(ahead[i], out[i], 1) << block << ", " << i;
        for (const auto& other : others) {
          if (block == 20) other->preview(x, 30, ahead.data());  // as the first one did
          other->process(x, 64, copied.data());
          ASSERT_EQ(copied, out) << block;
        }
      }
    }
}

TEST(Streams, RefuseBytesThatAreNotTheirs) {
  const auto refusal = [](const std::string& bytes, const Format* wanted = nullptr) {
    try {
      restored(bytes, wanted);
    } catch (const Error& error) {
      return std::string(error.what());
    }
    return std::string("none");
  };
  const Format format = format_of(2);
  const std::vector<short> in = noise(64 * 2 * 10);
  for (const Kind& kind : all_kinds()) {
    SCOPED_TRACE(kind.name);
    Stream stream(format, kind.make(format));
    run(&stream, in, {64});
    const std::string bytes = stored(&stream);
    EXPECT_EQ(refusal(bytes), "none");
    for (std::size_t at = 0; at < bytes.size(); at += 1 + bytes.size() / 50) {
      EXPECT_NE(refusal(bytes.substr(0, at)), "none") << at;
      std::string altered = bytes;
      altered[at] = static_cast<char>(altered[at] ^ 4);
      EXPECT_NE(refusal(altered), "none") << at;
    }
    EXPECT_EQ(refusal(bytes.substr(0, bytes.size() - 1)), "data: was altered, or is cut");
    Format other = format;
    other.rate = 44100;
    EXPECT_EQ(refusal(bytes, &other),
              "data: holds a stream of 2 inputs, 2 outputs, blocks of 64 and 48000 Hz; this one is "
              "of 2 inputs, 2 outputs, blocks of 64 and 44100 Hz");
  }
  EXPECT_EQ(refusal("RIFF...."), "data: no stream, or one of a machine with another byte order");
  EXPECT_NE(refusal(StateBytes().sealed("filter")).find("data: holds filter of version"),
            std::string::npos);
  EXPECT_EQ(refusal(StateBytes().sealed("stream")), "data: holds what cannot run, or is cut");
  jurn::Setup setup;
  setup.inputs = 2;
  Stream loudspeakers(format, make_setup_voice(prepare(setup, {}), format));
  StateBytes to;
  EXPECT_THROW(loudspeakers.store(&to), Error);
  Stream shortest(format, make_mean(1, Precision::kInt16, format));
  EXPECT_EQ(refusal(stored(&shortest)), "none");
  Recipe wrong[] = {recipe_of_mean(-1, Precision::kDouble),
                    recipe_of_mean(kMaxAverage + 1, Precision::kInt16),
                    recipe_of(Voice::Kind::kFir, Runs::kFir, peak(1000.0, 3.0, 1.0), 0),
                    recipe_of(Voice::Kind::kSections, Runs::kFir, peak(1000.0, 3.0, 1.0), 0),
                    recipe_of(Voice::Kind::kSections, Runs::kSections, low_pass(9), 0),
                    recipe_of(Voice::Kind::kDirectForm, Runs::kDirectForm, low_pass(9), 0)};
  wrong[0].prepared.tail = 0;
  for (Recipe& recipe : wrong) {
    StateBytes forged;
    forged.pass(&recipe.kind);
    pass(&forged, &recipe);
    std::vector<char> any_past(100000);
    forged.pass_all(&any_past);
    const std::string bytes = forged.sealed("voice");
    StateBytes from(bytes, "voice");
    EXPECT_THROW(restored_voice(&from, format), Error) << &recipe - wrong;
  }
}

TEST(Streams, TakeTheNewestOfferForWhatRuns) {
  const StreamFormat running{48000, 1, 1, 0, true};
  const Format format = engine_format(running, 64, 480);
  EXPECT_EQ(format.full_scale, 1.0);
  EXPECT_EQ(engine_format({44100, 3, 2, 0, false}, 1, 0).full_scale, 32768.0);
  const auto offer_of = [&](double gain, int delay, const StreamFormat& made_for) {
    auto offer =
        std::make_unique<OfferedFilter>(voice_of({FilterDesign::kFir, {gain}, {}}, format), delay);
    offer->made_for = made_for;
    return offer;
  };
  HandOver<OfferedFilter> offers;
  ChangingStream stream(&offers, offer_of(0.5, 3, running));
  const auto last_of_a_second = [](ChangingStream* s) {
    std::vector<float> x(48000, 0.25f);
    s->process(x.data(), 48000, x.data());
    return x.back();
  };
  EXPECT_EQ(last_of_a_second(&stream), 0.125f);
  for (const StreamFormat& other :
       {StreamFormat{44100, 1, 1, 0, true}, StreamFormat{48000, 2, 1, 0, true},
        StreamFormat{48000, 1, 2, 0, true}, StreamFormat{48000, 1, 1, 64, true},
        StreamFormat{48000, 1, 1, 0, false}}) {
    offers.offer(offer_of(2.0, 9, other));
    EXPECT_EQ(last_of_a_second(&stream), 0.125f);
  }
  EXPECT_EQ(stream.latency(), 3);
  offers.offer(offer_of(2.0, 9, running));
  offers.offer(offer_of(0.25, 7, running));
  EXPECT_EQ(last_of_a_second(&stream), 0.0625f);
  EXPECT_EQ(stream.latency(), 7);
  offers.offer(offer_of(2.0, 9, running));
  offers.empty();
  EXPECT_EQ(last_of_a_second(&stream), 0.0625f);
  // What is stored has taken what was offered.
  offers.offer(offer_of(0.125, 5, running));
  StateBytes to;
  stream.store(&to);
  const std::string bytes = to.sealed("stream");
  StateBytes from(bytes, "stream");
  HandOver<OfferedFilter> others;
  ChangingStream again(&others, &from, running);
  EXPECT_EQ(again.latency(), 5);
  EXPECT_EQ(last_of_a_second(&again), last_of_a_second(&stream));
  others.offer(offer_of(1.0, 0, running));
  EXPECT_EQ(last_of_a_second(&again), 0.25f);
}

TEST(Streams, CountWhatIsNoNumberAsSilence) {
  for (const Kind& kind : all_kinds())
    for (const int history : {0, 48000}) {
      SCOPED_TRACE(std::string(kind.name) + ", " + std::to_string(history));
      Format format = format_of(1);
      format.history = history;
      Stream bad(format, kind.make(format)), good(format, kind.make(format));
      std::vector<double> x(6400);
      for (std::size_t i = 0; i < x.size(); ++i) x[i] = static_cast<double>(i % 100);
      std::vector<double> zeroed = x;
      for (const std::size_t at : {100u, 2000u, 2001u, 6399u}) {
        x[at] = at % 2 ? std::nan("") : HUGE_VAL;
        zeroed[at] = 0.0;
      }
      EXPECT_EQ(run(&bad, x, {64}), run(&good, zeroed, {64}));
      EXPECT_EQ(bad.bad_samples(), 4u);
      EXPECT_EQ(good.bad_samples(), 0u);
      EXPECT_EQ(restored(stored(&bad))->bad_samples(), 4u);
      bad.reset();
      EXPECT_EQ(bad.bad_samples(), 0u);
    }
}

}  // namespace
}  // namespace jurn
