// A filter of the engine's in double or in 16 bits as it runs over arrays or a stream.
#pragma once

#include <pybind11/numpy.h>

#include <algorithm>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "convolution_stream.h"
#include "errors.h"
#include "streams/live_filter.h"
#include "streams/regrouper.h"
#include "streams/samples.h"
#include "streams/setup_voice.h"
#include "streams/state_bytes.h"
#include "streams/stream.h"

namespace jurn::python {

constexpr py::ssize_t kFrames = 1 << 20;     // of a call, which counts them in int
enum { kMean = 3, kRoutes, kWire, kSetup };  // behind the kinds of designs
constexpr double kLongestMean = 1 << 24;

/** A table in one piece. Python brings nothing else here; anything else is refused. */
template <typename Sample>
using Table = py::array_t<Sample, py::array::c_style>;

inline Precision precision_of(bool in_int16) {
  return in_int16 ? Precision::kInt16 : Precision::kDouble;
}

inline void check(bool fits) {
  if (!fits) throw py::value_error("no arrays of one type and of the filter's shape");
}

inline std::vector<double> listed(const Table<double>& values) {
  return {values.data(), values.data() + values.size()};
}

inline FilterDesign design_of(int kind, const Table<double>& numerator,
                              const Table<double>& denominator) {
  check(kind >= 0 && kind <= FilterDesign::kSections);
  return checked_design(static_cast<FilterDesign::Kind>(kind), listed(numerator),
                        listed(denominator));
}

inline int length_of_mean(const Table<double>& b, Precision precision) {
  const double longest = precision == Precision::kInt16 ? kMaxAverage : kLongestMean;
  if (b.size() != 1 || !(*b.data() >= 1.0 && *b.data() <= longest))
    throw py::value_error("length: takes 1 to " + std::to_string(static_cast<int>(longest)));
  return static_cast<int>(*b.data());
}

/** Coefficients as they are, for whole arrays. */
inline std::unique_ptr<Voice> voice_of(int kind, const Table<double>& b, const Table<double>& a,
                                       const Format& format) {
  if (kind == kMean)
    return make_mean(length_of_mean(b, Precision::kDouble), Precision::kDouble, format);
  Prepared prepared;
  prepared.design = design_of(kind, b, a);
  prepared.runs = kind == FilterDesign::kSections ? Runs::kSections
                  : kind == FilterDesign::kIir    ? Runs::kDirectForm
                                                  : Runs::kFir;
  return make_voice(prepared, format);
}

/** What a stream filters with, as the package says it: a kind, b and a. Of a mean b is its length,
 * of a convolution routes, of a setup what was read. `as_is` runs coefficients neither scaled nor
 * factored. */
struct Wanted {
  Wanted(int what, const py::object& b, const Table<double>& a, Precision in, bool unchanged)
      : kind(what), precision(in), as_is(unchanged) {
    if (kind == kSetup)
      setup = b.cast<Setup>();
    else if (kind == kRoutes)
      routes = read_routes(b);
    else if (kind == kMean)
      length = length_of_mean(b.cast<Table<double>>(), precision);
    else if (kind != kWire)
      design = design_of(kind, b.cast<Table<double>>(), a);
  }

  /** For arrays, whose samples have any type and come in any pieces. */
  std::unique_ptr<Voice> voice(const Format& format, int* longest_response) const {
    PrepareOptions options;
    options.result = SampleFormat::kFloat;
    options.in_blocks = false;
    return voice(format, options, longest_response);
  }

  std::unique_ptr<Voice> voice(const Format& format, PrepareOptions options,
                               int* longest_response) const {
    if (kind == kWire) return make_wire(format);
    options.precision = precision;
    options.rate = format.rate;
    options.as_is = as_is;
    if (kind == kSetup) {
      check_channels("setup", {setup.inputs, setup.outputs()}, "the stream",
                     {format.inputs, format.outputs});
      return make_setup_voice(prepare(setup, options), format);
    }
    if (kind != kRoutes && format.inputs != format.outputs)
      throw Error(kInputError,
                  "a filter of each channel has as many outputs as inputs; routes can "
                  "have others");
    if (kind == kMean) return make_mean(length, precision, format);
    if (kind == kRoutes) {
      Routing routing{format.inputs, format.outputs, {}};
      for (const Route& r : routes)
        routing.routes.push_back({r.input, r.output, {r.taps.begin(), r.taps.end()}});
      // Responses for as many taps as the one before go on from it.
      *longest_response = std::max(*longest_response, routing.longest());
      return make_convolution(routing, *longest_response, precision, format);
    }
    return make_voice(prepare(design, options), format);
  }

  int kind;
  Precision precision;
  bool as_is;
  int length = 0;
  Setup setup;
  FilterDesign design{FilterDesign::kFir, {}, {}};
  Routes routes;
};

inline Format format_of(int inputs, int outputs) {
  check(inputs >= 1 && inputs <= 4096 && outputs >= 1 && outputs <= 4096);
  Format format;
  format.inputs = inputs;
  format.outputs = outputs;
  format.block = 1;
  format.history = 0;
  return format;
}

/** Of a stream that changes. */
inline Format changing_format(int inputs, int outputs, int rate, int block) {
  check(block >= 1 && block <= JURN_CONVOLUTION_BLOCK && rate >= 1);
  Format format = format_of(inputs, outputs);
  format.rate = rate;
  format.block = block;
  format.history = block > 1 ? kConvolutionHistory : Format().history;
  return format;
}

/** What the bytes of a stream hold. */
inline const std::string kStored = "stream";

/** A filter as it runs, and its past. */
class Running {
 public:
  /** Coefficients as they are, for whole arrays. */
  Running(int kind, const Table<double>& b, const Table<double>& a, int channels)
      : stream_(format_of(channels, channels), voice_of(kind, b, a, format_of(channels, channels))),
        blocks_(blocks_of(stream_.format())) {}

  /** For a stream, whose filter can change. */
  Running(const Wanted& first, const Format& format, int longest_response)
      : longest_response_(longest_response),
        stream_(format, first.voice(format, &longest_response_)),
        blocks_(blocks_of(format)) {}

  Running(const Running& other)
      : longest_response_((InUse::check(other.in_use_), other.longest_response_)),
        stream_(other.stream_),
        blocks_(other.blocks_),
        bad_samples_(other.bad_samples_) {}

  /** What stored() gave: it goes on from there, with what the package noted. */
  Running(StateBytes* from, std::string* note)
      : longest_response_((from->pass_sized(note), 0)),
        stream_(from),
        blocks_(blocks_of(stream_.format())) {
    pass_state(from);
    from->check_end();
  }

  /** The whole state, and what the package notes with it. */
  std::string stored(std::string note) {
    const InUse in_use(&in_use_);
    StateBytes to;
    to.pass_sized(&note);
    stream_.store(&to);
    pass_state(&to);
    return to.sealed(kStored);
  }

  /** Goes on with (frames, channels), or with (channels, frames). */
  template <typename Sample>
  void go_on(const Table<Sample>& x, Table<Sample> y, bool channels_first) {
    const InUse in_use(&in_use_);
    const int frames_axis = channels_first ? 1 : 0, channels_axis = 1 - frames_axis;
    check(x.ndim() == 2 && x.shape(channels_axis) == stream_.format().inputs && y.ndim() == 2 &&
          y.shape(channels_axis) == stream_.format().outputs &&
          y.shape(frames_axis) == x.shape(frames_axis));
    const py::ssize_t frames = x.shape(frames_axis);
    const Sample* const in = x.data();
    Sample* const out = y.mutable_data();
    const py::gil_scoped_release unlocked;
    if (stream_.format().block > 1)
      process_blocks(in, frames, out, channels_first);
    else if (channels_first)
      process_planar(in, frames, out);
    else
      process(in, frames, out);
    stream_.free_retired();
  }

  /** Filters (rows, frames), each row after its own (rows, numbers) of past samples. */
  template <typename Sample>
  void filter_rows(const Table<Sample>& x, Table<Sample> y, const Table<double>& past) {
    const InUse in_use(&in_use_);
    check(x.ndim() == 2 && y.ndim() == 2 && y.shape(0) == x.shape(0) && y.shape(1) == x.shape(1) &&
          past.ndim() == 2 && past.shape(0) == x.shape(0) && stream_.format().inputs == 1 &&
          stream_.format().block == 1);
    const Sample* const in = x.data();
    Sample* const out = y.mutable_data();
    const double* const before = past.data();
    const py::gil_scoped_release unlocked;
    std::vector<double> unheard(static_cast<std::size_t>(past.shape(1)));
    for (py::ssize_t row = 0; row < x.shape(0); ++row) {
      stream_.reset();
      process(before + row * past.shape(1), past.shape(1), unheard.data());
      process(in + row * x.shape(1), x.shape(1), out + row * x.shape(1));
    }
  }

  void change(const Wanted& to, int fade) {
    const InUse in_use(&in_use_);
    check(fade >= 1 && stream_.format().history > 0);
    const py::gil_scoped_release unlocked;
    stream_.change(std::make_unique<Change>(to.voice(stream_.format(), &longest_response_), fade));
    stream_.free_retired();
  }

  void reset() {
    const InUse in_use(&in_use_);
    stream_.reset();
    blocks_.reset();
    bad_samples_ = 0;
    stream_.free_retired();
  }

  int tail() const {
    InUse::check(in_use_);
    return stream_.tail();
  }
  bool changing() const {
    InUse::check(in_use_);
    return stream_.changing();
  }
  unsigned long long bad_samples() const { return bad_samples_; }

 private:
  void pass_state(StateBytes* state) {
    state->pass(&longest_response_);
    state->pass(&bad_samples_);
    blocks_.pass_state(state);
  }

  static Regrouper<double> blocks_of(const Format& format) {
    return {static_cast<std::size_t>(format.block), static_cast<std::size_t>(format.inputs),
            static_cast<std::size_t>(format.outputs)};
  }

  template <typename Sample>
  void process(const Sample* in, py::ssize_t frames, Sample* out) {
    const unsigned long long before = stream_.bad_samples();
    for (py::ssize_t done = 0; done < frames; done += kFrames)
      stream_.process(in + done * stream_.format().inputs,
                      static_cast<int>(std::min(frames - done, kFrames)),
                      out + done * stream_.format().outputs);
    bad_samples_ += stream_.bad_samples() - before;
  }

  template <typename Sample>
  void process_planar(const Sample* in, py::ssize_t frames, Sample* out) {
    const unsigned long long before = stream_.bad_samples();
    std::vector<const Sample*> from(static_cast<std::size_t>(stream_.format().inputs));
    std::vector<Sample*> to(static_cast<std::size_t>(stream_.format().outputs));
    for (py::ssize_t done = 0; done < frames; done += kFrames) {
      for (std::size_t c = 0; c < from.size(); ++c)
        from[c] = in + static_cast<py::ssize_t>(c) * frames + done;
      for (std::size_t c = 0; c < to.size(); ++c)
        to[c] = out + static_cast<py::ssize_t>(c) * frames + done;
      stream_.process(from.data(), static_cast<int>(std::min(frames - done, kFrames)), to.data());
    }
    bad_samples_ += stream_.bad_samples() - before;
  }

  /** Of a filter that works in blocks: what has come of a block that is not complete is put out
   * ahead, so that no frame waits. */
  template <typename Sample>
  void process_blocks(const Sample* in, py::ssize_t frames, Sample* out, bool channels_first) {
    const auto block = static_cast<py::ssize_t>(stream_.format().block);
    const py::ssize_t ins = stream_.format().inputs, outs = stream_.format().outputs;
    std::vector<double> piece(static_cast<std::size_t>(block * ins));
    std::vector<double> result(static_cast<std::size_t>(block * outs));
    // Of a table one channel: where it begins and how far its samples lie apart.
    const auto start = [&](py::ssize_t channel, py::ssize_t frame, py::ssize_t channels) {
      return channels_first ? channel * frames + frame : frame * channels + channel;
    };
    const auto stride = [&](py::ssize_t channels) { return channels_first ? 1 : channels; };
    py::ssize_t given = 0;
    const auto give = [&](std::size_t count) {
      for (py::ssize_t c = 0; c < outs; ++c)
        give_samples(result.data() + c, static_cast<int>(count), out + start(c, given, outs),
                     stride(outs), outs);
      given += static_cast<py::ssize_t>(count);
    };
    for (py::ssize_t done = 0; done < frames; done += block) {
      const auto count = static_cast<int>(std::min(frames - done, block));
      for (py::ssize_t c = 0; c < ins; ++c)
        bad_samples_ +=
            take_samples(in + start(c, done, ins), stride(ins), count, piece.data() + c, ins);
      const std::size_t ready = blocks_.ready(static_cast<std::size_t>(count));
      blocks_.push(piece.data(), static_cast<std::size_t>(count), result.data(),
                   [&](const double* x, double* y, std::size_t) {
                     stream_.process(x, static_cast<int>(block), y);
                   });
      give(ready);
    }
    const std::size_t pending = blocks_.pending();
    blocks_.give_pending(result.data(), [&](const double* x, std::size_t held, double* y) {
      stream_.preview(x, static_cast<int>(held), y);
    });
    give(pending);
  }

  int longest_response_ = 0;  // taps
  jurn::Stream stream_;
  Regrouper<double> blocks_;
  unsigned long long bad_samples_ = 0;  // that counted as 0
  bool in_use_ = false;
};

}  // namespace jurn::python

namespace pybind11::detail {
template <>
class type_caster<jurn::python::Running> : public jurn::python::MadeCaster<jurn::python::Running> {
};
}  // namespace pybind11::detail
