/* Runs, fades and the length of the response. */
#include "../../../../common/exact_arithmetic.h"

#include "sections.h"

#include <string.h>

#include "../../../../common/internal.h"

namespace {

using Stream = Sections_stream_st;
using Filter = Sections_filter_st;
using Voice = Sections_voice;

/** Where the samples of a call lie. */
template <class Sample>
struct Interleaved {
  Sample* samples;
  int stride;
  Sample* at(int channel, int frame) const {
    return samples + static_cast<size_t>(frame) * stride + channel;
  }
};
template <class Sample>
struct Planar {
  Sample* const* arrays;
  static constexpr int stride = 1;
  Sample* at(int channel, int frame) const { return arrays[channel] + frame; }
};

int take(double* x, const short* in, int stride, int count) {
  return JURN_take_short(x, in, stride, count);
}
int take(double* x, const float* in, int stride, int count) {
  return JURN_take_float(x, in, stride, count);
}
int take(double* x, const double* in, int stride, int count) {
  return JURN_take_double(x, in, stride, count);
}
void give(short* out, int stride, double* x, int count) {
  JURN_give_short(out, stride, x, count);
}
void give(float* out, int stride, double* x, int count) {
  JURN_give_float(out, stride, x, count);
}
void give(double* out, int stride, double* x, int count) {
  JURN_give_double(out, stride, x, count);
}

constexpr int pair = 2;  // channels that are filtered side by side

/** Samples of one channel between the room for an unfinished step on both sides. */
struct Chunk {
  double memory[section_step + section_chunk + section_step];
  double* samples() { return memory + section_step; }
};

/** Filters frames of one channel, or of two side by side, in place, from a frame of the stream on.
 */
void filter_channels(Stream* stream, const Filter* filter, int first, int channels,
                     unsigned position, Chunk* chunks, int frames) {
  const int sections = filter->sections;
  for (int done = 0; done < frames;) {
    const int known = static_cast<int>(position % section_step);
    const int room = section_chunk - static_cast<int>(position);
    const int count = frames - done < room ? frames - done : room;
    const int steps = (known + count) / section_step, rest = (known + count) % section_step;
    SectionsChannel parts[2], unfinished[2];
    for (int c = 0; c < channels; ++c) {
      const int channel = first + c;
      double* const inputs = JURN_section_inputs(stream, channel);
      double* const x = chunks[c].samples() + done;
      for (int i = 0; sections == 0 && i < count; ++i) x[i] += 0.0;  // as sums do to a -0.0
      parts[c] = {JURN_section_coefficients(filter, filter->lists > 1 ? channel : 0),
                  JURN_section_states(stream, channel), x - known};
      unfinished[c] = parts[c];
      unfinished[c].x += steps * section_step;
      memcpy(parts[c].x, inputs, known * sizeof(double));
      memset(inputs, 0, section_step * sizeof(double));
      memcpy(inputs, unfinished[c].x, rest * sizeof(double));
      for (int i = rest; rest > 0 && i < section_step; ++i) unfinished[c].x[i] = 0.0;
    }
    if (sections > 0) {
      if (steps > 0) JURN_run_sections(parts, channels, sections, steps, 1);
      if (rest > 0) JURN_run_sections(unfinished, channels, sections, 1, 0);
      for (int c = 0; c < channels && count == room; ++c)
        JURN_clean_sections(parts[c].states, filter->groups);
    }
    position = (position + count) % section_chunk;
    done += count;
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
  Chunk x[pair], y[pair], v[pair];
  for (int first = 0; first < stream->channels; first += pair) {
    const int channels = stream->channels - first < pair ? stream->channels - first : pair;
    for (int done = 0; done < frames;) {
      const int room = section_chunk - static_cast<int>((stream->position + done) % section_chunk);
      const int n = frames - done < room ? frames - done : room;
      for (int c = 0; c < channels; ++c) {
        bad += take(y[c].samples(), input.at(first + c, done), input.stride, n);
        if (count > 1) memcpy(x[c].samples(), y[c].samples(), n * sizeof(double));
      }
      for (int k = 0; k < count; ++k) {
        const Voice& voice = voices[k];
        for (int c = 0; k > 0 && c < channels; ++c)
          memcpy(v[c].samples(), x[c].samples(), n * sizeof(double));
        filter_channels(voice.stream, voice.filter, first, channels,
                        (voice.stream->position + done) % section_chunk, k == 0 ? y : v, n);
        for (int c = 0; k > 0 && c < channels; ++c)
          mix(y[c].samples(), v[c].samples(), n, voice, done);
      }
      for (int c = 0; c < channels; ++c)
        give(output.at(first + c, done), output.stride, y[c].samples(), n);
      done += n;
    }
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
  constexpr int piece = section_chunk / 2;  // half a chunk, for a small stack
  double x[piece];
  const double* const coefficients = JURN_section_coefficients(filter, list);
  const int values = filter->groups * section_states * section_group;
  double peak = 0;
  int length = 0;
  for (int start = 0; start < JURN_SECTIONS_RING; start += piece) {
    memset(x, 0, sizeof x);
    if (start == 0) x[0] = 1.0;
    const SectionsChannel channel = {coefficients, states, x};
    if (filter->sections > 0)
      JURN_run_sections(&channel, 1, filter->sections, piece / section_step, 1);
    for (int i = 0; i < piece; ++i) {
      const double a = x[i] < 0 ? -x[i] : x[i];
      if (a - a != 0.0) return JURN_SECTIONS_RING;
      if (a > peak) peak = a;
      if (a > 0 && a >= level * peak) length = start + i + 1;
    }
    if ((start + piece) % section_chunk) continue;
    JURN_clean_sections(states, filter->groups);
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
