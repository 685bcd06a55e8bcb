// The library's filters behind one interface, for blocks of a fixed length.
#pragma once

namespace web {

constexpr int kMaxChannels = 2;

/** A filter of the library. Samples have the int16 scale, also floats. */
class Filter {
 public:
  virtual ~Filter() = default;

  /** Filters one block of floats, each channel in an array of its own; `out` may be `in`. */
  virtual void run_floats(const float* const* in, float* const* out) = 0;

  /** Filters one block of interleaved samples. */
  virtual void run_samples(const short* in, short* out) = 0;

  /** Frames after which what came before no longer matters, as far as that is known. */
  virtual int memory() const = 0;

  /** Takes the past of a filter that it replaces, and says whether it fades from it by itself. */
  virtual bool take_over(Filter*) { return false; }
};

/** What follows from how many values the caller passed; the numbers are part of the interface. */
enum Kind { kFir = 0, kIir = 1, kSections = 2, kAverage = 3 };

/** Coefficients that a filter of this kind takes, of one array, or samples that it averages. */
int most_coefficients(Kind kind, bool int16);

/** Sections have three values each in `b` and `a`. An average has b[0] samples. */
Filter* make_filter(Kind kind, bool int16, int channels, int block, const double* b, int b_count,
                    const double* a, int a_count);

/** Plays a response that MORVAX_ConvolutionResponseCalcu_API prepared, and owns it. Null where
 * the memory does not suffice. */
Filter* make_convolution(int inputs, int outputs, int block, int taps, void* response);

/** Rounds to the nearest sample; beyond the range to its ends. */
short to_int16(float x);

}  // namespace web
