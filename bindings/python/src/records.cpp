#include "records.h"

#include <algorithm>
#include <cstring>
#include <string>

namespace jurn {
namespace {

template <class T, std::size_t count>
constexpr int size_of(const T (&)[count]) {
  return static_cast<int>(count);
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

template <class Record>
int most_taps(const Record& r) {
  return std::min(size_of(r.b), 32767);
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
      return r.chanel == 1 && r.blen >= 1 && r.blen <= std::min(size_of(r.memL.meminput), 32767) &&
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

/** A view of one array of both channels' states. */
template <class Memory, class T>
py::array channel_view(py::handle owner, const Memory* left, const T* first, int channels,
                       std::vector<py::ssize_t> shape, std::vector<py::ssize_t> strides) {
  (void)left;
  shape.insert(shape.begin(), channels);
  strides.insert(strides.begin(), static_cast<py::ssize_t>(sizeof(Memory)));
  return view(owner, first, std::move(shape), std::move(strides), true);
}

template <class Record>
py::dict plain_state(py::handle owner, Record& r, int previous) {
  py::dict result;
  auto* const left = &r.memL;
  const auto straight = [&](const char* name, auto* history, int past) {
    result[name] =
        channel_view(owner, left, history + previous, r.chanel, {past}, {sizeof *history});
  };
  const auto cascade = [&](const char* name, float* states) {
    result[name] = channel_view(owner, left, states + 1, r.chanel, {r.ns, r.n},
                                {static_cast<py::ssize_t>(sizeof(float)) * (r.n + 1),
                                 static_cast<py::ssize_t>(sizeof(float))});
  };
  switch (r.filtertype) {
    case JURN_IIR:
      straight("outputs", left->memoutput, r.alen - 1);
      [[fallthrough]];
    case JURN_FIR:
      straight("inputs", left->meminput, r.blen - 1);
      break;
    case JURN_CASCADE:
      cascade("inputs", left->mempx);
      cascade("outputs", left->mempy);
      break;
    default:
      result["ring"] = view(owner, left->meminput, {r.blen}, {sizeof(short)}, true);
  }
  return result;
}

[[noreturn]] void fail_parameter(const std::string& message) {
  throw py::type_error(message);
}

/** Writes the coefficients of the kinds -1, 0 and 1. */
template <class Record>
void plain_coefficients(Record& r, py::handle b, py::handle a, int most_b, int most_a) {
  if (a.is_none() != (r.filtertype != JURN_IIR))
    fail_parameter(a.is_none() ? "a direct-form IIR takes b and a" : "this kind takes no a");
  if constexpr (sizeof r.b[0] == sizeof(float)) {
    if (r.filtertype == JURN_CASCADE) {
      const Sections s = sections(b, JURN_COEFFICIENTS);
      store(s.b, r.b, "sos");
      store(s.a, r.a, "sos");
      r.n = s.order;
      r.blen = r.alen = static_cast<int>(s.b.size());
      r.ns = r.blen / (r.n + 1);
      r.Order = r.ns * r.n;
      return;
    }
  }
  const std::vector<double> numerator =
      numbers(b, r.filtertype == JURN_IIR ? "b" : "taps", 1, static_cast<std::size_t>(most_b));
  std::vector<double> denominator;
  if (r.filtertype == JURN_IIR) {
    denominator = numbers(a, "a", 1, static_cast<std::size_t>(most_a));
    check_leading(denominator[0], "a");
  }
  store(numerator, r.b, r.filtertype == JURN_IIR ? "b" : "taps");
  store(denominator, r.a, "a");
  r.blen = static_cast<int>(numerator.size());
  r.alen = static_cast<int>(denominator.size());
}

bool has_two_filters(const Filterlongfir_ID& r) {
  return r.filtertype <= JURN_LONG_TWO_FILTERS || (r.filtertype == JURN_LONG_FFT && r.chanel == 2);
}

bool is_fft(const Filterlongfir_ID& r) {
  return r.filtertype < JURN_FIR && r.filtertype != JURN_LONG_TWO_FILTERS &&
         r.filtertype != JURN_LONG_MONO_TO_STEREO;
}

/** Writes the taps of the kinds that only the long filter has; both sets become equally long. */
void set_taps(Filterlongfir_ID& r, py::handle taps, py::handle right) {
  if (!right.is_none() && !has_two_filters(r))
    fail_parameter("right: this kind has one set of taps");
  const std::size_t most = is_fft(r) ? JURN_FFT_MAX / 2 : 32767;
  std::vector<double> left_taps = numbers(taps, "taps", 1, most);
  std::vector<double> right_taps = right.is_none() ? left_taps : numbers(right, "right", 1, most);
  const std::size_t length = std::max(left_taps.size(), right_taps.size());
  left_taps.resize(length);
  right_taps.resize(length);
  store(left_taps, r.b, "taps");
  store(right_taps, r.bR, "right");
  r.blen = r.bRlen = static_cast<int>(length);
}

}  // namespace

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

py::dict state(py::handle owner, Filter_ID& r, int previous) {
  return plain_state(owner, r, previous);
}
py::dict state(py::handle owner, shuzhiFilter_ID& r, int) {
  py::dict result;
  result["ring"] = view(owner, r.meminput, {r.blen}, {sizeof(short)}, true);
  return result;
}
py::dict state(py::handle owner, Filterf_ID& r, int previous) {
  py::dict result;
  result["inputs"] = view(owner, r.memL.meminput + previous, {r.blen - 1}, {sizeof(float)}, true);
  if (r.filtertype == JURN_IIR)
    result["outputs"] =
        view(owner, r.memL.memoutput + previous, {r.alen - 1}, {sizeof(double)}, true);
  return result;
}
py::dict state(py::handle owner, Filterlongfir_ID& r, int previous) {
  if (r.filtertype >= JURN_FIR) return plain_state(owner, r, previous);
  py::dict result;
  if (is_fft(r)) {
    result["input_queue"] = view(owner, r.mBufin.membuf, {JURN_RING_SLOTS}, {sizeof(short)}, true);
    result["output_queue"] =
        view(owner, r.mBufout.membuf, {JURN_RING_SLOTS}, {sizeof(short)}, true);
  } else {
    result["inputs"] =
        channel_view(owner, &r.memL, r.memL.meminput + previous, 2, {r.blen - 1}, {sizeof(short)});
  }
  return result;
}

void set_coefficients(Filter_ID& r, py::handle b, py::handle a, py::handle right) {
  if (!right.is_none()) fail_parameter("right: this filter has one set of coefficients");
  plain_coefficients(r, b, a, JURN_COEFFICIENTS, JURN_COEFFICIENTS);
}
void set_coefficients(Filterf_ID& r, py::handle b, py::handle a, py::handle right) {
  if (!right.is_none()) fail_parameter("right: this filter has one set of coefficients");
  plain_coefficients(r, b, a, JURN_FLOAT_COEFFICIENTS, JURN_FLOAT_COEFFICIENTS);
}
void set_coefficients(Filterlongfir_ID& r, py::handle b, py::handle a, py::handle right) {
  if (r.filtertype < JURN_FIR) {
    if (!a.is_none()) fail_parameter("this kind takes no a");
    return set_taps(r, b, right);
  }
  if (!right.is_none()) fail_parameter("right: this kind has one set of coefficients");
  plain_coefficients(r, b, a, r.filtertype == JURN_FIR ? 32767 : JURN_COEFFICIENTS,
                     JURN_COEFFICIENTS);
}

bool fade_inside(Filter_ID&, py::handle, py::handle) {
  return false;
}
bool fade_inside(Filterf_ID&, py::handle, py::handle) {
  return false;
}
bool fade_inside(Filterlongfir_ID& r, py::handle taps, py::handle right) {
  if (r.filtertype >= JURN_FIR) return false;
  const bool in_time = !is_fft(r);
  if (!in_time && r.filtertype != JURN_LONG_FFT_MONO_TO_STEREO &&
      !(r.filtertype == JURN_LONG_FFT && r.chanel == 2))
    throw py::value_error(
        "this kind switches at once and does not fade; the kinds that do are -5, "
        "-3 and -6, and -2 in stereo");
  const auto next = std::make_unique<Filterlongfir_ID>(r);
  set_taps(*next, taps, right);
  if (next->blen != r.blen)
    throw py::value_error("taps: has " + std::to_string(next->blen) +
                          " numbers; a fade of this kind keeps the count, " +
                          std::to_string(r.blen));
  // A fade that no block has run yet goes on from where it began.
  const bool pending = r.cmemcall == 1;
  if (in_time && !pending) MORVAX_FilterlongfirCalcu_APItime(&r);
  std::copy_n(next->b, next->blen, r.b);
  std::copy_n(next->bR, next->blen, r.bR);
  if (in_time) return true;
  MORVAX_FilterlongfirCalcu_API_forFFT(&r);
  if (pending) {
    std::copy(std::begin(next->cmemhLrfft), std::end(next->cmemhLrfft), r.cmemhLrfft);
    std::copy(std::begin(next->cmemhRrfft), std::end(next->cmemhRrfft), r.cmemhRrfft);
  }
  return true;
}

void set_kind(Filterlongfir_ID& r, int kind, int channels) {
  if (channels != 1 && channels != 2)
    throw py::value_error("channels: " + std::to_string(channels) + "; takes 1 or 2");
  const bool mono_to_stereo =
      kind == JURN_LONG_FFT_MONO_TO_STEREO || kind == JURN_LONG_MONO_TO_STEREO;
  const bool stereo_only = kind == JURN_LONG_TWO_FILTERS || kind == JURN_LONG_FFT_LEFT_ONLY ||
                           kind == JURN_LONG_FFT_CROSSED;
  if (kind < JURN_LONG_FFT_CROSSED || kind >= JURN_IIR || (mono_to_stereo && channels == 2) ||
      (stereo_only && channels == 1))
    throw py::value_error("kind: " + std::to_string(kind) + " does not exist for " +
                          std::to_string(channels) + (channels == 1 ? " channel" : " channels"));
  r.filtertype = kind;
  r.chanel = channels;
}

}  // namespace jurn
