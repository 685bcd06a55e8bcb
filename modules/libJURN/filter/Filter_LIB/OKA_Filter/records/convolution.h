/* What the sources of the convolution objects share.
 *
 * Each level of a plan is an overlap-save convolution of its own. A step of level k takes the last
 * N samples of every input as its window, and gives `hop` frames. Level 0 steps with every call,
 * on a window that ends with the call's own block. The others step every `calls` calls, on a
 * window that ends before the current call, spread their work over these calls and put it out in
 * the next ones; so their first tap lies two hops back.
 *
 * A partition has phases x hop taps, as many as a window has room for. So partition i meets the
 * window of i x phases steps ago: the windows of one phase, every phases-th one, are stored side by
 * side, newest first, in a ring.
 *
 * kernels/convolution_kernels.h says how spectra lie in memory. Routes with the same taps share
 * theirs. Where a step's work is spread over calls, transforms run step by step, their spectra are
 * put into chunks put_chunks at a time, and a chunk of more than most_products products of window
 * and partition is cut into slices. Every level's work has a cost, of which each call takes its
 * share.
 */
#ifndef JURN_CONVOLUTION_H
#define JURN_CONVOLUTION_H

#include <stddef.h>

#include "../../../../common/DFTs.h"
#include "../../Convolution_control.h"
#include "../kernels/convolution_kernels.h"

enum { most_products = 16, put_chunks = 4 };

struct ConvolutionLevel {
  int N;          /* transform length */
  int hop;        /* frames of a step */
  int calls;      /* calls of a step */
  int phases;     /* hops of a partition */
  int first;      /* the first tap */
  int partitions; /* of the longest route */
  int slots;      /* windows kept of each phase: the partitions', and one for the last step's */
  int share;      /* calls whose shares of the work are done in one of them: a power of two */
  int transform_cost, put_cost,
      product_cost; /* of a transform, of putting its spectrum into chunks,
                     * of a product of one chunk; see fast_convolution.h */
};

struct ConvolutionPlan {
  int levels;
  struct ConvolutionLevel level[most_levels];
};

/** Chooses levels for a valid shape. */
void JURN_plan_convolution(struct ConvolutionPlan* plan, const Convolution_shape* shape);

/** A response's step of a level, whose work the calls of the step share. */
struct ConvolutionShares {
  int products;       /* in one chunk: partitions of all routes */
  int slices;         /* that a chunk's products are cut into */
  int slice_cost;     /* about */
  int step_cost;      /* of every input's transform, all slices, every output's transform */
  unsigned call_cost; /* of a call's share, in sixteenths, rounded up */
};

/** Fills in the rest where `products` is known. */
void JURN_share_step(struct ConvolutionShares* shares, const struct ConvolutionLevel* level,
                     const Convolution_shape* shape);

/** Partitions of a level that a route of blen taps has. */
int JURN_partitions(const struct ConvolutionPlan* plan, int level, int blen);

#ifdef JURN_CLONE_HOOK
/* What the runs of a thread have cost so far, in the same unit; only tests and benchmarks have it.
 */
extern thread_local long long JURN_convolution_work;
#endif

/** The start of a response's memory. All places are in floats from there. No field is larger than a
 * float, so that the memory needs a float's alignment alone. */
struct Convolution_response_st {
  int ready;
  Convolution_shape shape;
  struct ConvolutionPlan plan;
  int count;
  int first_route[JURN_CONVOLUTION_CHANNELS + 1]; /* routes are sorted by output */
  struct ConvolutionShares shares[most_levels];
  unsigned fingerprint[2]; /* of the routes and their taps */
  unsigned routes, work;
  unsigned table; /* of all levels' transforms */
};

struct ConvolutionState {
  int call;   /* calls of the step that are over */
  int phase;  /* of the current step */
  int newest; /* slot of the current step's window */
  int side;   /* half of outputs that is put out */
};

/** The start of a stream's memory. All places are in floats from there. */
struct Convolution_stream_st {
  int ready;
  Convolution_shape shape;
  struct ConvolutionPlan plan;
  int past_frames; /* frames of the past that are kept: a multiple of the block */
  int now;         /* where the next block goes */
  struct ConvolutionState state[most_levels];
  int set;                       /* of sums and outputs: the current one */
  int preparing;                 /* the other set is a fade's that is being prepared */
  unsigned prepared_for[2];      /* the next response's fingerprint */
  int prepared[most_levels];     /* how far, see convolution_fade.cpp */
  int unprepared;                /* calls since the last one that was prepared, at most 2 */
  unsigned past;                 /* inputs x past_frames */
  unsigned windows[most_levels]; /* inputs x chunks x phases x slots */
  unsigned sums[most_levels];    /* sets x outputs x N; one set in level 0, two above */
  unsigned outputs[most_levels]; /* sets x 2 x outputs x N/2, levels above 0 */
  unsigned previous;             /* outputs x block: the previous response's in a fade */
  unsigned floats;
};

#endif
