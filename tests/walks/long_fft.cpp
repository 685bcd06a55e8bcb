/* The FFT kinds of Filterlongfir_ID. The transform's own rounding has no naive counterpart, but the
 * result must depend neither on how the stream is cut into calls nor on the clone of the kernels:
 * one record takes each block in one call on the best clone, its twin takes it in pieces on the
 * baseline. The queues must hold one transform length together, after every call. */
#include "simd/clones.h"
#include "walk.h"

namespace {

struct Kind {
  int chanel, type;
};
const Kind kinds[] = {{2, -2}, {2, -7}, {2, -4}, {1, -5}, {1, -2}};

int input_channels(const Filterlongfir_ID* r) {
  return r->chanel == 2 && r->filtertype != -4 ? 2 : 1;
}
int output_channels(const Filterlongfir_ID* r) {
  return r->chanel == 2 || r->filtertype == -5 ? 2 : 1;
}

/** Runs a block on the baseline clone. */
void run_whole(Filterlongfir_ID* r, const short* in, int count, short* out) {
  const JURN_Clone best = JURN_clone_hook;
  JURN_clone_hook = JURN_CLONE_BASELINE;
  MORVAX_FilterlongfirRun_API(r, in, count, out);
  JURN_clone_hook = best;
}

/** The same in pieces that the block's length determines. */
void run_in_pieces(Filterlongfir_ID* r, const short* in, int count, short* out) {
  const int gain = r->filtertype == -5 ? 2 : 1;
  Random random(static_cast<unsigned>(count));
  for (int done = 0; done < count || count == 0;) {
    const int piece = std::min(count - done, r->chanel * random.in(0, 700));
    run_whole(r, in + done, piece, out + gain * done);
    done += piece;
    if (count == 0) break;
  }
}

void check_queues(const Filterlongfir_ID* r, bool balanced) {
  for (const Buf16_ID* queue : {&r->mBufin, &r->mBufout})
    require(queue->front >= 0 && queue->front < 105600 && queue->rear >= 0 && queue->rear < 105600,
            "front and rear lie in the ring");
  const int in = MORVAX_queuehave_API(&r->mBufin) / input_channels(r);
  require(in < r->fftN, "less than a block waits");
  if (balanced)
    require(in + MORVAX_queuehave_API(&r->mBufout) / output_channels(r) == r->fftN,
            "both queues hold one transform length");
}

}  // namespace

void walk_long_fft(Random& random) {
  Twins<Filterlongfir_ID> twins(random);
  // The queues lose their balance when the length or the output's channels change and they are not
  // primed again. Then the output may run dry, earlier in pieces than in one call.
  bool balanced = true, saved_balanced = true;
  const auto set_up = [&](bool other_taps) {
    twins.both([&](Filterlongfir_ID* r) {
      const int primed = r->membufrear, N = r->fftN, out_channels = output_channels(r);
      if (other_taps) {
        const Kind kind = kinds[random.in(0, 4)];
        r->chanel = kind.chanel;
        r->filtertype = kind.type;
        r->blen = random.in(1, random.in(0, 3) ? 300 : 8192);
        r->bRlen = random.one_in(2) ? r->blen : random.in(1, 300);
      }
      const int longer = std::max(r->blen, r->bRlen);
      random.taps(r->b, longer, random.one_in(10));
      random.taps(r->bR, longer);
      MORVAX_FilterlongfirCalcu_API_forFFT(r);
      balanced = r->membufrear != primed ||
                 (balanced && r->fftN == N && output_channels(r) == out_channels);
    });
  };
  MORVAX_FilterlongfirReset_API(twins[true]);
  set_up(true);
  for (int call = 0; call < 24 && !random.ended(); ++call) {
    switch (random.in(0, 9)) {
      case 0:
      case 1:
        set_up(false);
        break;
      case 2:
        set_up(true);
        break;
      case 3:
        for (bool library : {false, true}) MORVAX_FilterlongfirReset_API(twins[library]);
        set_up(random.one_in(2));
        break;
      case 4:
        twins.save();
        saved_balanced = balanced;
        break;
      case 5:
        if (twins.restore()) balanced = saved_balanced;
        break;
      case 6:
        twins.move();
        break;
      default: {
        const Filterlongfir_ID* const r = twins[true];
        const int count = r->chanel * random.in(0, random.one_in(2) ? 200 : 3000);
        const int out_count = r->filtertype == -5 ? 2 * count : count;
        const bool alike =
            runs_alike(random, count, out_count, [&](bool library, const short* in, short* out) {
              if (library)
                MORVAX_FilterlongfirRun_API(twins[true], in, count, out);
              else
                (balanced ? run_in_pieces : run_whole)(twins[false], in, count, out);
            });
        require(alike, "the outputs are equal, and nothing but them is written");
        check_queues(r, balanced);
      }
    }
  }
  Filterlongfir_ID *x = twins[true], *y = twins[false];
  require(std::memcmp(&x->mBufin, &y->mBufin, 2 * sizeof x->mBufin) == 0, "the queues are equal");
  // The work blocks, which start where a record's address lets them, differ between the twins.
  require(same(x->hLrfft, y->hLrfft, 2 * 65536), "the spectra are equal");
  require(same(x->cmemhLrfft, y->cmemhLrfft, 2 * 65536), "the saved spectra are equal");
  require(x->cmemcall == y->cmemcall, "the fades are equally far");
}
