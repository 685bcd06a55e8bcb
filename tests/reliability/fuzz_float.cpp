/* Filterf_ID against the reference, outputs and whole record bit by bit. */
#include "fuzz.h"

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Bytes bytes(data, size);
  Twins<Filterf_ID> twins;
  const auto configure_float = [&](Filterf_ID* r) {
    r->filtertype = bytes.in(-1, 1);
    r->blen = bytes.in(1, 201);
    r->alen = bytes.in(1, 201);
    bytes.coefficients(r->b, r->blen);
    if (bytes.in(0, 1))
      bytes.seed().denominator(r->a, r->alen);
    else
      bytes.coefficients(r->a, r->alen);
  };
  twins.both(configure_float);
  int inLen = 64;
  for (int call = 0; call < 40 && !bytes.empty(); ++call) {
    const int action = bytes.in(0, 9);
    if (action == 0) {
      twins.both(configure_float);
    } else if (action == 1) {
      MORVAX_FilterfReset_API(twins.actual);
      ref::reset(twins.expected);
    } else if (action == 2) {
      twins.save();
    } else if (action == 3) {
      twins.restore();
    } else if (action == 4) {
      twins.move(bytes.in(0, 15));
    } else {
      if (bytes.in(0, 1)) inLen = bytes.in(0, 2512);
      const int past =
          std::max(twins.actual->blen, twins.actual->filtertype == 0 ? twins.actual->alen : 1) - 1;
      const int count = std::min(inLen, 2512 - past);
      const bool in_place = bytes.in(0, 1);
      if (action == 5) {
        const std::vector<short> input = bytes.signal<short>(std::min(count, 1056));
        twins.run<float>(
            input, static_cast<int>(input.size()), false, MORVAX_FilterfRun_API_shortin,
            [](Filterf_ID* r, const short* in, int n, float* out) { ref::run(r, in, n, out); });
      } else {
        std::vector<float> input = bytes.signal<float>(count);
        if (action == 6) bytes.coefficients(input.data(), count);  // any float may come in
        twins.run<float>(
            input, count, in_place, MORVAX_FilterfRun_API,
            [](Filterf_ID* r, const float* in, int n, float* out) { ref::run(r, in, n, out); });
      }
    }
    require(same_record(twins.actual, twins.expected), "the records are equal");
  }
  return 0;
}
