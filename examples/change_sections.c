/* An equaliser's peak goes from flat to 12 dB while a tone of its frequency runs, in calls of any
 * number of frames, and before it is there it turns to -12 dB: no step is heard. */
#include <math.h>
#include <stdio.h>
#include <stdlib.h>

#include "Sections_control.h"

enum { FRAMES = 48000, RATE = 48000, RAMP = 12000 };

static float samples[FRAMES];

/* A peak at 1000 Hz with Q 1. */
static SectionsFilter_ID* new_peak(double decibels) {
  const double w = 2 * 3.14159265358979 * 1000 / RATE, alpha = sin(w) / 2;
  const double gain = pow(10, decibels / 40), c = -2 * cos(w);
  const double sos[] = {1 + alpha * gain, c, 1 - alpha * gain,
                        1 + alpha / gain, c, 1 - alpha / gain};
  const size_t size = MORVAX_SectionsFilterSize_API(1, 1);
  SectionsFilter_ID* filter = malloc(size);
  if (!filter || MORVAX_SectionsFilterCalcu_API(filter, size, sos, 1, 1) != JURN_SECTIONS_OK) {
    fprintf(stderr, "no filter\n");
    exit(1);
  }
  return filter;
}

static SectionsStream_ID* new_stream(void) {
  const Sections_shape mono = {1, 1};
  const size_t size = MORVAX_SectionsStreamSize_API(&mono);
  SectionsStream_ID* stream = malloc(size);
  if (!stream || MORVAX_SectionsStreamCalcu_API(stream, size, &mono) != JURN_SECTIONS_OK) {
    fprintf(stderr, "no stream\n");
    exit(1);
  }
  return stream;
}

int main(void) {
  const double w = 2 * 3.14159265358979 * 1000 / RATE;
  for (int i = 0; i < FRAMES; ++i) samples[i] = (float)(0.1 * sin(w * i));

  Sections_voice voices[3] = {{new_stream(), new_peak(0), 1, 0}};
  int count = 1;
  for (int i = 0, frames; i < FRAMES; i += frames) {
    frames = 100 + i % 157 < FRAMES - i ? 100 + i % 157 : FRAMES - i;
    if (i >= 6000 + 6000 * count && count < 3) { /* the fades overlap: a voice more */
      voices[count] = (Sections_voice){new_stream(), new_peak(count == 1 ? 12 : -12), RAMP, 0};
      MORVAX_SectionsFollow_API(voices[count].stream, voices[count].filter,
                                voices[count - 1].stream, voices[count - 1].filter);
      ++count;
    }
    MORVAX_SectionsFade_API_float(voices, count, samples + i, frames, samples + i);
  }

  /* Of a tone, x[n] - 2 cos(w) x[n-1] + x[n-2] is 0; a step stays what it is. */
  double step = 0, loudest = 0, last = 0;
  for (int i = 2; i < FRAMES; ++i) {
    const double s = fabs(samples[i] - 2 * cos(w) * samples[i - 1] + samples[i - 2]);
    if (s > step) step = s;
    if (fabsf(samples[i]) > loudest) loudest = fabsf(samples[i]);
    if (i >= FRAMES - 480 && fabsf(samples[i]) > last) last = fabsf(samples[i]);
  }
  printf("tone of 0.1, at most %.3f, at last %.4f, largest step %.1f dB\n", loudest, last,
         20 * log10(step));
  for (int k = 0; k < count; ++k) {
    free(voices[k].stream);
    free((void*)voices[k].filter);
  }
  return step < 3.2e-5 && fabs(last - 0.1 * pow(10, -12 / 20.0)) < 1e-5 ? 0 : 1;
}
