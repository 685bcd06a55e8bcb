#include "design/prepare_once.h"

#include <algorithm>
#include <list>
#include <mutex>

namespace jurn {
namespace {

struct Kept {
  FilterDesign design;
  PrepareOptions options;
  std::shared_ptr<const Prepared> prepared;
};

}  // namespace

std::shared_ptr<const Prepared> prepare_once(const FilterDesign& design,
                                             const PrepareOptions& options) {
  if (design.b.size() > kLongTaps)
    return std::make_shared<const Prepared>(prepare(design, options));
  static std::mutex mutex;
  static std::list<Kept> kept;  // the last used first
  {
    const std::lock_guard<std::mutex> lock(mutex);
    const auto found = std::find_if(kept.begin(), kept.end(), [&](const Kept& one) {
      return one.options == options && one.design == design;
    });
    if (found != kept.end()) {
      kept.splice(kept.begin(), kept, found);
      return found->prepared;
    }
  }
  auto prepared = std::make_shared<const Prepared>(prepare(design, options));
  const std::lock_guard<std::mutex> lock(mutex);
  kept.push_front({design, options, prepared});
  if (kept.size() > kKept) kept.pop_back();
  return prepared;
}

}  // namespace jurn
