/* What users meet whose build, record or calls differ from the benchmark's own: other optimisation
 * levels and compilers, an earlier version, other places of the record, short calls, many records.
 *
 * Other builds come as shared libraries: JURN_LIBRARIES holds name=path;name=path ... */
#include <dlfcn.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <sstream>

#include "DFTs.h"
#include "Filter_control.h"
#include "fast_convolution.h"
#include "groups.h"

namespace {

/** The functions that the kernels of this file use, of one build. */
struct Library {
  std::string name;
  decltype(&MORVAX_FilterReset_API) reset;
  decltype(&MORVAX_FilterRun_API) run;
  decltype(&MORVAX_FilterfRun_API) run_float;
  decltype(&MORVAX_FilterlongfirReset_API) long_reset;
  decltype(&MORVAX_FilterlongfirCalcu_API_forFFT) long_set_up;
  decltype(&MORVAX_FilterlongfirRun_API) long_run;
  decltype(&MORVAX_KLOV_RealFFT_Init) fft_init;
  decltype(&MORVAX_KLOV_RealFFT_Run2) fft_forward;
  decltype(&MORVAX_KLOV_InverseRealFFT_Run2) fft_inverse;
  decltype(&MORVAX_rfftmut2) fft_product;
};

const Library kOwn = {"own",
                      MORVAX_FilterReset_API,
                      MORVAX_FilterRun_API,
                      MORVAX_FilterfRun_API,
                      MORVAX_FilterlongfirReset_API,
                      MORVAX_FilterlongfirCalcu_API_forFFT,
                      MORVAX_FilterlongfirRun_API,
                      MORVAX_KLOV_RealFFT_Init,
                      MORVAX_KLOV_RealFFT_Run2,
                      MORVAX_KLOV_InverseRealFFT_Run2,
                      MORVAX_rfftmut2};

template <class Function>
void find(void* library, const char* name, Function* function) {
  *function = reinterpret_cast<Function>(dlsym(library, name));
  if (!*function) {
    std::fprintf(stderr, "%s\n", dlerror());
    std::exit(1);
  }
}

std::vector<Library> other_builds() {
  std::vector<Library> builds;
  const char* const list = std::getenv("JURN_LIBRARIES");
  std::istringstream entries(list ? list : "");
  for (std::string entry; std::getline(entries, entry, ';');) {
    const size_t equals = entry.find('=');
    void* const library = dlopen(entry.substr(equals + 1).c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!library) {
      std::fprintf(stderr, "%s\n", dlerror());
      std::exit(1);
    }
    Library l;
    l.name = entry.substr(0, equals);
    find(library, "MORVAX_FilterReset_API", &l.reset);
    find(library, "MORVAX_FilterRun_API", &l.run);
    find(library, "MORVAX_FilterfRun_API", &l.run_float);
    find(library, "MORVAX_FilterlongfirReset_API", &l.long_reset);
    find(library, "MORVAX_FilterlongfirCalcu_API_forFFT", &l.long_set_up);
    find(library, "MORVAX_FilterlongfirRun_API", &l.long_run);
    find(library, "MORVAX_KLOV_RealFFT_Init", &l.fft_init);
    find(library, "MORVAX_KLOV_RealFFT_Run2", &l.fft_forward);
    find(library, "MORVAX_KLOV_InverseRealFFT_Run2", &l.fft_inverse);
    find(library, "MORVAX_rfftmut2", &l.fft_product);
    builds.push_back(l);
  }
  return builds;
}

/** A record that starts `offset` bytes behind a multiple of 4096, cleared. */
template <class Record>
std::shared_ptr<Record> record_at(size_t offset) {
  char* const memory =
      static_cast<char*>(std::aligned_alloc(4096, (sizeof(Record) + offset + 4095) / 4096 * 4096));
  std::fill_n(memory, sizeof(Record) + offset, char{});
  return std::shared_ptr<Record>(reinterpret_cast<Record*>(memory + offset),
                                 [memory](Record*) { std::free(memory); });
}

struct Kind {
  const char* name;
  int type;  // of Filter_ID; 10 and 11: FIR and IIR of Filterf_ID; -2: FFT
  int chanel;
  int count;  // taps, coefficients, sections or samples averaged
};

const Kind kKinds[] = {{"FIR, 32 taps", -1, 1, 32},
                       {"FIR, 512 taps", -1, 1, 512},
                       {"IIR, order 2", 0, 1, 3},
                       {"IIR, order 8", 0, 1, 9},
                       {"cascade, 1 section", 1, 1, 1},
                       {"cascade, 4 sections", 1, 1, 4},
                       {"cascade, 8 sections", 1, 1, 8},
                       {"cascade, 16 sections", 1, 1, 16},
                       {"cascade, 2 sections, stereo", 1, 2, 2},
                       {"moving mean, 100 samples", 2, 1, 100},
                       {"float FIR, 32 taps", 10, 1, 32},
                       {"float IIR, order 4", 11, 1, 5},
                       {"FFT kind -2, stereo, 512 taps", -2, 2, 512},
                       {"FFT kind -2, stereo, 2048 taps", -2, 2, 2048},
                       {"FFT kind -2, stereo, 8192 taps", -2, 2, 8192}};

std::shared_ptr<Filter_ID> filter_of(const Library& l, const Kind& kind) {
  auto filter = record_at<Filter_ID>(16);
  filter->chanel = kind.chanel;
  filter->filtertype = kind.type;
  filter->blen = filter->alen = kind.count;
  filter->n = 2;
  filter->ns = kind.count;
  for (int i = 0; i < JURN_COEFFICIENTS; ++i) {
    const float section_b[] = {0.9f, -0.3f, 0.1f}, section_a[] = {1.0f, -0.5f, 0.2f};
    filter->b[i] = kind.type == 1 ? section_b[i % 3] : 0.5f / static_cast<float>(kind.count);
    filter->a[i] = kind.type == 1 ? section_a[i % 3] : 0.3f / static_cast<float>(kind.count);
  }
  l.reset(filter.get());
  return filter;
}

/** One kind in blocks of `frames`, or of whole hops of the FFT kinds from 480 on, with the record
 * at `offset` from a page. */
Side side_of(const Library& l, const std::string& name, const Kind& kind, int frames,
             size_t offset = 16) {
  struct Work {
    std::shared_ptr<void> record;
    std::vector<short> input, output;
    std::vector<float> floats, results;
  };
  auto w = std::make_shared<Work>();
  if (kind.type == -2) {
    auto filter = record_at<Filterlongfir_ID>(offset);
    filter->chanel = kind.chanel;
    filter->filtertype = kind.type;
    filter->blen = filter->bRlen = kind.count;
    filter->b[kind.count / 2] = filter->bR[kind.count / 2] = 1.0f;
    l.long_reset(filter.get());
    l.long_set_up(filter.get());
    const int hop = filter->offset / filter->chanel;
    if (frames >= 480) frames = (frames + hop - 1) / hop * hop;
    w->record = filter;
  } else if (kind.type >= 10) {
    auto filter = record_at<Filterf_ID>(offset);
    filter->filtertype = kind.type == 10 ? -1 : 0;
    filter->blen = filter->alen = kind.count;
    for (int i = 0; i < kind.count; ++i) {
      filter->b[i] = 0.5 / kind.count;
      filter->a[i] = 0.3 / kind.count;
    }
    w->record = filter;
  } else {
    w->record = filter_of(l, kind);
  }
  const int values = frames * kind.chanel;
  w->input = noise<short>(values, 10000.0);
  w->output.resize(values);
  w->floats = noise<float>(values, 10000.0);
  w->results.resize(values);
  return {name, static_cast<double>(frames), [l, w, kind, values] {
            if (kind.type == -2)
              l.long_run(static_cast<Filterlongfir_ID*>(w->record.get()), w->input.data(), values,
                         w->output.data());
            else if (kind.type >= 10)
              l.run_float(static_cast<Filterf_ID*>(w->record.get()), w->floats.data(), values,
                          w->results.data());
            else
              l.run(static_cast<Filter_ID*>(w->record.get()), w->input.data(), values,
                    w->output.data());
          }};
}

/** Forward, product and inverse, on taps that only delay, in arrays at multiples of 64 bytes. */
Side chain(const Library& l, const std::string& name, int N, bool fused) {
  struct Work {
    std::shared_ptr<RealFFT_ID> fft = record_at<RealFFT_ID>(16);
    std::shared_ptr<float[JURN_FFT_MAX]> h, x, y;
  };
  auto w = std::make_shared<Work>();
  for (auto* array : {&w->h, &w->x, &w->y}) {
    using Block = std::array<float, JURN_FFT_MAX>;
    const auto block = record_at<Block>(0);
    *array = std::shared_ptr<float[JURN_FFT_MAX]>(block, block->data());
  }
  const std::vector<float> samples = noise<float>(N, 10000.0);
  std::copy(samples.begin(), samples.end(), w->x.get());
  w->h[3] = 1.0f;
  const short length = static_cast<short>(N);
  l.fft_init(w->fft.get(), length);
  l.fft_forward(w->fft.get(), w->h.get(), length);
  return {name, 1.0, [l, w, length, fused] {
            const RealFFT_ID* const fft = w->fft.get();
            l.fft_forward(fft, w->x.get(), length);
            if (fused) {
              JURN_inverse_product(fft, w->y.get(), w->h.get(), w->x.get());
            } else {
              l.fft_product(w->y.get(), w->h.get(), w->x.get(), length);
              l.fft_inverse(fft, w->y.get(), length);
            }
            std::swap(w->x, w->y);
          }};
}

/** `count` mono cascades in one call, or one record in the usual one. */
Side records(const std::string& name, const Kind& kind, int count) {
  constexpr int frames = 480;
  struct Work {
    std::vector<std::shared_ptr<Filter_ID>> filters;
    std::vector<std::vector<short>> blocks;
    std::vector<Filter_ID*> list;
    std::vector<const short*> input;
    std::vector<short*> output;
  };
  auto w = std::make_shared<Work>();
  for (int i = 0; i < count; ++i) {
    w->filters.push_back(filter_of(kOwn, kind));
    w->list.push_back(w->filters.back().get());
    w->blocks.push_back(noise<short>(frames, 10000.0));
    w->blocks.emplace_back(frames);
  }
  for (int i = 0; i < count; ++i) {
    w->input.push_back(w->blocks[2 * i].data());
    w->output.push_back(w->blocks[2 * i + 1].data());
  }
  return {name, frames, [w, count] {
            MORVAX_FilterRun_API_records(w->list.data(), count, w->input.data(), frames,
                                         w->output.data());
          }};
}

const bool registered = [] {
  for (const Kind& kind : kKinds) {
    add_group(std::string("builds/") + kind.name, [kind] {
      std::vector<Side> sides;
      for (const Library& l : other_builds()) sides.push_back(side_of(l, l.name, kind, 480));
      if (sides.empty()) sides.push_back(side_of(kOwn, kOwn.name, kind, 480));
      return sides;
    });
    if (kind.type != -2 || kind.count == 512)
      add_group(std::string("short/") + kind.name, [kind] {
        std::vector<Side> sides;
        for (int frames : {480, 64, 32, 16})
          sides.push_back(side_of(kOwn, std::to_string(frames), kind, frames));
        return sides;
      });
    if (kind.type == -2)
      add_group("place/" + std::to_string(kind.count), [kind] {
        std::vector<Side> sides;
        for (size_t offset : {0, 4, 16, 32, 36, 48})
          sides.push_back(side_of(kOwn, std::to_string(offset), kind, 480, offset));
        return sides;
      });
  }
  for (int N = 512; N <= JURN_FFT_MAX; N *= 2)
    add_group("builds/transform chain, " + std::to_string(N), [N] {
      std::vector<Side> sides;
      for (const Library& l : other_builds()) sides.push_back(chain(l, l.name, N, false));
      sides.push_back(chain(kOwn, "fused", N, true));
      return sides;
    });
  for (int sections : {1, 2, 4, 8, 16})
    add_group("records/cascade " + std::to_string(sections), [sections] {
      std::vector<Side> sides;
      for (int count : {1, 4, 6, 8})
        sides.push_back(records(std::to_string(count), {"", 1, 1, sections}, count));
      return sides;
    });
  for (int order : {2, 8})
    add_group("records/IIR " + std::to_string(order), [order] {
      std::vector<Side> sides;
      for (int count : {1, 4, 6, 8})
        sides.push_back(records(std::to_string(count), {"", 0, 1, order + 1}, count));
      return sides;
    });
  return true;
}();

}  // namespace
