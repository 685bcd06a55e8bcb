/* Buf16_ID, an int16 FIFO: a fixed ring of samples in one plain record, for blocks of one length in
 * and of another out. A whole program:
 * @code
 *   #include <JURN/Delay_control.h>
 *
 *   static Buf16_ID queue;  // 206 KiB
 *
 *   int main(void) {
 *     short in[480] = {7}, out[256];
 *     MORVAX_BufresetAPI(&queue);
 *     MORVAX_putinAPI_loop(&queue, in, 480);
 *     while (MORVAX_queuehave_API(&queue) >= 256)
 *       MORVAX_putoutAPI_ForReframe_0_loop(&queue, out, 256);
 *     return !(out[0] == 7 && MORVAX_queuehave_API(&queue) == 480 - 256);
 *   }
 * @endcode */
#ifndef JURN_DELAY_CONTROL_H
#define JURN_DELAY_CONTROL_H

#include "../../common/JURN_api.h"

JURN_EXTERN_C_BEGIN

/** @defgroup fifo Int16 queue: Buf16_ID
 *
 * The rules of @ref objects hold here too.
 * @{ */

/** Slots of the ring. One slot stays free, so a queue holds at most one sample less. */
#define JURN_RING_SLOTS 105600

/**
 * The queue, 211,212 bytes. It is empty when front equals rear; (rear - front) modulo 105600
 * samples are queued, the k-th oldest in membuf[(front + 1 + k) mod 105600]. There is no other
 * state: code that moves front and rear by these rules works on the queue as well as the routines
 * below do.
 */
struct buffer {
  short membuf[JURN_RING_SLOTS]; /**< the ring */
  int id;                        /**< free for the owner; no routine reads it */
  int front;                     /**< slot just before the oldest sample */
  int rear;                      /**< slot of the newest sample */
};
typedef struct buffer Buf16_ID;

/**
 * Empties the queue and clears the ring, so that samples primed by moving rear are silence.
 *
 * @param queue any record
 *
 * State touched: id, front and rear become 0, all slots 0 (206 KiB).
 */
JURN_API void MORVAX_BufresetAPI(Buf16_ID* queue);

/**
 * Appends a block of samples.
 *
 * @param queue a valid queue
 * @param in len samples, outside the ring
 * @param len number of samples, 0 or more; what does not fit in the free slots is dropped
 *
 * State touched: membuf and rear. Wrong input: debug builds assert that len is not negative and
 * that front and rear lie in the ring.
 */
JURN_API void MORVAX_putinAPI_loop(Buf16_ID* queue, const short* in, int len);

/**
 * Appends the left channel of an interleaved stereo block: in[0], in[2], ...
 *
 * @param queue a valid queue
 * @param in len interleaved samples, outside the ring
 * @param len number of samples in both channels, 0 or more; len / 2 are queued, truncated; what
 *   does not fit in the free slots is dropped
 *
 * State touched: membuf and rear. Wrong input: debug builds assert that len is not negative and
 * that front and rear lie in the ring.
 */
JURN_API void MORVAX_putinAPI_loop_onlychannelLin(Buf16_ID* queue, const short* in, int len);

/**
 * Counts the queued samples.
 *
 * @param queue a valid queue
 * @return (rear - front) modulo 105600, from 0 to 105599
 *
 * State touched: none. Wrong input: front or rear outside the ring give a number without meaning.
 */
JURN_API int MORVAX_queuehave_API(const Buf16_ID* queue);

/**
 * Takes the oldest samples out of the queue.
 *
 * @param queue a valid queue
 * @param out receives len samples in queue order, outside the ring; when fewer are queued, the rest
 *   becomes 0
 * @param len number of samples wanted, 0 or more
 * @return the number of samples taken
 *
 * State touched: front; the samples stay in the ring until others take their slots. Wrong input:
 * debug builds assert that len is not negative and that front and rear lie in the ring.
 */
JURN_API int MORVAX_putoutAPI_ForReframe_0_loop(Buf16_ID* queue, short* out, int len);

/** @} */

JURN_EXTERN_C_END

#endif
