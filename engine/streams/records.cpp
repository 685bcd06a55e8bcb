#include "exact.h"

#include "streams/records.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <iterator>
#include <string>
#include <vector>

#include "streams/record_stream.h"

namespace jurn::records {
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

/** Calls f(array, past) for the straight histories of the kinds -1 and 0 of both int16 records. */
template <class Record, class Function>
void plain_histories(Record& r, Function f) {
  for (int c = 0; c < r.chanel; ++c) {
    auto& mem = c ? r.memR : r.memL;
    if (r.filtertype == JURN_FIR || r.filtertype == JURN_IIR) f(mem.meminput, r.blen - 1);
    if (r.filtertype == JURN_IIR) f(mem.memoutput, r.alen - 1);
  }
}

template <class Function>
void histories(Filter_ID& r, Function f) {
  plain_histories(r, f);
}

template <class Function>
void histories(Filterf_ID& r, Function f) {
  f(r.memL.meminput, r.blen - 1);
  if (r.filtertype == JURN_IIR) f(r.memL.memoutput, r.alen - 1);
}

template <class Function>
void histories(Filterlongfir_ID& r, Function f) {
  plain_histories(r, f);
  if (r.filtertype != JURN_LONG_TWO_FILTERS && r.filtertype != JURN_LONG_MONO_TO_STEREO) return;
  f(r.memL.meminput, r.blen - 1);
  f(r.memR.meminput, r.bRlen - 1);
  if (r.cmemcall != 1) return;
  f(r.cmeminputL, r.cmemblen - 1);
  f(r.cmeminputR, r.cmemblen - 1);
}

template <class Record>
void move_all(Record& r, int previous, int next) {
  histories(r, [=](auto* history, int past) {
    std::memmove(history + next, history + previous,
                 static_cast<std::size_t>(past) * sizeof *history);
  });
}

/** Copies the newest samples of one history to the end of another one's past. */
template <class T>
void inherit_history(T* to, int to_past, const T* from, int from_past, int previous) {
  const int count = std::min(to_past, from_past + previous);
  std::copy_n(from + from_past + previous - count, count, to + to_past - count);
}

template <class Record>
void plain_inherit(Record& to, Record& from, int previous) {
  for (int c = 0; c < to.chanel; ++c) {
    auto& mem = c ? to.memR : to.memL;
    const auto& old = c ? from.memR : from.memL;
    if (to.filtertype != JURN_CASCADE) {
      inherit_history(mem.meminput, to.blen - 1, old.meminput, from.blen - 1, previous);
      if (to.filtertype == JURN_IIR)
        inherit_history(mem.memoutput, to.alen - 1, old.memoutput, from.alen - 1, previous);
    } else if (to.ns == from.ns && to.n == from.n) {
      std::copy(std::begin(old.mempx), std::end(old.mempx), mem.mempx);
      std::copy(std::begin(old.mempy), std::end(old.mempy), mem.mempy);
    }
  }
}

/** Copies coefficients that the record takes at most `most` of. */
template <class Number>
void store(const std::vector<double>& from, std::size_t most, Number* to) {
  if (from.size() > most)
    throw Error(kUsageError, "the filter has " + std::to_string(from.size()) +
                                 " coefficients; this object takes " + std::to_string(most));
  for (const double value : from) {
    *to = static_cast<Number>(value);
    if (!std::isfinite(*to++))
      throw Error(kUsageError, "a coefficient is beyond the numbers that this object stores");
  }
}

template <class Record>
void store(Record& r, const FilterDesign& design, std::size_t most) {
  store(design.b, most, r.b);
  store(design.a, most, r.a);
  r.blen = static_cast<int>(design.b.size());
  r.alen = static_cast<int>(design.a.size());
  r.filtertype = design.kind == FilterDesign::kFir   ? JURN_FIR
                 : design.kind == FilterDesign::kIir ? JURN_IIR
                                                     : JURN_CASCADE;
}

}  // namespace

void set_design(Filter_ID& r, const FilterDesign& design) {
  const std::size_t group = design.kind == FilterDesign::kSections ? 3 : 1;
  store(r, design, JURN_COEFFICIENTS / group * group);
  r.n = 2;
  r.ns = r.blen / 3;
}
void set_design(Filterf_ID& r, const FilterDesign& design) {
  if (design.kind == FilterDesign::kSections)
    throw Error(kUsageError, "this object runs taps, or a numerator and a denominator");
  store(r, design, JURN_FLOAT_COEFFICIENTS);
}

bool is_fft(const Filterlongfir_ID& r) {
  return r.filtertype < JURN_FIR && r.filtertype != JURN_LONG_TWO_FILTERS &&
         r.filtertype != JURN_LONG_MONO_TO_STEREO;
}

bool has_two_filters(const Filterlongfir_ID& r) {
  return r.filtertype <= JURN_LONG_TWO_FILTERS || (r.filtertype == JURN_LONG_FFT && r.chanel == 2);
}

void set_kind(Filterlongfir_ID& r, int kind, int channels) {
  if (channels != 1 && channels != 2)
    throw Error(kUsageError, "channels: " + std::to_string(channels) + "; takes 1 or 2");
  const bool mono_to_stereo =
      kind == JURN_LONG_FFT_MONO_TO_STEREO || kind == JURN_LONG_MONO_TO_STEREO;
  const bool stereo_only = kind == JURN_LONG_TWO_FILTERS || kind == JURN_LONG_FFT_LEFT_ONLY ||
                           kind == JURN_LONG_FFT_CROSSED;
  if (kind < JURN_LONG_FFT_CROSSED || kind >= JURN_IIR || (mono_to_stereo && channels == 2) ||
      (stereo_only && channels == 1))
    throw Error(kUsageError, "kind: " + std::to_string(kind) + " does not exist for " +
                                 std::to_string(channels) +
                                 (channels == 1 ? " channel" : " channels"));
  r.filtertype = kind;
  r.chanel = channels;
}

void set_taps(Filterlongfir_ID& r, const std::vector<double>& left,
              const std::vector<double>& right) {
  if (!right.empty() && !has_two_filters(r))
    throw Error(kUsageError, "right: this kind has one set of taps");
  const std::vector<double>& other = right.empty() ? left : right;
  const std::size_t most = is_fft(r) ? JURN_FFT_MAX / 2 : 32767;
  const std::size_t length = std::max(left.size(), other.size());
  if (left.empty() || length > most)
    throw Error(kUsageError, "taps: has " + std::to_string(length) + "; this kind takes 1 to " +
                                 std::to_string(most));
  store(left, most, r.b);
  store(other, most, r.bR);
  std::fill(r.b + left.size(), r.b + length, 0.0F);
  std::fill(r.bR + other.size(), r.bR + length, 0.0F);
  r.blen = r.bRlen = static_cast<int>(length);
}

void check_fade(const Filterlongfir_ID& next, int taps) {
  if (is_fft(next) && next.filtertype != JURN_LONG_FFT_MONO_TO_STEREO &&
      !(next.filtertype == JURN_LONG_FFT && next.chanel == 2))
    throw Error(kUsageError,
                "this kind switches at once and does not fade; the kinds that do are -5, "
                "-3 and -6, and -2 in stereo");
  if (next.blen != taps)
    throw Error(kUsageError, "taps: has " + std::to_string(next.blen) +
                                 " numbers; a fade of this kind keeps the count, " +
                                 std::to_string(taps));
}

void fade_inside(Filterlongfir_ID& r, const Filterlongfir_ID& next) {
  const bool pending = r.cmemcall == 1, in_time = !is_fft(r);
  if (in_time && !pending) MORVAX_FilterlongfirCalcu_APItime(&r);
  std::copy_n(next.b, next.blen, r.b);
  std::copy_n(next.bR, next.blen, r.bR);
  if (in_time) return;
  MORVAX_FilterlongfirCalcu_API_forFFT(&r);
  if (pending) {
    std::copy(std::begin(next.cmemhLrfft), std::end(next.cmemhLrfft), r.cmemhLrfft);
    std::copy(std::begin(next.cmemhRrfft), std::end(next.cmemhRrfft), r.cmemhRrfft);
  }
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

void move_histories(Filter_ID& r, int previous, int next) {
  move_all(r, previous, next);
}
void move_histories(shuzhiFilter_ID&, int, int) {}
void move_histories(Filterf_ID& r, int previous, int next) {
  move_all(r, previous, next);
}
void move_histories(Filterlongfir_ID& r, int previous, int next) {
  move_all(r, previous, next);
}

void inherit(Filter_ID& to, Filter_ID& from, int previous) {
  plain_inherit(to, from, previous);
}
void inherit(Filterf_ID& to, Filterf_ID& from, int previous) {
  inherit_history(to.memL.meminput, to.blen - 1, from.memL.meminput, from.blen - 1, previous);
  if (to.filtertype == JURN_IIR)
    inherit_history(to.memL.memoutput, to.alen - 1, from.memL.memoutput, from.alen - 1, previous);
}
void inherit(Filterlongfir_ID& to, Filterlongfir_ID& from, int previous) {
  plain_inherit(to, from, previous);
}

StoredHead stored_head(std::string_view data) {
  StoredHead head;
  if (data.size() >= sizeof head) std::memcpy(&head, data.data(), sizeof head);
  if (data.size() < sizeof head || head.magic != StoredHead().magic)
    throw Error(kInputError, "data: no stored filter, or one of a machine with another byte order");
  if (head.format != StoredHead().format)
    throw Error(kInputError, "data: has the format " + std::to_string(head.format) +
                                 "; this version reads " + std::to_string(StoredHead().format));
  return head;
}

}  // namespace jurn::records
