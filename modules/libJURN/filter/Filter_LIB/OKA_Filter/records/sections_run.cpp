/* Runs, fades and the length of the response. */
#include "../../../../common/exact_arithmetic.h"

#include "sections.h"

#include <string.h>

#include "../../../../common/functions.h"

namespace {

using Stream = Sections_stream_st;
using Filter = Sections_filter_st;
using Voice = Sections_voice;

/** Where the samples of a call lie. */
template <class Sample>
struct Interleaved {
  Sample* samples;
  int channels;
  Sample& at(int channel, int frame) const {
    return samples[static_cast<size_t>(frame) * channels + channel];
  }
};
template <class Sample>
struct Planar {
  Sample* const* arrays;
  Sample& at(int channel, int frame) const { return arrays[channel][frame]; }
};

/** Samples of one channel as doubles; returns how many were not finite. */
template <class Input>
int take(double* x, const Input& input, int channel, int first, int frames) {
  int bad = 0;
  for (int i = 0; i < frames; ++i) {
    x[i] = static_cast<double>(input.at(channel, first + i));
    if (x[i] - x[i] != 0.0) {
      x[i] = 0.0;
      ++bad;
    }
  }
  return bad;
}

short rounded(double x, short) {
  const double limited = x > 32767.0 ? 32767.0 : x >= -32768.0 ? x : x < -32768.0 ? -32768.0 : 0.0;
  const double whole = 6755399441055744.0;  // 1.5 * 2^52: what is added to it becomes an integer
  return static_cast<short>((limited + whole) - whole);
}
float rounded(double x, float) {
  return static_cast<float>(x);
}
double rounded(double x, double) {
  return x;
}

template <class Sample, template <class> class Layout>
void give(const Layout<Sample>& output, int channel, int first, const double* x, int frames) {
  for (int i = 0; i < frames; ++i) output.at(channel, first + i) = rounded(x[i], Sample());
}

/** Samples of one channel between the room for an unfinished step on both sides. */
struct Chunk {
  double memory[section_step + section_chunk + section_step];
  double* samples() { return memory + section_step; }
};

/** Filters frames of one channel in place, from a frame of the stream on. */
void filter_channel(Stream* stream, const Filter* filter, int channel, unsigned position,
                    Chunk* chunk, int frames) {
  double* x = chunk->samples();
  const int sections = filter->sections;
  for (int i = 0; sections == 0 && i < frames; ++i) x[i] += 0.0;  // as sums do to a -0.0
  const double* const coefficients =
      JURN_section_coefficients(filter, filter->lists > 1 ? channel : 0);
  double* const states = JURN_section_states(stream, channel);
  double* const inputs = JURN_section_inputs(stream, channel);
  while (frames > 0) {
    const int known = static_cast<int>(position % section_step);
    const int room = section_chunk - static_cast<int>(position);
    const int count = frames < room ? frames : room;
    const int steps = (known + count) / section_step, rest = (known + count) % section_step;
    double* const start = x - known;
    double* const unfinished = start + steps * section_step;
    memcpy(start, inputs, known * sizeof(double));
    memset(inputs, 0, section_step * sizeof(double));
    memcpy(inputs, unfinished, rest * sizeof(double));
    if (sections > 0) {
      JURN_run_sections(coefficients, states, sections, start, steps, 1);
      if (rest > 0) {
        for (int i = rest; i < section_step; ++i) unfinished[i] = 0.0;
        JURN_run_sections(coefficients, states, sections, unfinished, 1, 0);
      }
      if (count == room) JURN_clean_sections(states, sections);
    }
    position = (position + count) % section_chunk;
    x += count;
    frames -= count;
  }
}

/** y = y + w (v - y) along the voice's ramp; frames of it have passed. */
void mix(double* y, const double* v, int frames, const Voice& voice, int passed) {
  const int last = voice.ramp - 1;
  for (int i = 0; i < frames; ++i) {
    const int at = voice.done < last - passed - i ? voice.done + passed + i : last;
    const double w = static_cast<double>(at) / last;
    y[i] = at < last ? y[i] + w * (v[i] - y[i]) : v[i];
  }
}

void check(const Stream* stream, const Filter* filter, int frames) {
  JURN_LIMIT(stream->ready == section_ready, "SectionsStream_ID: the stream must be set up");
  JURN_LIMIT(filter->ready == section_ready, "SectionsFilter_ID: the filter must be set up");
  JURN_LIMIT(filter->sections <= stream->sections,
             "SectionsStream_ID: the stream must have room for the filter's sections");
  JURN_LIMIT(filter->lists == 1 || filter->lists == stream->channels,
             "SectionsFilter_ID: the filter must have 1 list or one for each channel");
  JURN_LIMIT(frames >= 0, "SectionsStream_ID: frames must not be negative");
  (void)stream, (void)filter, (void)frames;
}

template <class Input, class Output>
void run(Voice* voices, int count, const Input& input, int frames, const Output& output) {
  JURN_LIMIT(count >= 1, "Sections_voice: a fade must have a voice");
  for (int k = 0; k < count; ++k) {
    check(voices[k].stream, voices[k].filter, frames);
    JURN_LIMIT(voices[k].stream->channels == voices[0].stream->channels,
               "Sections_voice: the streams of a fade must have as many channels");
    JURN_LIMIT(k == 0 || (voices[k].ramp >= 1 && voices[k].done >= 0),
               "Sections_voice: ramp must be at least 1, and done not negative");
  }
  Stream* const stream = voices[0].stream;
  unsigned long long bad = 0;
  Chunk x, y, v;
  for (int channel = 0; channel < stream->channels; ++channel)
    for (int done = 0; done < frames;) {
      const int room = section_chunk - static_cast<int>((stream->position + done) % section_chunk);
      const int n = frames - done < room ? frames - done : room;
      bad += take(y.samples(), input, channel, done, n);
      if (count > 1) memcpy(x.samples(), y.samples(), n * sizeof(double));
      for (int k = 0; k < count; ++k) {
        const Voice& voice = voices[k];
        Chunk* const chunk = k == 0 ? &y : &v;
        if (k > 0) memcpy(v.samples(), x.samples(), n * sizeof(double));
        filter_channel(voice.stream, voice.filter, channel,
                       (voice.stream->position + done) % section_chunk, chunk, n);
        if (k > 0) mix(y.samples(), v.samples(), n, voice, done);
      }
      give(output, channel, done, y.samples(), n);
      done += n;
    }
  for (int k = 0; k < count; ++k) {
    Voice& voice = voices[k];
    voice.stream->position = (voice.stream->position + frames) % section_chunk;
    voice.stream->bad += bad;
    if (k > 0) voice.done = voice.done < voice.ramp - frames ? voice.done + frames : voice.ramp;
  }
}

template <class Sample>
void run_interleaved(Voice* voices, int count, const Sample* input, int frames, Sample* output) {
  const int channels = voices[0].stream->channels;
  run(voices, count, Interleaved<const Sample>{input, channels}, frames,
      Interleaved<Sample>{output, channels});
}

template <class Sample>
void run_planar(Voice* voices, int count, const Sample* const* input, int frames,
                Sample* const* output) {
  run(voices, count, Planar<const Sample>{input}, frames, Planar<Sample>{output});
}

/** The frames of one list's response. */
int ring(const Filter* filter, int list, double level) {
  double states[JURN_SECTIONS_SECTIONS * section_states] = {};
  double x[section_chunk];
  const double* const coefficients = JURN_section_coefficients(filter, list);
  const int values = filter->groups * section_states * section_group;
  double peak = 0;
  int length = 0;
  for (int start = 0; start < JURN_SECTIONS_RING; start += section_chunk) {
    memset(x, 0, sizeof x);
    if (start == 0) x[0] = 1.0;
    if (filter->sections > 0)
      JURN_run_sections(coefficients, states, filter->sections, x, section_chunk / section_step, 1);
    for (int i = 0; i < section_chunk; ++i) {
      const double a = x[i] < 0 ? -x[i] : x[i];
      if (a - a != 0.0) return JURN_SECTIONS_RING;
      if (a > peak) peak = a;
      if (a > 0 && a >= level * peak) length = start + i + 1;
    }
    JURN_clean_sections(states, filter->sections);
    bool silent = true;
    for (int i = 0; i < values; ++i) silent = silent && states[i] == 0.0;
    if (silent) return length;
  }
  return JURN_SECTIONS_RING;
}

}  // namespace

void MORVAX_SectionsRun_API(SectionsStream_ID* stream, const SectionsFilter_ID* filter,
                            const short* input, int frames, short* output) {
  Voice voice = {stream, filter, 1, 1};
  run_interleaved(&voice, 1, input, frames, output);
}
void MORVAX_SectionsRun_API_float(SectionsStream_ID* stream, const SectionsFilter_ID* filter,
                                  const float* input, int frames, float* output) {
  Voice voice = {stream, filter, 1, 1};
  run_interleaved(&voice, 1, input, frames, output);
}
void MORVAX_SectionsRun_API_double(SectionsStream_ID* stream, const SectionsFilter_ID* filter,
                                   const double* input, int frames, double* output) {
  Voice voice = {stream, filter, 1, 1};
  run_interleaved(&voice, 1, input, frames, output);
}
void MORVAX_SectionsRun_API_planar(SectionsStream_ID* stream, const SectionsFilter_ID* filter,
                                   const float* const* input, int frames, float* const* output) {
  Voice voice = {stream, filter, 1, 1};
  run_planar(&voice, 1, input, frames, output);
}
void MORVAX_SectionsRun_API_planar_short(SectionsStream_ID* stream, const SectionsFilter_ID* filter,
                                         const short* const* input, int frames,
                                         short* const* output) {
  Voice voice = {stream, filter, 1, 1};
  run_planar(&voice, 1, input, frames, output);
}
void MORVAX_SectionsRun_API_planar_double(SectionsStream_ID* stream,
                                          const SectionsFilter_ID* filter,
                                          const double* const* input, int frames,
                                          double* const* output) {
  Voice voice = {stream, filter, 1, 1};
  run_planar(&voice, 1, input, frames, output);
}

void MORVAX_SectionsFade_API(Sections_voice* voices, int count, const short* input, int frames,
                             short* output) {
  run_interleaved(voices, count, input, frames, output);
}
void MORVAX_SectionsFade_API_float(Sections_voice* voices, int count, const float* input,
                                   int frames, float* output) {
  run_interleaved(voices, count, input, frames, output);
}
void MORVAX_SectionsFade_API_double(Sections_voice* voices, int count, const double* input,
                                    int frames, double* output) {
  run_interleaved(voices, count, input, frames, output);
}
void MORVAX_SectionsFade_API_planar(Sections_voice* voices, int count, const float* const* input,
                                    int frames, float* const* output) {
  run_planar(voices, count, input, frames, output);
}
void MORVAX_SectionsFade_API_planar_short(Sections_voice* voices, int count,
                                          const short* const* input, int frames,
                                          short* const* output) {
  run_planar(voices, count, input, frames, output);
}
void MORVAX_SectionsFade_API_planar_double(Sections_voice* voices, int count,
                                           const double* const* input, int frames,
                                           double* const* output) {
  run_planar(voices, count, input, frames, output);
}

int MORVAX_SectionsRing_API(const SectionsFilter_ID* filter, double level) {
  JURN_LIMIT(filter->ready == section_ready, "SectionsFilter_ID: the filter must be set up");
  JURN_LIMIT(level > 0, "SectionsFilter_ID: the level must be above 0");
  int longest = 0;
  for (int list = 0; list < filter->lists; ++list) {
    const int length = ring(filter, list, level);
    if (length > longest) longest = length;
  }
  return longest;
}
