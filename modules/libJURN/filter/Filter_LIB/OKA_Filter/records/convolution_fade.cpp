/* Fades of a convolution, and what prepares them.
 *
 * A fade needs what the next response makes of the longer levels: the outputs of the step before
 * the current one, and the current one's sums so far. The fade alone computes up to two whole steps
 * for it. A prepared one has them in the stream's other set: from a level's next step on, the next
 * response's pieces are done there by the same schedule as the playing one's, so that the set is
 * complete when that step is over, and stays so. */
#include "../../../../common/exact_arithmetic.h"

#include <string.h>

#include "../../../../common/internal.h"
#include "convolution_work.h"

namespace {

using Stream = Convolution_stream_st;
using Response = Convolution_response_st;

enum { waits_for_step, in_first_step, complete };

bool is_prepared(const Stream* stream, const Response* next) {
  return stream->preparing &&
         memcmp(stream->prepared_for, next->fingerprint, sizeof stream->prepared_for) == 0;
}

/** Does the call's share of one level; returns how many calls the level still needs. */
int prepare_level(Stream* stream, const Response* next, int k, bool new_call) {
  const int calls = stream->plan.level[k].calls;
  const int over = stream->state[k].call > 0 ? stream->state[k].call : calls;
  int& stage = stream->prepared[k];
  if (new_call) {
    if (stage == waits_for_step && over == 1) stage = in_first_step;
    if (stage != waits_for_step) {
      ConvolutionWork work(stream, next, k, 1 - stream->set);
      work.work(work.work_before(over - 1), work.work_before(over), over);
    }
    if (stage == in_first_step && over == calls) stage = complete;
  }
  return stage == complete ? 0 : calls - over + (stage == waits_for_step ? calls : 0);
}

}  // namespace

int MORVAX_ConvolutionPrepareFade_API(ConvolutionStream_ID* mFilter,
                                      const ConvolutionResponse_ID* next) {
  JURN_check_convolution(mFilter, next);
  const bool goes_on = is_prepared(mFilter, next) && mFilter->unprepared <= 1;
  const bool new_call = !goes_on || mFilter->unprepared == 1;
  if (!goes_on) {
    mFilter->preparing = 1;
    memcpy(mFilter->prepared_for, next->fingerprint, sizeof mFilter->prepared_for);
    for (int& stage : mFilter->prepared) stage = waits_for_step;
  }
  mFilter->unprepared = 0;
  int needed = 0;
  for (int k = 1; k < mFilter->plan.levels; ++k) {
    const int more = prepare_level(mFilter, next, k, new_call);
    if (more > needed) needed = more;
  }
  return needed;
}

bool JURN_exchange_response(Stream* stream, const Response* next) {
  const int block = stream->shape.block;
  for (int i = 0; i < stream->shape.outputs; ++i)
    memcpy(reinterpret_cast<float*>(stream) + stream->previous + static_cast<size_t>(i) * block,
           JURN_filtered_block(stream, i), block * sizeof(float));
  bool ready = is_prepared(stream, next) && stream->unprepared == 0;
  for (int k = 1; k < stream->plan.levels; ++k) ready = ready && stream->prepared[k] == complete;
  stream->preparing = 0;
  if (ready) {
    stream->set = 1 - stream->set;
  } else {
    for (int k = 1; k < stream->plan.levels; ++k)
      ConvolutionWork(stream, next, k, stream->set).compute_previous_step();
  }
  return ready;
}

void JURN_mix_fade(Stream* stream) {
  const int block = stream->shape.block;
  if (block < 2) return;
  for (int output = 0; output < stream->shape.outputs; ++output) {
    const float* const previous =
        reinterpret_cast<float*>(stream) + stream->previous + static_cast<size_t>(output) * block;
    float* const y = JURN_filtered_block(stream, output);
    for (int i = 0; i < block; ++i) {
      const float w = static_cast<float>(i) / static_cast<float>(block - 1);
      y[i] = (1.0f - w) * previous[i] + w * y[i];
    }
  }
}
