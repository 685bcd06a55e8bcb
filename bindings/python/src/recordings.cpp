// Recordings of folders: through a filter as the command-line tool runs it, or block by block.
#include "recordings/audio_io.h"

#include <pybind11/numpy.h>
#include <pybind11/stl.h>

#include <algorithm>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "bindings.h"
#include "impulse_responses/impulse_response.h"
#include "recordings/run.h"
#include "running.h"
#include "streams/rounding.h"

namespace jurn::python {
namespace {

namespace py = pybind11;

int bits_of(SampleFormat samples) {
  return samples == SampleFormat::kInt16 ? 16 : samples == SampleFormat::kInt24 ? 24 : 0;
}

SampleFormat samples_of(int bits) {
  return bits == 16   ? SampleFormat::kInt16
         : bits == 24 ? SampleFormat::kInt24
                      : SampleFormat::kFloat;
}

/** Samples on the int16 scale in an array of so many, each times a power of two. */
template <typename Sample, typename Result>
py::array scaled(const void* samples, std::size_t count, Result scale) {
  py::array_t<Result> result(static_cast<py::ssize_t>(count));
  const auto* const from = static_cast<const Sample*>(samples);
  std::transform(from, from + count, result.mutable_data(),
                 [scale](Sample x) { return static_cast<Result>(static_cast<Result>(x) * scale); });
  return std::move(result);
}

/** Hands what is written to a function, as int16 or as float32 on the same scale. */
Written teller(const py::function& written) {
  return [&written](SampleFormat format, const void* samples, std::size_t count) {
    const py::gil_scoped_acquire locked;
    written(format == SampleFormat::kInt16   ? scaled<short, short>(samples, count, 1)
            : format == SampleFormat::kInt24 ? scaled<int, float>(samples, count, 0x1p-16f)
                                             : scaled<float, float>(samples, count, 32768.0f));
  };
}

/** A filter for recordings of one format: each goes through a copy of it. */
struct RecordingFilter {
  std::unique_ptr<Voice> voice;
  Precision precision = Precision::kDouble;
  int delay = 0;
  int tail = 0;  // frames by which the result is longer than the recording

  std::unique_ptr<Stage> stage() const {
    std::unique_ptr<Stage> made = make_stage(voice->copy(), precision, delay);
    made->tail = tail;
    made->keep_tail = tail > 0;
    return made;
  }
};
using SharedFilter = std::shared_ptr<RecordingFilter>;

SharedFilter filter_of(int kind, const py::object& b, const Table<double>& a, bool as_is,
                       bool in_int16, int delay, int rate, int channels, int bits) {
  const Wanted wanted(kind, b, a, precision_of(in_int16), as_is);
  const py::gil_scoped_release unlocked;
  const auto filter = std::make_shared<RecordingFilter>();
  PrepareOptions options;
  options.result = samples_of(bits);
  int longest = 0;
  filter->voice = wanted.voice(jurn::format_of({"", channels, rate, 0}), options, &longest);
  filter->precision = wanted.precision;
  filter->delay = delay;
  return filter;
}

SharedFilter response_of(const std::string& path, bool in_int16, int rate, int channels) {
  const py::gil_scoped_release unlocked;
  if (channels > JURN_CONVOLUTION_CHANNELS)
    throw Error(kInputError, "has " + std::to_string(channels) +
                                 " channels; a convolution takes up to " +
                                 std::to_string(JURN_CONVOLUTION_CHANNELS));
  const auto filter = std::make_shared<RecordingFilter>();
  const Routing routing =
      connect(read_impulse_response({path}, rate, {}), Wiring::kAutomatic, channels, path);
  Format format = jurn::format_of({"", channels, rate, 0});
  format.outputs = routing.outputs;
  filter->precision = precision_of(in_int16);
  filter->voice = make_convolution(routing, routing.longest(), filter->precision, format);
  filter->tail = routing.longest() - 1;
  return filter;
}

/** Channels and rate of the result, and what to warn of. */
py::tuple filter_recording(const std::string& input, const std::string& output,
                           const py::function& filter_for, const py::function& written) {
  Job job;
  job.input = input;
  job.output = output;
  job.overwrite = true;
  job.written = teller(written);
  job.make_chain = [&](const Recording& recording, double) {
    const py::gil_scoped_acquire locked;
    const auto filter = filter_for(recording.rate, recording.channels, bits_of(recording.samples))
                            .cast<SharedFilter>();
    Chain chain;
    chain.push_back(filter->stage());
    return chain;
  };
  Summary summary;
  {
    const py::gil_scoped_release unlocked;
    summary = run(job);
  }
  std::vector<std::string> warnings;
  if (summary.lost_after) warnings.push_back(loss_of(summary));
  if (!summary.narrowed.empty()) warnings.push_back(summary.narrowed);
  return py::make_tuple(summary.channels, summary.rate, summary.not_finite, warnings);
}

py::array read(AudioReader& reader, std::size_t frames) {
  const auto channels = static_cast<std::size_t>(reader.channels());
  std::vector<double> samples(frames * channels);
  std::vector<short> whole;
  std::size_t got = 0;
  {
    const py::gil_scoped_release unlocked;
    got = reader.read(samples.data(), frames);
    if (reader.samples() == SampleFormat::kInt16) {
      std::int64_t clipped = 0;
      whole.resize(got * channels);
      to_int16(samples.data(), whole.size(), whole.data(), &clipped);
    }
  }
  const std::vector<std::size_t> shape{got, channels};
  if (reader.samples() == SampleFormat::kInt16) return py::array_t<short>(shape, whole.data());
  return py::array_t<double>(shape, samples.data());
}

/** A result, and who hears what is written. */
struct Writer {
  Writer(const std::string& path, int channels, int rate, int bits, py::function heard)
      : written(std::move(heard)), file(path, channels, rate, {"", "", samples_of(bits)}, true) {
    file.tell(teller(written));
  }

  py::function written;
  AudioWriter file;
};

void write(Writer& writer,
           const py::array_t<double, py::array::c_style | py::array::forcecast>& samples) {
  const double* const data = samples.data();
  const auto frames = static_cast<std::size_t>(samples.shape(0));
  const py::gil_scoped_release unlocked;
  writer.file.write(data, frames);
}

}  // namespace

void add_recordings(py::module_* m) {
  using py::arg;
  py::class_<RecordingFilter, SharedFilter>(*m, "_RecordingFilter")
      .def(py::init(&filter_of), arg("kind"), arg("b"), arg("a"), arg("as_is"), arg("in_int16"),
           arg("delay"), arg("rate"), arg("channels"), arg("bits"),
           "__init__(self, kind, b, a, as_is, in_int16, delay, rate, channels, bits)\n--\n\n")
      .def_static("of_response", &response_of, arg("path"), arg("in_int16"), arg("rate"),
                  arg("channels"), "of_response(path, in_int16, rate, channels)\n--\n\n");
  m->def("_filter_recording", &filter_recording, arg("input"), arg("output"), arg("filter_for"),
         arg("written"), "_filter_recording(input, output, filter_for, written)\n--\n\n");
  py::class_<AudioReader>(*m, "_Reader")
      .def(py::init([](const std::string& path) {
             return std::make_unique<AudioReader>(path, kMaxChannels);
           }),
           arg("path"), "__init__(self, path)\n--\n\n")
      .def_property_readonly("channels", &AudioReader::channels)
      .def_property_readonly("rate", &AudioReader::rate)
      .def_property_readonly(
          "bits", [](const AudioReader& reader) { return bits_of(reader.samples()); },
          "Of a sample: 16, 24, or 0 for floats.")
      .def("read", &read, arg("frames"), "read(self, frames)\n--\n\nFewer only at the end.");
  py::class_<Writer>(*m, "_Writer")
      .def(py::init<const std::string&, int, int, int, py::function>(), arg("path"),
           arg("channels"), arg("rate"), arg("bits"), arg("written"),
           "__init__(self, path, channels, rate, bits, written)\n--\n\n")
      .def("write", &write, arg("samples"), "write(self, samples)\n--\n\n")
      .def(
          "commit",
          [](Writer& writer) {
            const py::gil_scoped_release unlocked;
            writer.file.commit();
          },
          "commit(self)\n--\n\nPuts the file in its place, where it replaces another one.");
  m->def("_audio_types", &audio_types, "_audio_types()\n--\n\n");
}

}  // namespace jurn::python
