/* What Filter_ID and Filterlongfir_ID have in common: the reset of a channel's history, and the
 * FIR, IIR, cascade and moving-average kinds on their records, whose fields have the same names. */
#ifndef JURN_FILTER_KINDS_H
#define JURN_FILTER_KINDS_H

#include <string.h>

#include "../../../../common/ChanelConvert.h"
#include "../../../../common/internal.h"
#include "../../../../common/samples.h"
#include "../../Filter_control.h"
#include "../../OKA_Filter.h"

template <class Type, int count>
constexpr int count_of(const Type (&)[count]) {
  return count;
}

/** Clears a channel's history: of the cascade's states the first 750 entries, 250 sections. */
template <class History>
static inline void reset_history(History* mem) {
  const int cascade_entries = 750;
  memset(mem->meminput, 0, sizeof mem->meminput);
  memset(mem->memoutput, 0, sizeof mem->memoutput);
  memset(mem->mempx, 0, cascade_entries * sizeof(float));
  memset(mem->mempy, 0, cascade_entries * sizeof(float));
  mem->memi = 0;
  mem->memsumin = 0;
}

static inline int smaller_of(int x, int y) {
  return x < y ? x : y;
}

/** Whether the record is of a kind that Filter_ID has as well. */
template <class Record>
static inline bool is_plain_kind(const Record* mFilter) {
  const int kind = mFilter->filtertype;
  return (mFilter->chanel == JURN_STEREO && kind >= JURN_FIR && kind <= JURN_CASCADE) ||
         (mFilter->chanel == JURN_MONO && kind >= JURN_FIR && kind <= JURN_MOVING_AVERAGE);
}

static inline bool in_range(int x, int least, int most) {
  return x >= least && x <= most;
}

/** Whether the record's arrays, and 16 bits, hold the counts of the kind that it runs. */
template <class Record>
static inline bool counts_fit(const Record* mFilter) {
  const int kind = mFilter->filtertype, n = mFilter->n;
  if (kind == JURN_CASCADE) return (n != 2 && n != 4) || mFilter->ns <= JURN_COEFFICIENTS / (n + 1);
  const int room =
      kind == JURN_MOVING_AVERAGE ? count_of(mFilter->memL.meminput) : count_of(mFilter->b);
  return in_range(mFilter->blen, 1, smaller_of(room, 32767)) &&
         (kind != JURN_IIR || in_range(mFilter->alen, 1, count_of(mFilter->a)));
}

/** The longest block of such a record, in frames; 0 when none fits. */
template <class Record>
static inline int longest_block(const Record* mFilter) {
  const int kind = mFilter->filtertype;
  if (!is_plain_kind(mFilter) || !counts_fit(mFilter)) return 0;
  int frames = kind == JURN_CASCADE || mFilter->chanel == JURN_STEREO ? JURN_BLOCK : 32767;
  if (kind == JURN_FIR || kind == JURN_IIR)
    frames = smaller_of(frames, count_of(mFilter->memL.meminput) - mFilter->blen + 1);
  if (kind == JURN_IIR) frames = smaller_of(frames, JURN_HISTORY - mFilter->alen + 1);
  return frames;
}

/** Asserts in debug builds that a block of frames fits the record and the kind that it runs. */
template <class Record>
static inline void check_limits(const Record* mFilter, int frames) {
  const int kind = mFilter->filtertype;
  JURN_LIMIT(frames >= 0, "filter run: inLen must not be negative");
  if (kind == JURN_FIR || kind == JURN_IIR) {
    JURN_LIMIT(
        mFilter->blen >= 1 && mFilter->blen <= count_of(mFilter->b) && mFilter->blen <= 32767,
        "filter run: blen must be from 1 to 1250, of a long filter to 32767");
    JURN_LIMIT(mFilter->blen - 1 + frames <= count_of(mFilter->memL.meminput),
               "filter run: blen - 1 + frames must fit meminput");
    JURN_LIMIT(frames <= 32767, "filter run: a block must have at most 32767 frames");
  }
  if (kind == JURN_IIR) {
    JURN_LIMIT(mFilter->alen >= 1 && mFilter->alen <= count_of(mFilter->a),
               "filter run: alen must be from 1 to 1250");
    JURN_LIMIT(mFilter->alen - 1 + frames <= JURN_HISTORY,
               "filter run: alen - 1 + frames must be at most 2156");
  }
  if (kind == JURN_CASCADE) {
    JURN_LIMIT(frames <= JURN_BLOCK, "filter run: a cascade's block must have at most 1056 frames");
    const bool runs = mFilter->n == 2 || mFilter->n == 4;
    JURN_LIMIT(!runs || mFilter->ns <= JURN_COEFFICIENTS / (mFilter->n + 1),
               "filter run: ns (n + 1) must be at most 1250");
  }
  if (kind == JURN_MOVING_AVERAGE) {
    JURN_LIMIT(mFilter->blen >= 1 && mFilter->blen <= count_of(mFilter->memL.meminput) &&
                   mFilter->blen <= 32767,
               "filter run: an average's blen must be from 1 to 2156, of a long filter to 32767");
    JURN_LIMIT(mFilter->memL.memi >= 0 && mFilter->memL.memi < count_of(mFilter->memL.meminput),
               "filter run: memi must lie in meminput");
    JURN_LIMIT(frames <= 32767, "filter run: an average's block must have at most 32767 samples");
  }
  if (mFilter->chanel == JURN_STEREO)
    JURN_LIMIT(frames <= JURN_BLOCK, "filter run: a stereo block must have at most 1056 frames");
}

/** Runs the kinds -1, 0 and 1, and in mono 2; any other combination writes nothing. */
template <class Record>
static inline void run_plain_kind(Record* mFilter, const short* input, int inLen, short* output) {
  const int kind = mFilter->filtertype;
  const int chanel = mFilter->chanel;
  if (!is_plain_kind(mFilter)) return;
  const int frames = inLen / chanel;
  check_limits(mFilter, frames);
  const short blen = static_cast<short>(mFilter->blen);
  const short alen = static_cast<short>(mFilter->alen);
  const float* const b = mFilter->b;
  const float* const a = mFilter->a;
  auto& left = mFilter->memL;
  auto& right = mFilter->memR;

  if (chanel == JURN_MONO) {
    if (kind == JURN_FIR) {
      JURNfir(output, input, frames, left.meminput, b, blen);
    } else if (kind == JURN_IIR) {
      JURNiir(output, input, frames, left.memoutput, left.meminput, b, blen, a, alen);
    } else if (kind == JURN_CASCADE) {
      float x[JURN_BLOCK];
      JURN_to_float(x, input, frames);
      filterNOrNsSec(b, a, mFilter->n, mFilter->ns, x, frames, left.mempx, left.mempy);
      JURN_to_short(output, x, frames);
    } else {
      JURN_shuzhi2(output, input, frames, left.meminput, blen, &left.memsumin, &left.memi);
    }
  } else if (kind == JURN_CASCADE) {
    float xL[JURN_BLOCK];
    float xR[JURN_BLOCK];
    float* const x[2] = {xL, xR};
    float* const px[2] = {left.mempx, right.mempx};
    float* const py[2] = {left.mempy, right.mempy};
    JURN_split_to_float(xL, xR, input, frames);
    filterNOrNsSec_stereo(b, a, mFilter->n, mFilter->ns, x, frames, px, py);
    JURN_join_to_short(output, xL, xR, frames);
  } else {
    short xL[JURN_BLOCK];
    short xR[JURN_BLOCK];
    MORVAX_ChanelConvert(1, 2, inLen, input, nullptr, xL, xR);
    if (kind == JURN_FIR) {
      JURNfir(xL, xL, frames, left.meminput, b, blen);
      JURNfir(xR, xR, frames, right.meminput, b, blen);
    } else {
      short* const x[2] = {xL, xR};
      float* const past_outputs[2] = {left.memoutput, right.memoutput};
      short* const past_inputs[2] = {left.meminput, right.meminput};
      JURNiir_stereo(x, x, frames, past_outputs, past_inputs, b, blen, a, alen);
    }
    MORVAX_ChanelConvert(2, 1, frames, xL, xR, output, nullptr);
  }
}

#endif
