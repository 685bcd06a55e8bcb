// One filter that runs: what was prepared, with a past of its own.
#pragma once

#include <memory>

#include "design/prepare.h"
#include "streams/live_filter.h"
#include "streams/routing.h"

namespace jurn {

class ConvolutionResponse;
class StateBytes;

/** What the samples of a stream are like. */
struct Format {
  int rate = 0;
  int inputs = 1, outputs = 1;
  /** What filters that work in blocks take: every call is a multiple of so many frames. */
  int block = 256;
  /** The largest value of float and double samples, for what runs in 16 bits. Int16 samples have
   * the int16 scale, as floats of files do. */
  double full_scale = 32768.0;
  /** Frames of past input that a stream keeps at least for filters that come later, and as many as
   * its first one remembers. 0 for streams whose filter never changes. */
  int history = 16384;
  /** Whether every call has to be done in time. Otherwise a fade of convolutions is that of the
   * very next block, however much is to be computed for it. */
  bool is_live = true;
};

/** A history for streams of impulse responses: 5.5 seconds at 48 kHz. */
constexpr int kConvolutionHistory = 1 << 18;

inline bool operator==(const Format& x, const Format& y) {
  return x.rate == y.rate && x.inputs == y.inputs && x.outputs == y.outputs && x.block == y.block &&
         x.full_scale == y.full_scale && x.history == y.history && x.is_live == y.is_live;
}
inline bool operator!=(const Format& x, const Format& y) {
  return !(x == y);
}

/** Frames that are filtered at once, few enough for the first cache. */
constexpr int kPiece = 512;
/** The same in whole blocks, or one block where that is longer. */
inline int piece_of(const Format& format) {
  return format.block < kPiece ? kPiece / format.block * format.block : format.block;
}

/**
 * A filter in a format. Its constructor allocates, nothing else does. One thread at a time.
 *
 * Every way to run it gives the same: the samples as doubles through the filter, and each result
 * rounded once to the type of the output, to int16 to the nearest, ties to even, and limited.
 */
class Voice {
 public:
  enum class Kind { kWire, kSections, kFir, kDirectForm, kConvolution, kInt16, kMean, kSetup };

  Voice(Kind kind, const Format& format) : kind_(kind), format_(format) {}
  virtual ~Voice() = default;
  Voice(const Voice&) = delete;
  Voice& operator=(const Voice&) = delete;

  Kind kind() const { return kind_; }
  const Format& format() const { return format_; }

  /** Filters frames, each channel in an array of its own; out[c] may be in[c]. Multiples of block()
   * frames. */
  virtual void run(const double* const* in, int frames, double* const* out) = 0;

  /** Filters interleaved frames, where the kind does that faster than by doubles: else false, and
   * nothing was done. `out` may be `in`. */
  virtual bool run(const short* in, int frames, short* out);
  virtual bool run(const float* in, int frames, float* out);
  virtual bool run(const double* in, int frames, double* out);

  /** Takes frames of the past, whose result nobody needs: `spare` may be overwritten. Multiples of
   * block() frames. */
  virtual void hear(const double* const* in, int frames, double* const* spare) {
    run(in, frames, spare);
  }

  /** Returns to silence. */
  virtual void reset() = 0;

  /** Frames that every call is a multiple of. */
  virtual int block() const { return 1; }

  /** Frames that the filter rings on after its input, as far as that is heard. */
  virtual int tail() const = 0;

  /** Frames of past input after which it stands where it would had it run all along. */
  virtual int memory() const = 0;

  /** Takes the past of a voice that runs: false where these kinds cannot, and memory() frames of
   * past input have to be run instead. */
  virtual bool follow(const Voice&) { return false; }

  /** Takes the place of a voice, whose past it continues and from which it fades by itself: false
   * where these kinds cannot. The other one is of no use afterwards. */
  virtual bool replace(Voice*) { return false; }

  /** Whether it took a place and the fade to it is still to come. Only when that is over can
   * another voice take its place. */
  virtual bool changing() const { return false; }

  /** What run() would put out for the first `frames` frames of a block: nothing changes.
   * Allocates. */
  virtual void preview(const double* const* in, int frames, double* const* out);

  /** A second one with the same past; null of a kind without copies. Allocates. */
  virtual std::unique_ptr<Voice> copy() const { return nullptr; }

  /** Writes its kind, what makes another one, and the past: for restored_voice(). False for a kind
   * whose streams cannot be stored. Allocates. */
  virtual bool store(StateBytes*) { return false; }
  /** Passes the past, to bytes or from those of a voice made alike. */
  virtual void pass_state(StateBytes*) {}

  /** Whether a filter of 16 bits runs with numbers that are infinite or none. */
  virtual bool is_lost() const { return false; }

  /** Interleaved samples since the beginning or the reset that were infinite or no number; they
   * count as 0. */
  virtual unsigned long long bad_samples() const { return 0; }

 private:
  Kind kind_;
  Format format_;
};

/** Passes the input on: output c is input c, or the last input. */
std::unique_ptr<Voice> make_wire(const Format& format);

/** The filter of what was prepared, on each channel. */
std::unique_ptr<Voice> make_voice(const Prepared& prepared, const Format& format);

/** The mean of `length` samples of each channel; with kInt16 as the device forms it, of at most
 * kMaxAverage. */
std::unique_ptr<Voice> make_mean(int length, Precision precision, const Format& format);

/**
 * Convolution of the format's inputs and outputs with a matrix of responses, none of which has more
 * than `longest` taps, which with the block set the partitions and so the bits. Voices of one
 * length and format replace each other within a block.
 */
std::unique_ptr<Voice> make_convolution(const Routing& routing, int longest, Precision precision,
                                        const Format& format);
/** The same with a response that is ready, for the format's shape and `longest`. */
std::unique_ptr<Voice> make_convolution(ConvolutionResponse response, int longest,
                                        Precision precision, const Format& format);

/** What store() of a voice wrote in this format. */
std::unique_ptr<Voice> restored_voice(StateBytes* from, const Format& format);
/** The same behind the kind, of a convolution. */
std::unique_ptr<Voice> restored_convolution(StateBytes* from, const Format& format);

}  // namespace jurn
