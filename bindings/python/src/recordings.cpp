// Recordings block by block, for folders of them: int16 up to 16 bits, or else float32 on the same
// scale.
#include "recordings/audio_io.h"

#include <pybind11/numpy.h>
#include <pybind11/stl.h>

#include "bindings.h"
#include "streams/rounding.h"

namespace jurn::python {
namespace {

namespace py = pybind11;

int bits_of(jurn::SampleFormat samples) {
  return samples == jurn::SampleFormat::kInt16   ? 16
         : samples == jurn::SampleFormat::kInt24 ? 24
                                                 : 0;
}

py::array read(jurn::AudioReader& reader, std::size_t frames) {
  const auto channels = static_cast<std::size_t>(reader.channels());
  std::vector<float> samples(frames * channels);
  std::vector<short> whole;
  std::size_t got = 0;
  {
    const py::gil_scoped_release unlocked;
    got = reader.read(samples.data(), frames);
    if (reader.samples() == jurn::SampleFormat::kInt16) {
      std::int64_t clipped = 0;
      whole.resize(got * channels);
      jurn::to_int16(samples.data(), whole.size(), whole.data(), &clipped);
    }
  }
  const std::vector<std::size_t> shape{got, channels};
  if (reader.samples() == jurn::SampleFormat::kInt16)
    return py::array_t<short>(shape, whole.data());
  return py::array_t<float>(shape, samples.data());
}

std::unique_ptr<jurn::AudioWriter> make_writer(const std::string& path, int channels, int rate,
                                               int bits) {
  jurn::AudioFormat format;
  format.samples = bits == 16   ? jurn::SampleFormat::kInt16
                   : bits == 24 ? jurn::SampleFormat::kInt24
                                : jurn::SampleFormat::kFloat;
  return std::make_unique<jurn::AudioWriter>(path, channels, rate, format, true);
}

void write(jurn::AudioWriter& writer,
           const py::array_t<float, py::array::c_style | py::array::forcecast>& samples) {
  const float* const data = samples.data();
  const auto frames = static_cast<std::size_t>(samples.shape(0));
  const py::gil_scoped_release unlocked;
  writer.write(data, frames);
}

}  // namespace

void add_recordings(py::module_* m) {
  using jurn::AudioReader;
  using jurn::AudioWriter;
  py::class_<AudioReader>(*m, "_Reader")
      .def(py::init([](const std::string& path) {
             return std::make_unique<AudioReader>(path, jurn::kMaxChannels);
           }),
           py::arg("path"), "__init__(self, path)\n--\n\n")
      .def_property_readonly("channels", &AudioReader::channels)
      .def_property_readonly("rate", &AudioReader::rate)
      .def_property_readonly("frames", &AudioReader::frames, "0 when nobody knows.")
      .def_property_readonly(
          "bits", [](const AudioReader& reader) { return bits_of(reader.samples()); },
          "Of a sample: 16, 24, or 0 for floats.")
      .def("read", &read, py::arg("frames"), "read(self, frames)\n--\n\nFewer only at the end.");
  py::class_<AudioWriter>(*m, "_Writer")
      .def(py::init(&make_writer), py::arg("path"), py::arg("channels"), py::arg("rate"),
           py::arg("bits"), "__init__(self, path, channels, rate, bits)\n--\n\n")
      .def("write", &write, py::arg("samples"), "write(self, samples)\n--\n\n")
      .def(
          "commit",
          [](AudioWriter& writer) {
            const py::gil_scoped_release unlocked;
            writer.commit();
          },
          "commit(self)\n--\n\nPuts the file in its place, where it replaces another one.");
  m->def("_audio_types", &jurn::audio_types, "_audio_types()\n--\n\n");
}

}  // namespace jurn::python
