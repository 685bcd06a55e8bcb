#include "records.h"

#include <algorithm>
#include <cstring>
#include <iterator>

namespace jurn::python {
namespace {

template <class Record>
int most_taps(const Record& r) {
  return std::min(static_cast<int>(std::size(r.b)), 32767);
}

template <class Record>
bool plain_is_valid(const Record& r) {
  switch (r.filtertype) {
    case JURN_FIR:
      return r.blen >= 1 && r.blen <= most_taps(r);
    case JURN_IIR:
      return r.blen >= 1 && r.blen <= JURN_COEFFICIENTS && r.alen >= 1 &&
             r.alen <= JURN_COEFFICIENTS;
    case JURN_CASCADE:
      return (r.n == 2 || r.n == 4) && r.ns >= 1 && r.ns <= JURN_COEFFICIENTS / (r.n + 1);
    case JURN_MOVING_AVERAGE:
      return r.chanel == 1 && r.blen >= 1 &&
             r.blen <= std::min(static_cast<int>(std::size(r.memL.meminput)), 32767) &&
             r.memL.memi >= 0 && r.memL.memi < r.blen;
    default:
      return false;
  }
}

template <class Record>
void clear_state(Record& r) {
  std::memset(&r.memL, 0, sizeof r.memL);  // the reset leaves the states of a very long cascade
  std::memset(&r.memR, 0, sizeof r.memR);
}

std::string channels_of(int in, int out) {
  return ", " + std::to_string(in) + (in != out ? " to " + std::to_string(out) : "") +
         (out == 1 ? " channel>" : " channels>");
}

/** Any record with a kind. */
template <class Record>
std::string described(const char* name, const Record& r, int sections, int order) {
  std::string text = std::string("<jurn.") + name + ": ";
  const std::string taps = std::to_string(r.blen);
  if (r.filtertype == JURN_MOVING_AVERAGE)
    text += "mean of " + taps + " samples";
  else if (r.filtertype == JURN_CASCADE)
    text += "sections of order " + std::to_string(order) + ": " + std::to_string(sections);
  else if (r.filtertype == JURN_IIR)
    text += "IIR of " + taps + " and " + std::to_string(r.alen) + " coefficients";
  else
    text += "FIR of " + taps + " taps, kind " + std::to_string(r.filtertype);
  return text + channels_of(channels_in(r), channels_out(r));
}

}  // namespace

std::string described(const Filter_ID& r) {
  return described("Filter", r, r.ns, r.n);
}
std::string described(const shuzhiFilter_ID& r) {
  return "<jurn.MovingSum: " + std::to_string(r.blen) + " samples>";
}
std::string described(const Filterf_ID& r) {
  return described("FloatFilter", r, 0, 0);
}
std::string described(const Filterlongfir_ID& r) {
  return described("LongFilter", r, r.ns, r.n);
}

bool is_fft(const Filterlongfir_ID& r) {
  return r.filtertype < JURN_FIR && r.filtertype != JURN_LONG_TWO_FILTERS &&
         r.filtertype != JURN_LONG_MONO_TO_STEREO;
}

int channels_in(const Filter_ID& r) {
  return r.chanel;
}
int channels_in(const shuzhiFilter_ID&) {
  return 1;
}
int channels_in(const Filterf_ID&) {
  return 1;
}
int channels_in(const Filterlongfir_ID& r) {
  return r.chanel;
}
int channels_out(const Filter_ID& r) {
  return r.chanel;
}
int channels_out(const shuzhiFilter_ID&) {
  return 1;
}
int channels_out(const Filterf_ID&) {
  return 1;
}
int channels_out(const Filterlongfir_ID& r) {
  return r.filtertype == JURN_LONG_FFT_MONO_TO_STEREO || r.filtertype == JURN_LONG_MONO_TO_STEREO
             ? 2
             : r.chanel;
}

int longest_block(const Filter_ID& r) {
  return MORVAX_FilterLongestBlock_API(&r);
}
int longest_block(const shuzhiFilter_ID&) {
  return 1 << 20;
}
int longest_block(const Filterf_ID& r) {
  return MORVAX_FilterfLongestBlock_API(&r);
}
int longest_block(const Filterlongfir_ID& r) {
  return MORVAX_FilterlongfirLongestBlock_API(&r);
}

bool is_valid(const Filter_ID& r) {
  return (r.chanel == 1 || r.chanel == 2) && plain_is_valid(r);
}
bool is_valid(const shuzhiFilter_ID& r) {
  return r.blen >= 1 && r.blen <= JURN_MOVING_SUM_MAX && r.memi >= 0 && r.memi < r.blen;
}
bool is_valid(const Filterf_ID& r) {
  return (r.filtertype == JURN_FIR || r.filtertype == JURN_IIR) && r.blen >= 1 &&
         r.blen <= JURN_FLOAT_COEFFICIENTS &&
         (r.filtertype == JURN_FIR || (r.alen >= 1 && r.alen <= JURN_FLOAT_COEFFICIENTS));
}
bool is_valid(const Filterlongfir_ID& r) {
  if (r.chanel != 1 && r.chanel != 2) return false;
  if (r.filtertype >= JURN_FIR) return plain_is_valid(r);
  const bool mono_kind =
      r.filtertype == JURN_LONG_FFT_MONO_TO_STEREO || r.filtertype == JURN_LONG_MONO_TO_STEREO;
  if (r.filtertype < JURN_LONG_FFT_CROSSED ||
      (r.filtertype != JURN_LONG_FFT && mono_kind != (r.chanel == 1)))
    return false;
  if (r.blen < 1 || r.blen != r.bRlen) return false;
  if (!is_fft(r))
    return r.blen <= 32767 && (r.cmemcall != 1 || (r.cmemblen >= 1 && r.cmemblen <= 32767));
  int N = 2;
  while (N < 2 * r.blen && N < JURN_FFT_MAX) N *= 2;
  const int primed = N * (r.filtertype == JURN_LONG_FFT_LEFT_ONLY ? 1 : r.chanel);
  const auto is_queue = [](const Buf16_ID& queue) {
    return queue.front >= 0 && queue.front < JURN_RING_SLOTS && queue.rear >= 0 &&
           queue.rear < JURN_RING_SLOTS;
  };
  return N >= 2 * r.blen && r.fftN == N && r.realfft.N == N && r.membufrear == primed &&
         r.offset == r.chanel * (N - r.blen + 1) && is_queue(r.mBufin) && is_queue(r.mBufout) &&
         MORVAX_queuehave_API(&r.mBufin) + MORVAX_queuehave_API(&r.mBufout) <= N * channels_out(r);
}

void reset(Filter_ID& r) {
  MORVAX_FilterReset_API(&r);
  clear_state(r);
}
void reset(shuzhiFilter_ID& r) {
  MORVAX_shuzhiFilterReset_API(&r);
}
void reset(Filterf_ID& r) {
  MORVAX_FilterfReset_API(&r);
}
void reset(Filterlongfir_ID& r) {
  MORVAX_FilterlongfirReset_API(&r);
  clear_state(r);
  if (is_fft(r))
    MORVAX_FilterlongfirCalcu_API_forFFT(&r);
  else if (r.filtertype < JURN_FIR)
    MORVAX_FilterlongfirCalcu_APItime(&r);
}

void run(Filter_ID& r, const short* in, int frames, short* out) {
  MORVAX_FilterRun_API(&r, in, frames * r.chanel, out);
}
void run(shuzhiFilter_ID& r, const short* in, int frames, short* out) {
  MORVAX_shuzhiFilterRun_API(&r, in, frames, out);
}
void run(Filterf_ID& r, const float* in, int frames, float* out) {
  MORVAX_FilterfRun_API(&r, in, frames, out);
}
void run(Filterf_ID& r, const short* in, int frames, float* out) {
  MORVAX_FilterfRun_API_shortin(&r, in, frames, out);
}
void run(Filterlongfir_ID& r, const short* in, int frames, short* out) {
  MORVAX_FilterlongfirRun_API(&r, in, frames * r.chanel, out);
}

void fade(Filter_ID& from, Filter_ID& to, const short* in, int frames, short* out) {
  MORVAX_FilterFade_API(&from, &to, in, frames * to.chanel, out);
}
void fade(Filterf_ID& from, Filterf_ID& to, const float* in, int frames, float* out) {
  MORVAX_FilterfFade_API(&from, &to, in, frames, out);
}
void fade(Filterf_ID& from, Filterf_ID& to, const short* in, int frames, float* out) {
  std::copy_n(in, frames, out);
  MORVAX_FilterfFade_API(&from, &to, out, frames, out);
}
void fade(Filterlongfir_ID& from, Filterlongfir_ID& to, const short* in, int frames, short* out) {
  MORVAX_FilterlongfirFade_API(&from, &to, in, frames * to.chanel, out);
}

}  // namespace jurn::python
