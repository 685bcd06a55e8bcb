/* The sections objects. One stream runs on the best clone, through calls of any kind, and moves
 * about; its twin goes through the reference, channel by channel. Fades are mixed anew from the
 * reference's outputs. */
#include "../reference.h"
#include "Sections_control.h"
#include "walk.h"

namespace {

struct Memory : Movable<double> {
  Memory(Random& random, size_t bytes)
      : Movable(random, static_cast<int>(bytes / sizeof(double))), size(bytes) {}
  SectionsStream_ID* stream() { return reinterpret_cast<SectionsStream_ID*>(get()); }
  SectionsFilter_ID* filter() { return reinterpret_cast<SectionsFilter_ID*>(get()); }
  size_t size;
};

/** Mostly sections that decay; some are wild, and some sets refused. */
std::unique_ptr<Memory> prepare(Random& random, int sections, int lists) {
  const size_t size = MORVAX_SectionsFilterSize_API(sections, lists);
  auto filter = std::make_unique<Memory>(random, size);
  std::vector<double> sos(static_cast<size_t>(std::max(0, sections * lists)) * 6 + 6);
  const bool wild = random.one_in(12);
  std::vector<float> b(3 * (sos.size() / 6)), a(b.size());
  random.sections(b.data(), a.data(), 2, static_cast<int>(sos.size() / 6), wild);
  for (size_t k = 0; k < sos.size() / 6; ++k)
    for (int j = 0; j < 3; ++j) {
      sos[6 * k + j] = b[3 * k + j];
      sos[6 * k + 3 + j] = j == 0 ? 1.0 : a[3 * k + j];
    }
  if (random.one_in(20)) sos[random.in(0, static_cast<int>(sos.size()) - 1)] = random.in(-1, 0);
  const int error =
      MORVAX_SectionsFilterCalcu_API(filter->filter(), size, sos.data(), sections, lists);
  require(size > 0 || error != 0, "a filter without a size is refused");
  if (error != 0) return nullptr;
  return filter;
}

struct Voice {
  std::unique_ptr<Memory> filter, stream, twin;
  unsigned long long bad = 0;
};

template <class Sample>
Sample converted(double x) {
  if constexpr (!std::is_same<Sample, short>::value) return static_cast<Sample>(x);
  if (x != x) return 0;
  return static_cast<Sample>(std::nearbyint(std::min(32767.0, std::max(-32768.0, x))));
}

/** One call of a run, or of a fade, on any layout. */
template <class Sample, class Run, class RunPlanar, class Fade, class FadePlanar>
void call(Random& random, std::vector<Voice>& voices, std::vector<Sections_voice>& list,
          int channels, Run run, RunPlanar run_planar, Fade fade, FadePlanar fade_planar) {
  const int frames = random.one_in(3) ? random.in(0, 9) : random.in(0, 700);
  const int count = static_cast<int>(voices.size()), values = frames * channels;
  Twin<Sample> block(random, values);
  block.fill([&](Sample* x, int n) {
    const bool wild = random.one_in(8);
    if constexpr (std::is_same<Sample, float>::value)
      random.floats(x, n, wild);
    else
      random.signal(x, n);
    if constexpr (std::is_same<Sample, double>::value)  // some overflow what they pass
      for (int i = 0; wild && i < n; ++i)
        if (random.one_in(4)) x[i] = random.any_bits<double>() * 5e269;
  });
  std::vector<double> x(frames), v(frames), y(frames);
  unsigned long long bad = 0;
  std::vector<Sample> wanted(values);
  for (int c = 0; c < channels; ++c) {
    for (int i = 0; i < frames; ++i) {
      x[i] = static_cast<double>(block[false][i * channels + c]);
      bad += !std::isfinite(x[i]);
    }
    for (int k = 0; k < count; ++k) {
      ref::run(voices[k].twin->stream(), voices[k].filter->filter(), c, x.data(), frames, v.data());
      for (int i = 0; i < frames; ++i) {
        const int at = list[k].done + i, last = list[k].ramp - 1;
        if (k == 0 || at >= last)
          y[i] = v[i];
        else
          y[i] += static_cast<double>(at) / last * (v[i] - y[i]);
      }
    }
    for (int i = 0; i < frames; ++i) wanted[i * channels + c] = converted<Sample>(y[i]);
  }
  std::vector<int> wanted_done;
  for (int k = 0; k < count; ++k) {
    ref::advance(voices[k].twin->stream(), frames, bad);
    voices[k].bad += bad;
    list[k].stream = voices[k].stream->stream();
    list[k].filter = voices[k].filter->filter();
    wanted_done.push_back(k == 0 ? list[k].done : std::min(list[k].ramp, list[k].done + frames));
  }
  const bool in_place = random.one_in(2);
  const auto filter = [&](auto in, auto out, auto run_one, auto run_fade) {
    if (count == 1)
      run_one(list[0].stream, list[0].filter, in, frames, out);
    else
      run_fade(list.data(), count, in, frames, out);
  };
  if (random.one_in(2)) {
    GuardedArray<Sample> other(random, in_place ? 0 : values);
    Sample* const out = in_place ? block[true] : other.data();
    filter(block[true], out, run, fade);
    require(same(out, wanted.data(), values), "the outputs are equal");
    require(in_place || block.agrees(), "the input is not written");
  } else {
    std::vector<std::unique_ptr<GuardedArray<Sample>>> planes;
    const auto plane = [&] {
      planes.push_back(std::make_unique<GuardedArray<Sample>>(random, frames));
      return planes.back()->data();
    };
    std::vector<Sample*> in, out;
    for (int c = 0; c < channels; ++c) {
      in.push_back(plane());
      out.push_back(plane());
      for (int i = 0; i < frames; ++i) in.back()[i] = block[true][i * channels + c];
    }
    if (in_place) out = in;
    filter(in.data(), out.data(), run_planar, fade_planar);
    for (int c = 0; c < channels; ++c)
      for (int i = 0; i < frames; ++i)
        require(same(&out[c][i], &wanted[i * channels + c], 1), "the planar outputs are equal");
  }
  for (int k = 0; k < count; ++k)
    require(list[k].done == wanted_done[k], "a ramp goes on by the frames of the call");
}

}  // namespace

void walk_sections(Random& random) {
  const Sections_shape shape = {random.one_in(20) ? random.in(-1, 66) : random.in(1, 3),
                                random.one_in(20) ? random.in(-1, 40) : random.in(0, 9)};
  const size_t size = MORVAX_SectionsStreamSize_API(&shape);
  require((size > 0) == (shape.channels >= 1 && shape.channels <= 64 && shape.sections >= 0),
          "a shape that does not fit is refused");
  if (size == 0) return;
  const auto new_stream = [&] {
    auto stream = std::make_unique<Memory>(random, size);
    MORVAX_SectionsStreamCalcu_API(stream->stream(), size, &shape);
    return stream;
  };
  const auto new_filter = [&] {
    return prepare(random, random.in(0, shape.sections), random.one_in(3) ? shape.channels : 1);
  };
  std::vector<Voice> voices;
  std::vector<Sections_voice> list;
  for (int calls = 0; calls < 60 && !random.ended(); ++calls) {
    const int action = random.in(0, 11);
    if (voices.empty() || (action == 0 && voices.size() < 3)) {
      Voice voice = {new_filter(), new_stream(), new_stream()};
      if (!voice.filter) continue;
      if (!voices.empty() && random.one_in(2)) {
        Voice& before = voices.back();
        for (const bool library : {false, true})
          MORVAX_SectionsFollow_API(
              (library ? voice.stream : voice.twin)->stream(), voice.filter->filter(),
              (library ? before.stream : before.twin)->stream(), before.filter->filter());
      }
      voices.push_back(std::move(voice));
      list.push_back({nullptr, nullptr, random.one_in(8) ? 1 : random.in(1, 2000),
                      random.one_in(2) ? 0 : random.in(0, 700)});
    }
    if (action == 1)
      for (Voice& voice : voices) {
        for (Memory* memory : {voice.stream.get(), voice.twin.get()})
          MORVAX_SectionsReset_API(memory->stream());
        require(same(voice.stream->get(), new_stream()->get(), size / sizeof(double)),
                "a reset is a set-up");
        voice.bad = 0;
      }
    if (action == 2) voices[0].stream->move();
    if (action == 3) voices.back().filter->move();
    if (voices.size() > 1 && (list[1].done == list[1].ramp || action == 4)) {
      voices.erase(voices.begin());
      list.erase(list.begin());
    }
    switch (random.in(0, 2)) {
      case 0:
        call<short>(random, voices, list, shape.channels, MORVAX_SectionsRun_API,
                    MORVAX_SectionsRun_API_planar_short, MORVAX_SectionsFade_API,
                    MORVAX_SectionsFade_API_planar_short);
        break;
      case 1:
        call<float>(random, voices, list, shape.channels, MORVAX_SectionsRun_API_float,
                    MORVAX_SectionsRun_API_planar, MORVAX_SectionsFade_API_float,
                    MORVAX_SectionsFade_API_planar);
        break;
      default:
        call<double>(random, voices, list, shape.channels, MORVAX_SectionsRun_API_double,
                     MORVAX_SectionsRun_API_planar_double, MORVAX_SectionsFade_API_double,
                     MORVAX_SectionsFade_API_planar_double);
    }
    for (Voice& voice : voices) {
      require(same(voice.stream->get(), voice.twin->get(), size / sizeof(double)),
              "the streams are equal");
      require(MORVAX_SectionsBadSamples_API(voice.stream->stream()) == voice.bad,
              "samples that are no numbers are counted");
    }
  }
}
