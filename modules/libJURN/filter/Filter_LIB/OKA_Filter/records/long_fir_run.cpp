/* Filterlongfir_ID: dispatch of the run, and the time-domain kinds with two filters. */
#include "../../../../common/exact_arithmetic.h"

#include "../../Filter_control.h"

#include "../../../../common/ChanelConvert.h"
#include "../../../../common/internal.h"
#include "../../OKA_Filter.h"
#include "filter_kinds.h"
#include "long_fir.h"

namespace {

/** Joins the previous filter's output to the current one along a linear ramp, in place. */
void fade(short* current, const short* previous, int frames) {
  if (frames < 2) return;  // a ramp needs two ends; a single frame is the current filter's
  const float step = 1.0f / static_cast<float>(frames - 1);
  for (int i = 0; i < frames; ++i) {
    const float weight = 1.0f - step * static_cast<float>(i);
    const float scaled = static_cast<float>(i * current[i]);
    // A mean of two int16 samples needs no limits.
    current[i] = static_cast<short>(weight * static_cast<float>(previous[i]) + step * scaled);
  }
}

/** The filter of one channel, and the one from which a pending fade starts. */
struct Channel {
  short* history;
  const float* taps;
  int count;
  short* saved_history;
  const float* saved_taps;
};

/** Runs the current filter and, when a fade is pending, the saved one on the same input. */
void run_channel(const Filterlongfir_ID* mFilter, const Channel& channel, const short* input,
                 short* output, int frames) {
  short previous[JURN_BLOCK];
  if (mFilter->cmemcall == 1)
    JURNfir(previous, input, frames, channel.saved_history, channel.saved_taps,
            static_cast<short>(mFilter->cmemblen));
  JURNfir(output, input, frames, channel.history, channel.taps, static_cast<short>(channel.count));
  if (mFilter->cmemcall == 1) fade(output, previous, frames);
}

void check_two_filters(const Filterlongfir_ID* mFilter, int frames) {
  JURN_LIMIT(frames >= 0 && frames <= JURN_BLOCK,
             "Filterlongfir_ID: a block of two filters must have at most 1056 frames");
  JURN_LIMIT(mFilter->blen >= 1 && mFilter->blen <= 32767 && mFilter->bRlen >= 1 &&
                 mFilter->bRlen <= 32767,
             "Filterlongfir_ID: the time-domain kinds take 1 to 32767 taps");
  JURN_LIMIT(mFilter->blen - 1 + frames <= JURN_LONG_HISTORY &&
                 mFilter->bRlen - 1 + frames <= JURN_LONG_HISTORY,
             "Filterlongfir_ID: blen - 1 + frames must be at most 33824");
  JURN_LIMIT(mFilter->cmemcall != 1 || (mFilter->cmemblen >= 1 && mFilter->cmemblen <= 32767 &&
                                        mFilter->cmemblen - 1 + frames <= JURN_LONG_HISTORY),
             "Filterlongfir_ID: a pending fade needs a saved filter of 1 to 32767 taps");
}

/** The kinds -3 (stereo in) and -6 (mono in): left through b, right through bR, with fade. */
void run_two_filters(Filterlongfir_ID* mFilter, const short* input, int inLen, short* output) {
  const bool mono_input = mFilter->chanel == JURN_MONO;
  const int frames = inLen / mFilter->chanel;
  check_two_filters(mFilter, frames);
  short left[JURN_BLOCK];
  short right[JURN_BLOCK];
  if (!mono_input) MORVAX_ChanelConvert(1, 2, inLen, input, nullptr, left, right);
  const Channel of_left = {mFilter->memL.meminput, mFilter->b, mFilter->blen, mFilter->cmeminputL,
                           mFilter->cmemb};
  const Channel of_right = {mFilter->memR.meminput, mFilter->bR, mFilter->bRlen,
                            mFilter->cmeminputR, mFilter->cmembR};
  run_channel(mFilter, of_left, mono_input ? input : left, left, frames);
  run_channel(mFilter, of_right, mono_input ? input : right, right, frames);
  if (mFilter->cmemcall == 1) mFilter->cmemcall = 0;
  MORVAX_ChanelConvert(2, 1, frames, left, right, output, nullptr);
}

/** How a record runs: what chanel and filtertype select. */
enum class Path { none, plain, two_filters, fft };

Path path_of(const Filterlongfir_ID* mFilter) {
  const bool mono = mFilter->chanel == JURN_MONO;
  const bool stereo = mFilter->chanel == JURN_STEREO;
  switch (mFilter->filtertype) {
    case JURN_LONG_FFT:
      return mono || stereo ? Path::fft : Path::none;
    case JURN_LONG_FFT_MONO_TO_STEREO:
      return mono ? Path::fft : Path::none;
    case JURN_LONG_FFT_CROSSED:
    case JURN_LONG_FFT_LEFT_ONLY:
      return stereo ? Path::fft : Path::none;
    case JURN_LONG_MONO_TO_STEREO:
      return mono ? Path::two_filters : Path::none;
    case JURN_LONG_TWO_FILTERS:
      return stereo ? Path::two_filters : Path::none;
    default:
      return is_plain_kind(mFilter) ? Path::plain : Path::none;
  }
}

}  // namespace

void MORVAX_FilterlongfirRun_API(Filterlongfir_ID* mFilter, const short* input, int inLen,
                                 short* output) {
  switch (path_of(mFilter)) {
    case Path::none:
      return;
    case Path::plain:
      return run_plain_kind(mFilter, input, inLen, output);
    case Path::two_filters:
      return run_two_filters(mFilter, input, inLen, output);
    case Path::fft:
      return run_fft_kind(mFilter, input, inLen, output);
  }
}

int MORVAX_FilterlongfirLatency_API(const Filterlongfir_ID* mFilter) {
  return path_of(mFilter) == Path::fft ? hop_of(mFilter) : 0;
}

int MORVAX_FilterlongfirLongestBlock_API(const Filterlongfir_ID* mFilter) {
  int frames = 0;
  switch (path_of(mFilter)) {
    case Path::none:
      return 0;
    case Path::plain:
      return longest_block(mFilter);
    case Path::two_filters:
      return in_range(mFilter->blen, 1, 32767) && in_range(mFilter->bRlen, 1, 32767) ? JURN_BLOCK
                                                                                     : 0;
    case Path::fft: {
      const bool two_channels =
          mFilter->chanel == JURN_STEREO || mFilter->filtertype == JURN_LONG_FFT_MONO_TO_STEREO;
      if (hop_of(mFilter) > 0)
        frames = (JURN_RING_SLOTS - 1) / (two_channels ? 2 : 1) - mFilter->fftN;
      break;
    }
  }
  return frames > 0 ? frames : 0;
}
