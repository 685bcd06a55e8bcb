/* Filterlongfir_ID, all kinds but the FFT ones, against the reference: fades, changed taps and
 * lengths, other kinds in between. The state that one kind leaves is what the next one finds. */
#include "../reference.h"
#include "walk.h"

namespace {

void configure_two_filters(Random& random, Filterlongfir_ID* r, int taps) {
  r->chanel = random.in(1, 2);
  r->filtertype = r->chanel == 2 ? -3 : -6;
  r->blen = random.count(1, taps);
  r->bRlen = random.one_in(2) ? r->blen : random.count(1, taps);
  const bool wild = random.one_in(10);
  random.taps(r->b, r->blen, wild);
  random.taps(r->bR, std::max(r->blen, r->bRlen), wild);
}

int longest_call(const Filterlongfir_ID* r) {
  if (r->filtertype >= -1) return longest_block(r);
  const int past = std::max({r->blen, r->bRlen, r->cmemcall == 1 ? r->cmemblen : 1}) - 1;
  return r->chanel * std::min(1056, static_cast<int>(std::size(r->memL.meminput)) - past);
}

}  // namespace

void walk_long_time(Random& random) {
  const auto configured = [&](Filterlongfir_ID* r) {
    const int taps = random.one_in(30) ? 32767 : random.one_of({4, 300, 2000});
    if (random.one_in(2)) {
      fill_rubbish(random, r);
      random.signal(r->mBufin.membuf, 105600);
      random.signal(r->cmeminputL, static_cast<int>(std::size(r->cmeminputL)));
      random.states(r->hLrfft, 65536);
      random.states(r->cmemhRrfft, 65536);
      r->cmemblen = random.in(1, 300);
      r->cmemcall = random.in(0, 1);
      r->cmemfftN = r->membufrear = 77;
    }
    random.one_in(2) ? configure(random, r, taps) : configure_two_filters(random, r, taps);
    if (random.one_in(20)) r->chanel = random.one_of({0, 3, 3 - r->chanel});
    if (random.one_in(20)) r->filtertype = random.one_of({-9, -8, 3, 4});
  };
  walk<Filterlongfir_ID>(
      random, 24, [&](Twins<Filterlongfir_ID>& twins) { twins.both(configured); },
      [](bool library, Filterlongfir_ID* r) {
        library ? MORVAX_FilterlongfirReset_API(r) : ref::reset(r);
      },
      [&](Twins<Filterlongfir_ID>& twins) {
        Filterlongfir_ID* const r = twins[true];
        const int blen = r->blen;
        if (blen < 1) return;
        for (int length : {random.one_of({blen, blen, blen, 0, -3, -1056, -2000}), blen}) {
          r->blen = twins[false]->blen = length;
          for (int times = random.in(1, 2); times > 0; --times) {
            MORVAX_FilterlongfirCalcu_APItime(r);
            ref::save_for_fade(twins[false]);
          }
        }
        if (r->filtertype > -1) return;
        const bool left = random.one_in(2), right = random.one_in(2);
        if (left) random.taps(r->b, blen);
        if (right) random.taps(r->bR, blen);
        std::memcpy(twins[false]->b, r->b, sizeof r->b);
        std::memcpy(twins[false]->bR, r->bR, sizeof r->bR);
      },
      [&](Twins<Filterlongfir_ID>& twins) {
        const int type = twins[true]->filtertype;
        const int inLen = random.count(0, longest_call(twins[true]));
        return runs_alike(random, inLen, type == -6 ? 2 * inLen : inLen,
                          [&](bool library, const short* in, short* out) {
                            library ? MORVAX_FilterlongfirRun_API(twins[true], in, inLen, out)
                                    : ref::run(twins[false], in, inLen, out);
                          });
      });
}
