/* shuzhiFilter_ID against the reference, outputs and whole record bit by bit. */
#include "fuzz.h"

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Bytes bytes(data, size);
  Twins<shuzhiFilter_ID> twins;
  const auto set_up = [&](bool resets) {
    twins.both([&](shuzhiFilter_ID* r) { r->blen = bytes.in(1, 256); });
    MORVAX_shuzhiFilterCalcu_API(twins.actual);
    ref::set_up(twins.expected);
    if (!resets) return;
    MORVAX_shuzhiFilterReset_API(twins.actual);
    ref::reset(twins.expected);
  };
  set_up(true);
  for (int call = 0; call < 60 && !bytes.empty(); ++call) {
    switch (bytes.in(0, 7)) {
      case 0:
        set_up(bytes.in(0, 1));
        break;
      case 1:
        twins.save();
        break;
      case 2:
        twins.restore();
        break;
      case 3:
        twins.move(bytes.in(0, 15));
        break;
      case 4: {
        const short sample = bytes.bits<short>();
        const int sum = MORVAX_shuzhiFilterRun_API_inonesampleoutsum(twins.actual, sample);
        require(sum == ref::push(twins.expected, sample), "the sums are equal");
        break;
      }
      default: {
        const int count = bytes.in(0, 900);
        const bool in_place = bytes.in(0, 1);
        twins.run<short>(bytes.signal<short>(count), count, in_place, MORVAX_shuzhiFilterRun_API,
                         [](shuzhiFilter_ID* r, const short* in, int n, short* out) {
                           ref::run(r, in, n, out);
                         });
      }
    }
    require(std::memcmp(twins.actual, twins.expected, sizeof(shuzhiFilter_ID)) == 0,
            "the records are equal");
  }
  return 0;
}
