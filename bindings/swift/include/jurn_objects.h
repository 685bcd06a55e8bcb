/* The objects behind Swift's, as C functions. Checks of samples and lengths are Swift's matter.
 * What cannot be done gives null or 0, and a sentence in *error, which jurn_free() frees. */
#ifndef JURN_OBJECTS_H
#define JURN_OBJECTS_H

#include <stddef.h>
#include <stdint.h>

/* For Swift, what may be null. */
#if defined(__clang__)
#define JURN_NULLABLE _Nullable
#define JURN_NONNULL _Nonnull
#pragma clang assume_nonnull begin
#else
#define JURN_NULLABLE
#define JURN_NONNULL
#endif

#ifdef __cplusplus
extern "C" {
#endif

typedef struct JurnObject JurnObject;
typedef char* JURN_NULLABLE* JURN_NONNULL JurnError;

enum JurnKind {
  JURN_KIND_TAPS,
  JURN_KIND_DIRECT_FORM,
  JURN_KIND_SECTIONS,
  JURN_KIND_MEAN,  /**< b[0] is its length */
  JURN_KIND_ROUTES /**< b has the taps of all */
};

typedef struct {
  int kind;
  int delay;
  const double* JURN_NULLABLE b;
  size_t b_count;
  const double* JURN_NULLABLE a;
  size_t a_count;
  const int* JURN_NULLABLE routes; /**< input, output and taps of each */
  size_t route_numbers;
} JurnCoefficients;

void jurn_free(void* JURN_NULLABLE memory);

/** What an object is; the numbers belong to its bytes. */
enum JurnWhat { JURN_INT16_FILTER = 0, JURN_STREAM = 5, JURN_ROOM = 6 };

JurnObject* JURN_NULLABLE jurn_make_int16_filter(int channels, const JurnCoefficients* coefficients,
                                                 JurnError error);
JurnObject* JURN_NULLABLE jurn_make_stream(int what, int rate, int inputs, int outputs, int block,
                                           int longest, const JurnCoefficients* coefficients,
                                           JurnError error);
JurnObject* JURN_NULLABLE jurn_restore(int what, const uint8_t* state, size_t size,
                                       JurnError error);
void jurn_free_object(JurnObject* object);

int jurn_rate(const JurnObject* object);
int jurn_inputs(const JurnObject* object);
int jurn_outputs(const JurnObject* object);
int jurn_block(const JurnObject* object);
int jurn_tail(const JurnObject* object);
void jurn_reset(JurnObject* object);
/** Any thread. */
int jurn_change(JurnObject* object, const JurnCoefficients* to, int fade, JurnError error);
/** The state, to be freed by jurn_free(). */
uint8_t* JURN_NULLABLE jurn_state(JurnObject* object, size_t* size, JurnError error);

void jurn_run_int16(JurnObject* object, const int16_t* in, int frames, int16_t* out);
void jurn_run_float(JurnObject* object, const float* in, int frames, float* out);
/** Each channel in an array of its own. */
void jurn_run_planar(JurnObject* object, const float* JURN_NONNULL const* JURN_NONNULL in,
                     int frames, float* JURN_NONNULL const* JURN_NONNULL out);

/* Designs that are given back are checked, have their arrays behind them in one piece of memory,
 * and are to be freed by jurn_free(). */

JurnCoefficients* JURN_NULLABLE jurn_check(const JurnCoefficients* design, JurnError error);
/** A coefficient file's bytes. */
JurnCoefficients* JURN_NULLABLE jurn_read(const char* name, const uint8_t* content, size_t size,
                                          int rate, JurnError error);
/** Filters in words, one in a line. */
JurnCoefficients* JURN_NULLABLE jurn_words(const char* lines, int rate, JurnError error);

typedef struct {
  int stable;
  double pole_radius;
  double expected_error;
  int tail;
  char* JURN_NULLABLE
      notices; /**< one in a line, behind '!' for a warning; to be freed by jurn_free() */
} JurnFindings;

/** What runs of it, in 16 bits or in double. */
JurnCoefficients* JURN_NULLABLE jurn_prepare(const JurnCoefficients* design, int rate, int in_int16,
                                             JurnFindings* findings, JurnError error);
/** Real part, imaginary part and delay in frames at a frequency in radians a frame. */
int jurn_response(const JurnCoefficients* design, double frequency, double* three, JurnError error);
/** The largest gain, as a factor. */
int jurn_peak(const JurnCoefficients* design, double* gain, JurnError error);
char* JURN_NULLABLE jurn_description(const JurnCoefficients* design, JurnError error);

#ifdef __cplusplus
}
#endif

#if defined(__clang__)
#pragma clang assume_nonnull end
#endif

#endif
