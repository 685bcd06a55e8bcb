// Where the past of a filter lies, for blocks of other lengths, other filters and views.
#include <algorithm>
#include <cstring>
#include <iterator>

#include "records.h"

namespace jurn::python {
namespace {

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

}  // namespace

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

}  // namespace jurn::python
