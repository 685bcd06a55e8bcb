// The library's records as streams know them: one set of functions for every record.
#pragma once

#include <type_traits>

#include "Filter_control.h"
#include "design/filter_design.h"

namespace jurn::records {

/** What differs between the records. */
template <class Record>
struct Traits;

template <>
struct Traits<Filter_ID> {
  using Sample = short;  // of the result
  static constexpr unsigned char kTag = 1;
};
template <>
struct Traits<shuzhiFilter_ID> {
  using Sample = short;
  static constexpr unsigned char kTag = 2;
};
template <>
struct Traits<Filterf_ID> {
  using Sample = float;
  static constexpr unsigned char kTag = 3;
};
template <>
struct Traits<Filterlongfir_ID> {
  using Sample = short;
  static constexpr unsigned char kTag = 4;
};

int channels_in(const Filter_ID& r);
int channels_in(const shuzhiFilter_ID& r);
int channels_in(const Filterf_ID& r);
int channels_in(const Filterlongfir_ID& r);
int channels_out(const Filter_ID& r);
int channels_out(const shuzhiFilter_ID& r);
int channels_out(const Filterf_ID& r);
int channels_out(const Filterlongfir_ID& r);

/** Sets kind and coefficients; throws for more than the record takes, and for numbers beyond those
 * of its coefficients. */
void set_design(Filter_ID& r, const FilterDesign& design);
void set_design(Filterf_ID& r, const FilterDesign& design);

/** Frames that a block may have at most. */
int longest_block(const Filter_ID& r);
int longest_block(const shuzhiFilter_ID& r);
int longest_block(const Filterf_ID& r);
int longest_block(const Filterlongfir_ID& r);

/** Whether a run of the record stays within its arrays, whatever they hold. */
bool is_valid(const Filter_ID& r);
bool is_valid(const shuzhiFilter_ID& r);
bool is_valid(const Filterf_ID& r);
bool is_valid(const Filterlongfir_ID& r);

void reset(Filter_ID& r);
void reset(shuzhiFilter_ID& r);
void reset(Filterf_ID& r);
void reset(Filterlongfir_ID& r);

void run(Filter_ID& r, const short* in, int frames, short* out);
void run(shuzhiFilter_ID& r, const short* in, int frames, short* out);
void run(Filterf_ID& r, const float* in, int frames, float* out);
void run(Filterf_ID& r, const short* in, int frames, float* out);
void run(Filterlongfir_ID& r, const short* in, int frames, short* out);

/** Filters one block through both filters, and fades from the first to the second as the library
 * does; at most longest_fade frames. */
void fade(Filter_ID& from, Filter_ID& to, const short* in, int frames, short* out);
void fade(Filterf_ID& from, Filterf_ID& to, const float* in, int frames, float* out);
void fade(Filterf_ID& from, Filterf_ID& to, const short* in, int frames, float* out);
void fade(Filterlongfir_ID& from, Filterlongfir_ID& to, const short* in, int frames, short* out);

template <class Record>
int longest_fade(const Record& r) {
  return std::is_same_v<Record, Filterf_ID> ? JURN_FLOAT_HISTORY
                                            : JURN_FADE_VALUES / channels_out(r);
}

/** Moves the histories, which lie where the previous block's length has left them, to where a block
 * of `next` frames looks for them: so blocks of any lengths continue exactly. */
void move_histories(Filter_ID& r, int previous, int next);
void move_histories(shuzhiFilter_ID& r, int previous, int next);
void move_histories(Filterf_ID& r, int previous, int next);
void move_histories(Filterlongfir_ID& r, int previous, int next);

/** Gives a new filter of the same kind the past of another one after a block of `previous` frames;
 * the past lies then as after a block of 0 frames. */
void inherit(Filter_ID& to, Filter_ID& from, int previous);
void inherit(Filterf_ID& to, Filterf_ID& from, int previous);
void inherit(Filterlongfir_ID& to, Filterlongfir_ID& from, int previous);

/** Whether a long filter's kind works by FFT. */
bool is_fft(const Filterlongfir_ID& r);
/** Whether it has taps of its own for the right channel. */
bool has_two_filters(const Filterlongfir_ID& r);

/** Sets a kind of FIR; throws for a combination that the record does not know. */
void set_kind(Filterlongfir_ID& r, int kind, int channels);
/** Writes the taps of the kinds that only this record has, the left ones for both sides where
 * `right` is empty; both sets become equally long. Throws for what the kind cannot hold. */
void set_taps(Filterlongfir_ID& r, const std::vector<double>& left,
              const std::vector<double>& right);

/** Throws where the record's own fade cannot lead to `next` from as many `taps`. */
void check_fade(const Filterlongfir_ID& next, int taps);
/** Prepares that fade to the taps of `next`. A fade that no block has run yet goes on from where it
 * began. */
void fade_inside(Filterlongfir_ID& r, const Filterlongfir_ID& next);

}  // namespace jurn::records
