/* A hall that changes while audio runs. The control thread prepares impulse responses and frees
 * them; the audio thread fades to whatever is offered, once it has prepared the fade a share per
 * block, so that no block costs more than four. They share one atomic pointer: no lock, and nothing
 * is allocated, freed or waited for in the audio thread.
 *
 *   control thread                 audio thread, once per block
 *   set next up                    next = offered
 *   offered = next                 if its fade is prepared: fade to it, then offered = NULL
 *   wait until offered is NULL     otherwise: run, and prepare the fade if there is a next
 *   free what played before
 */
#include <pthread.h>
#include <sched.h>
#include <stdatomic.h>
#include <stdio.h>
#include <stdlib.h>

#include "Convolution_control.h"

enum { TAPS = 6000, FRAMES = 128, CHANGES = 40 };
static const Convolution_shape shape = {1, 1, FRAMES, TAPS};

static _Atomic(ConvolutionResponse_ID*) offered;
static atomic_int stop;
static int fades, blocks;
static float largest_step;

/* A response that passes the signal at a gain, with a quiet tail. */
static ConvolutionResponse_ID* set_up(float gain) {
  static float taps[TAPS];
  taps[0] = gain;
  for (int i = 1; i < TAPS; ++i) taps[i] = i % 2 ? 1e-6f : -1e-6f;
  const Convolution_route route = {0, 0, taps, TAPS};
  const size_t size = MORVAX_ConvolutionResponseSize_API(&shape, &route, 1);
  ConvolutionResponse_ID* response = malloc(size);
  if (!response ||
      MORVAX_ConvolutionResponseCalcu_API(response, size, &shape, &route, 1) != JURN_CONVOLUTION_OK)
    exit(1);
  return response;
}

struct Audio {
  ConvolutionStream_ID* stream;
  const ConvolutionResponse_ID* playing;
  int prepared; /* the next block can be the fade */
};

static void* play(void* argument) {
  struct Audio* audio = argument;
  short before = 10000;
  while (!atomic_load(&stop)) {
    short block[FRAMES];
    for (int i = 0; i < FRAMES; ++i) block[i] = 10000;
    const ConvolutionResponse_ID* next = atomic_load_explicit(&offered, memory_order_acquire);
    if (next && audio->prepared) {
      MORVAX_ConvolutionFade_API(audio->stream, audio->playing, next, block, block);
      audio->playing = next;
      audio->prepared = 0;
      ++fades;
      /* From here on the control thread may free the response that played before. */
      atomic_store_explicit(&offered, NULL, memory_order_release);
    } else {
      MORVAX_ConvolutionRun_API(audio->stream, audio->playing, block, block);
      if (next) audio->prepared = MORVAX_ConvolutionPrepareFade_API(audio->stream, next) == 0;
    }
    for (int i = 0; i < FRAMES; ++i) {
      const float step = (float)abs(block[i] - before);
      if (step > largest_step) largest_step = step;
      before = block[i];
    }
    ++blocks;
    sched_yield(); /* where a real one waits for the sound card */
  }
  return NULL;
}

int main(void) {
  const size_t size = MORVAX_ConvolutionStreamSize_API(&shape);
  struct Audio audio = {malloc(size), NULL, 0};
  ConvolutionResponse_ID* playing = set_up(1.0f);
  audio.playing = playing;
  if (!audio.stream || MORVAX_ConvolutionStreamCalcu_API(audio.stream, size, &shape) != 0) return 1;
  pthread_t thread;
  if (pthread_create(&thread, NULL, play, &audio) != 0) return 1;
  for (int change = 0; change < CHANGES; ++change) {
    ConvolutionResponse_ID* next = set_up(change % 2 ? 1.0f : -1.0f);
    atomic_store_explicit(&offered, next, memory_order_release);
    while (atomic_load_explicit(&offered, memory_order_acquire)) sched_yield();
    free(playing);
    playing = next;
  }
  atomic_store(&stop, 1);
  pthread_join(thread, NULL);
  free(playing);
  free(audio.stream);

  /* A fade between the gains 1 and -1 takes FRAMES - 1 steps of at most 158; the tail adds 1. */
  printf("%d fades in %d blocks, largest step %g\n", fades, blocks, (double)largest_step);
  return !(fades == CHANGES && largest_step <= 20000.0f / (FRAMES - 1) + 2);
}
