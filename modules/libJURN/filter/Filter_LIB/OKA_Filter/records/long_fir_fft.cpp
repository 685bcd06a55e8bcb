/* Filterlongfir_ID: the FFT kinds, overlap-save convolution between the two FIFOs. */
#include "../../../../common/exact_arithmetic.h"

#include "../../Filter_control.h"

#include <stdint.h>

#include "../../../../common/fast_convolution.h"
#include "../../../../common/functions.h"
#include "../../../../common/internal.h"
#include "../../../../common/samples.h"
#include "long_fir.h"

namespace {

int min(int x, int y) {
  return x < y ? x : y;
}

/** The slot `ahead` after slot. */
int advance(int slot, int ahead) {
  const int next = slot + ahead;
  return next < JURN_RING_SLOTS ? next : next - JURN_RING_SLOTS;
}

/** Goes through frames of a ring from slot on, which lie in at most two pieces: piece(slot, done,
 * frames) for each, and across(done) for a stereo frame across the end of the ring. */
template <class Piece, class Across>
void for_each_piece(int slot, int channels, int frames, Piece piece, Across across) {
  for (int done = 0; done < frames;) {
    const int run = min(frames - done, (JURN_RING_SLOTS - slot) / channels);
    piece(slot, done, run);
    done += run;
    slot = advance(slot, run * channels);
    if (done < frames && slot == JURN_RING_SLOTS - 1) {
      across(done++);
      slot = 1;
    }
  }
}

/** Converts frames of a ring, from slot on, to float; only the left of one channel. */
void gather(const short* ring, int slot, int channels, int frames, float* left, float* right) {
  for_each_piece(
      slot, channels, frames,
      [=](int from, int done, int run) {
        if (channels == 1)
          JURN_to_float(left + done, ring + from, run);
        else
          JURN_split_to_float(left + done, right + done, ring + from, run);
      },
      [=](int done) {
        left[done] = ring[JURN_RING_SLOTS - 1];
        right[done] = ring[0];
      });
}

/** Converts frames to int16 into a ring, from slot on: the counterpart of gather. */
void emit(short* ring, int slot, int channels, int frames, const float* left, const float* right) {
  for_each_piece(
      slot, channels, frames,
      [=](int from, int done, int run) {
        if (channels == 1)
          JURN_to_short(ring + from, left + done, run);
        else
          JURN_join_to_short(ring + from, left + done, right + done, run);
      },
      [=](int done) {
        ring[JURN_RING_SLOTS - 1] = stoshort(left[done]);
        ring[0] = stoshort(right[done]);
      });
}

/** Where a work array is used from. Transforms take 16384 of its 65536 entries, so a block starts
 * at a multiple of 64 bytes wherever the record lies: no vector crosses a cache line. */
float* block_of(float (&work)[JURN_SPECTRUM]) {
  static_assert(JURN_SPECTRUM >= JURN_FFT_MAX + 16, "room to move a block");
  const auto address = reinterpret_cast<uintptr_t>(work);
  return work + (0 - address) % 64 / sizeof(float);
}

/** Mixes the previous filter's block into the current one's from sample first on. The ramp spans
 * the whole block, so its first part lies in the samples that are not emitted. */
void fade(float* current, const float* previous, int first, int N) {
  const float step = 1.0f / static_cast<float>(N - 1);
  for (int i = first; i < N; ++i) {
    const float index = static_cast<float>(i);
    current[i] = step * (current[i] * index) + (1.0f - step * index) * previous[i];
  }
}

}  // namespace

void run_fft_kind(Filterlongfir_ID* mFilter, const short* input, int inLen, short* output) {
  const int type = mFilter->filtertype;
  const bool stereo_input = mFilter->chanel == JURN_STEREO && type != JURN_LONG_FFT_LEFT_ONLY;
  const bool stereo_output = mFilter->chanel == JURN_STEREO || type == JURN_LONG_FFT_MONO_TO_STEREO;
  const bool fades =
      (type == JURN_LONG_FFT && stereo_input) || type == JURN_LONG_FFT_MONO_TO_STEREO;
  const int in_channels = stereo_input ? 2 : 1;
  const int out_channels = stereo_output ? 2 : 1;
  const int N = mFilter->fftN;
  const int hop = hop_of(mFilter);
  // The longer filter's wrap-around is dropped on both channels, so that every block emits as many
  // frames as it consumes and the queues together always hold N frames.
  const int discarded = N - hop;
  Buf16_ID* in = &mFilter->mBufin;
  Buf16_ID* out = &mFilter->mBufout;
  RealFFT_ID* fft = &mFilter->realfft;
  if (hop == 0) return;  // no block could move on
  JURN_LIMIT(inLen >= 0 && inLen % mFilter->chanel == 0,
             "Filterlongfir_ID: inLen must be 0 or more and, in stereo, even");
  JURN_LIMIT(MORVAX_queuehave_API(in) + inLen / mFilter->chanel * in_channels < JURN_RING_SLOTS,
             "Filterlongfir_ID: the block does not fit the input FIFO of 105599 values");

  if (type == JURN_LONG_FFT_LEFT_ONLY)
    MORVAX_putinAPI_loop_onlychannelLin(in, input, inLen);
  else
    MORVAX_putinAPI_loop(in, input, inLen);

  while (MORVAX_queuehave_API(in) >= in_channels * N) {
    float* const xL = block_of(mFilter->xLintl);
    float* const xR = stereo_input ? block_of(mFilter->xRintl) : xL;
    float* const left = block_of(mFilter->xLhL);
    float* const right = block_of(mFilter->xRhR);
    const short* const oldest = in->membuf + advance(in->front, 1);
    const int swapped = type == JURN_LONG_FFT_CROSSED;
    // Samples that lie in one piece are converted by the transform's first pass.
    const bool in_one_piece =
        N >= JURN_SAMPLES_FFT_MIN && oldest + in_channels * N <= in->membuf + JURN_RING_SLOTS;
    const auto transform = [=](float* x, int channel) {
      if (in_one_piece)
        JURN_forward_samples(fft, x, oldest, in_channels, channel);
      else
        MORVAX_KLOV_RealFFT_Run2(fft, x, static_cast<short>(N));
    };
    if (!in_one_piece)
      gather(in->membuf, advance(in->front, 1), in_channels, N, swapped ? xR : xL,
             swapped ? xL : xR);
    transform(xL, swapped);
    JURN_inverse_product(fft, left, mFilter->hLrfft, xL);
    if (stereo_input) transform(xR, 1 - swapped);
    if (stereo_output) JURN_inverse_product(fft, right, mFilter->hRrfft, xR);

    if (fades && mFilter->cmemcall == 1) {
      float* const left0 = block_of(mFilter->xLhL0);
      float* const right0 = block_of(mFilter->xRhR0);
      JURN_inverse_product(fft, left0, mFilter->cmemhLrfft, xL);
      JURN_inverse_product(fft, right0, mFilter->cmemhRrfft, xR);
      fade(left, left0, discarded, N);
      fade(right, right0, discarded, N);
      mFilter->cmemcall = 0;
    }

    in->front = advance(in->front, in_channels * hop);
    if (mFilter->blen > N) continue;  // all of the block is wrap-around
    JURN_LIMIT(MORVAX_queuehave_API(out) + out_channels * hop < JURN_RING_SLOTS,
               "Filterlongfir_ID: the block does not fit the output FIFO of 105599 values");
    emit(out->membuf, advance(out->rear, 1), out_channels, hop, left + discarded,
         right + discarded);
    out->rear = advance(out->rear, out_channels * hop);
  }

  MORVAX_putoutAPI_ForReframe_0_loop(out, output,
                                     type == JURN_LONG_FFT_MONO_TO_STEREO ? 2 * inLen : inLen);
}
