/* Reset and set-up functions, which a real-time user may call between two blocks. */
#include <cstring>
#include <memory>

#include "Filter_control.h"
#include "groups.h"

namespace {

template <class Record>
Side reset(const char* name, void (*function)(Record*)) {
  std::shared_ptr<Record> record(new Record());
  return {name, 1.0, [record, function] { function(record.get()); }};
}

Side clear(const char* name, size_t bytes) {
  auto memory = std::make_shared<std::vector<char>>(bytes);
  return {name, 1.0, [memory] {
            memset(memory->data(), 0, memory->size());
            benchmark::DoNotOptimize(memory->data());
            benchmark::ClobberMemory();
          }};
}

std::shared_ptr<Filterlongfir_ID> long_filter(int kind, int taps) {
  std::shared_ptr<Filterlongfir_ID> filter(new Filterlongfir_ID());
  filter->chanel = 2;
  filter->filtertype = kind;
  filter->blen = filter->bRlen = taps;
  for (int i = 0; i < taps; ++i) filter->b[i] = filter->bR[i] = 1.0f / static_cast<float>(i + 1);
  MORVAX_FilterlongfirReset_API(filter.get());
  return filter;
}

const bool registered = [] {
  add_group("reset", [] {
    constexpr size_t channel = sizeof(short) * JURN_LONG_HISTORY + sizeof(float) * (2156 + 1500);
    return std::vector<Side>{
        reset("Filter_ID", MORVAX_FilterReset_API),
        clear("Filter_ID clear", 2 * (sizeof(short) * 2156 + sizeof(float) * (2156 + 1500))),
        reset("Filterf_ID", MORVAX_FilterfReset_API),
        clear("Filterf_ID clear", sizeof(FilterIOMEMf)),
        reset("shuzhiFilter_ID", MORVAX_shuzhiFilterReset_API),
        clear("shuzhiFilter_ID clear", sizeof(short) * JURN_MOVING_SUM_MAX),
        reset("Filterlongfir_ID", MORVAX_FilterlongfirReset_API),
        clear("Filterlongfir_ID clear", 2 * (channel + sizeof(short) * JURN_RING_SLOTS))};
  });
  add_group("set-up", [] {
    std::vector<Side> sides;
    for (int taps : {512, 2048, 8192}) {
      auto fft = long_filter(-2, taps);
      sides.push_back({"forFFT " + std::to_string(taps), 1.0,
                       [fft] { MORVAX_FilterlongfirCalcu_API_forFFT(fft.get()); }});
    }
    for (int taps : {512, 2048, 8192, 32767}) {
      auto time = long_filter(-3, taps);
      sides.push_back({"APItime " + std::to_string(taps), 1.0,
                       [time] { MORVAX_FilterlongfirCalcu_APItime(time.get()); }});
    }
    for (int order : {77, 311, 1247}) {
      auto filter = std::make_shared<Filter_ID>();
      auto table = std::make_shared<std::vector<float>>(noise<float>(order + 1, 0.1));
      sides.push_back({"FromMatlabTable " + std::to_string(order + 1), 1.0, [filter, table, order] {
                         MORVAX_FilterCalcu_API_FromMatlabTable(filter.get(), table->data(),
                                                                table->data(), order, -1);
                       }});
    }
    return sides;
  });
  return true;
}();

}  // namespace
