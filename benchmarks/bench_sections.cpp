/* Sections in double against what else runs floats through them: a chain of MORVAX_Qiirf, and a
 * loop of the transposed direct form II, the usual choice in double. */
#include <memory>

#include "Filter_control.h"
#include "OKA_Filter.h"
#include "Sections_control.h"
#include "groups.h"
#include "plain_loops.h"

namespace {

constexpr int kFrames = 480;

/** All-pass sections, and noise for two channels. */
struct Work {
  explicit Work(int sections)
      : input(noise<float>(2 * kFrames, 0.5)),
        output(2 * kFrames),
        past_inputs(sections * (2 + kFrames)),
        past_outputs(sections * (2 + kFrames)),
        states(2 * sections) {
    for (int k = 0; k < sections; ++k) {
      const double a1 = -1.2 + 0.05 * k, a2 = 0.8 - 0.02 * k;
      b.insert(b.end(), {a2, a1, 1.0});
      a.insert(a.end(), {1.0, a1, a2});
      sos.insert(sos.end(), {a2, a1, 1.0, 1.0, a1, a2});
    }
  }
  std::vector<float> input, output, past_inputs;
  std::vector<double> past_outputs, states, b, a, sos;
};

Side sections(const std::string& name, int channels, int count) {
  struct Objects : Work {
    Objects(int channels, int count)
        : Work(count),
          filter(MORVAX_SectionsFilterSize_API(count, 1) / sizeof(double)),
          stream(stream_size({channels, count}) / sizeof(double)) {
      const Sections_shape shape = {channels, count};
      MORVAX_SectionsFilterCalcu_API(filter_id(), filter.size() * sizeof(double), sos.data(), count,
                                     1);
      MORVAX_SectionsStreamCalcu_API(stream_id(), stream.size() * sizeof(double), &shape);
    }
    static size_t stream_size(const Sections_shape& shape) {
      return MORVAX_SectionsStreamSize_API(&shape);
    }
    SectionsFilter_ID* filter_id() { return reinterpret_cast<SectionsFilter_ID*>(filter.data()); }
    SectionsStream_ID* stream_id() { return reinterpret_cast<SectionsStream_ID*>(stream.data()); }
    std::vector<double> filter, stream;
  };
  auto w = std::make_shared<Objects>(channels, count);
  return {name, kFrames, [w] {
            MORVAX_SectionsRun_API_float(w->stream_id(), w->filter_id(), w->input.data(), kFrames,
                                         w->output.data());
          }};
}

Side chain(int count) {
  auto w = std::make_shared<Work>(count);
  return {"Qiirf", kFrames, [w, count] {
            for (int k = 0; k < count; ++k)
              MORVAX_Qiirf(w->output.data(), k ? w->output.data() : w->input.data(), kFrames,
                           w->past_outputs.data() + k * (2 + kFrames),
                           w->past_inputs.data() + k * (2 + kFrames), w->b.data() + 3 * k, 3,
                           w->a.data() + 3 * k, 3);
          }};
}

Side plain(int count) {
  auto w = std::make_shared<Work>(count);
  return {"plain", kFrames, [w, count] {
            plain_sections(w->sos.data(), count, w->input.data(), kFrames, w->states.data(),
                           w->output.data());
          }};
}

const bool registered = [] {
  for (int count : {1, 2, 4, 8, 16})
    add_group("sections/" + std::to_string(count), [count] {
      return std::vector<Side>{sections("mono", 1, count), sections("stereo", 2, count),
                               chain(count), plain(count)};
    });
  for (int count : {1, 4, 16})
    add_clones("sections in double: " + std::to_string(count),
               [count] { return sections("", 1, count); });
  return true;
}();

}  // namespace
