/* shuzhiFilter_ID against the reference: blocks and single samples, lengths that change with and
 * without a reset, which leaves the slot behind a ring that got shorter. */
#include "../reference.h"
#include "walk.h"

void walk_moving_sum(Random& random) {
  const auto reset = [](bool library, shuzhiFilter_ID* r) {
    library ? MORVAX_shuzhiFilterReset_API(r) : ref::reset(r);
  };
  const auto configure = [&](Twins<shuzhiFilter_ID>& twins) {
    const bool fresh = random.one_in(2);
    twins.both([&](shuzhiFilter_ID* r) {
      r->blen = random.count(1, 256);
      if (!fresh) return;
      random.signal(r->meminput, 256);
      r->memi = r->memsumin = 99;
      r->N_1 = kNaN;
    });
    for (bool library : {false, true}) {
      library ? MORVAX_shuzhiFilterCalcu_API(twins[library]) : ref::set_up(twins[library]);
      if (fresh) reset(library, twins[library]);
    }
  };
  walk<shuzhiFilter_ID>(
      random, 60, configure, reset,
      [&](Twins<shuzhiFilter_ID>& twins) {
        const short x = random.sample();
        require(MORVAX_shuzhiFilterRun_API_inonesampleoutsum(twins[true], x) ==
                    ref::push(twins[false], x),
                "the sums are equal");
        MORVAX_shuzhiFilterRun_API(twins[true], nullptr, -random.in(0, 5), nullptr);
      },
      [&](Twins<shuzhiFilter_ID>& twins) {
        const int len = random.one_in(200) ? 40000 : random.count(0, 900);
        return runs_alike(random, len, len, [&](bool library, const short* in, short* out) {
          library ? MORVAX_shuzhiFilterRun_API(twins[true], in, len, out)
                  : ref::run(twins[false], in, len, out);
        });
      });
}
