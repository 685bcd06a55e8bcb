/* The kernels with memory of their outputs: section cascade, direct-form IIR, moving mean. */
#include <memory>

#include "Filter_control.h"
#include "OKA_Filter.h"
#include "groups.h"
#include "plain_loops.h"

namespace {

constexpr int kFrames = 480;

/** All-pass sections: they may filter their own output for ever. */
struct Cascade {
  explicit Cascade(int sections) {
    for (int k = 0; k < sections; ++k) {
      const float a1 = -1.2f + 0.1f * k, a2 = 0.8f - 0.02f * k;
      b.insert(b.end(), {a2, a1, 1.0f});
      a.insert(a.end(), {1.0f, a1, a2});
    }
    for (int c = 0; c < 2; ++c) {
      x[c] = noise<float>(kFrames, 10000.0);
      px[c].assign(3 * sections, 0.0f);
      py[c].assign(3 * sections, 0.0f);
    }
  }
  std::vector<float> b, a, x[2], px[2], py[2];
};

Side cascade(const std::string& name, int sections) {
  auto w = std::make_shared<Cascade>(sections);
  return {name + std::to_string(sections), kFrames, [w, sections] {
            filterNOrNsSec(w->b.data(), w->a.data(), 2, sections, w->x[0].data(), kFrames,
                           w->px[0].data(), w->py[0].data());
          }};
}

Side stereo_cascade(int sections) {
  auto w = std::make_shared<Cascade>(sections);
  return {"stereo " + std::to_string(sections), kFrames, [w, sections] {
            float* const x[2] = {w->x[0].data(), w->x[1].data()};
            float* const px[2] = {w->px[0].data(), w->px[1].data()};
            float* const py[2] = {w->py[0].data(), w->py[1].data()};
            filterNOrNsSec_stereo(w->b.data(), w->a.data(), 2, sections, x, kFrames, px, py);
          }};
}

Side plain_cascade_of(int sections) {
  auto w = std::make_shared<Cascade>(sections);
  return {"plain " + std::to_string(sections), kFrames, [w, sections] {
            plain_cascade(w->b.data(), w->a.data(), sections, w->x[0].data(), kFrames,
                          w->px[0].data(), w->py[0].data());
          }};
}

template <class Sample, class Sum>
struct Iir {
  Iir(int blen, int alen)
      : b(noise<Sum>(blen, 0.5 / blen)),
        a(noise<Sum>(alen, 0.5 / alen)),
        input(noise<Sample>(kFrames, 10000.0)) {
    for (int c = 0; c < 2; ++c) {
      output[c].resize(kFrames);
      past_input[c].resize(blen - 1 + kFrames);
      past_output[c].resize(alen - 1 + kFrames);
    }
  }
  std::vector<Sum> b, a;
  std::vector<Sample> input, output[2], past_input[2];
  std::vector<Sum> past_output[2];
};

Side iir(const char* name, int blen, int alen) {
  auto w = std::make_shared<Iir<short, float>>(blen, alen);
  return {name, kFrames, [w, blen, alen] {
            JURNiir(w->output[0].data(), w->input.data(), kFrames, w->past_output[0].data(),
                    w->past_input[0].data(), w->b.data(), static_cast<short>(blen), w->a.data(),
                    static_cast<short>(alen));
          }};
}

Side iir_double(const char* name, int blen, int alen) {
  auto w = std::make_shared<Iir<float, double>>(blen, alen);
  return {name, kFrames, [w, blen, alen] {
            MORVAX_Qiirf(w->output[0].data(), w->input.data(), kFrames, w->past_output[0].data(),
                         w->past_input[0].data(), w->b.data(), static_cast<short>(blen),
                         w->a.data(), static_cast<short>(alen));
          }};
}

Side iir_stereo(int order) {
  auto w = std::make_shared<Iir<short, float>>(order + 1, order + 1);
  return {"stereo", kFrames, [w, order] {
            const short count = static_cast<short>(order + 1);
            short* const output[2] = {w->output[0].data(), w->output[1].data()};
            const short* const input[2] = {w->input.data(), w->input.data()};
            float* const past_output[2] = {w->past_output[0].data(), w->past_output[1].data()};
            short* const past_input[2] = {w->past_input[0].data(), w->past_input[1].data()};
            JURNiir_stereo(output, input, kFrames, past_output, past_input, w->b.data(), count,
                           w->a.data(), count);
          }};
}

Side numerator_as_fir(const char* name, int blen) {
  auto w = std::make_shared<Iir<short, float>>(blen, 1);
  return {name, kFrames, [w, blen] {
            JURNfir(w->output[0].data(), w->input.data(), kFrames, w->past_input[0].data(),
                    w->b.data(), static_cast<short>(blen));
          }};
}

Side numerator_as_fir_double(const char* name, int blen) {
  auto w = std::make_shared<Iir<float, double>>(blen, 1);
  return {name, kFrames, [w, blen] {
            MORVAX_Qfirf(w->output[0].data(), w->input.data(), kFrames, w->past_input[0].data(),
                         w->b.data(), static_cast<short>(blen));
          }};
}

std::vector<Side> means(int count) {
  struct Work {
    shuzhiFilter_ID filter, plain;
    std::vector<short> input, output;
  };
  auto w = std::make_shared<Work>();
  w->input = noise<short>(kFrames, 20000.0);
  w->output.resize(kFrames);
  for (shuzhiFilter_ID* filter : {&w->filter, &w->plain}) {
    filter->blen = count;
    MORVAX_shuzhiFilterCalcu_API(filter);
    MORVAX_shuzhiFilterReset_API(filter);
  }
  return {
      {"jurn", kFrames,
       [w] { MORVAX_shuzhiFilterRun_API(&w->filter, w->input.data(), kFrames, w->output.data()); }},
      {"plain", kFrames, [w] {
         plain_mean(w->output.data(), w->input.data(), kFrames, w->plain.meminput, w->plain.blen,
                    w->plain.N_1, &w->plain.memsumin, &w->plain.memi);
       }}};
}

const bool registered = [] {
  add_group("cascade", [] {
    std::vector<Side> sides;
    for (int sections : {1, 4, 8, 16}) sides.push_back(plain_cascade_of(sections));
    for (int sections : {1, 2, 3, 4, 8, 16}) sides.push_back(cascade("mono ", sections));
    for (int sections : {1, 2, 3, 4}) sides.push_back(stereo_cascade(sections));
    return sides;
  });
  for (int order : {2, 8, 32}) {
    add_group("iir/" + std::to_string(order), [order] {
      return std::vector<Side>{iir("mono", order + 1, order + 1), iir_stereo(order),
                               numerator_as_fir("fir", order + 1), add_latency<float>("add"),
                               multiply_latency<float>("multiply")};
    });
    add_group("iir double/" + std::to_string(order), [order] {
      return std::vector<Side>{iir_double("mono", order + 1, order + 1),
                               numerator_as_fir_double("fir", order + 1),
                               add_latency<double>("add"), multiply_latency<double>("multiply")};
    });
  }
  add_group("numerator", [] {
    return std::vector<Side>{iir("iir 1", 1, 2), iir("iir 513", 513, 2),
                             numerator_as_fir("fir 1", 1), numerator_as_fir("fir 513", 513)};
  });
  add_group("numerator double", [] {
    return std::vector<Side>{iir_double("iir 1", 1, 2), iir_double("iir 513", 513, 2),
                             numerator_as_fir_double("fir 1", 1),
                             numerator_as_fir_double("fir 513", 513)};
  });
  for (int count : {32, 100, 256})
    add_group("mean/" + std::to_string(count), [count] { return means(count); });
  for (int sections : {1, 2, 4, 8, 16})
    add_clones("cascade, sections: " + std::to_string(sections),
               [sections] { return cascade("", sections); });
  add_clones("moving mean, 100 samples", [] { return means(100)[0]; });
  return true;
}();

}  // namespace
