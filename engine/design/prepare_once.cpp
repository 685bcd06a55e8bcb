#include "exact.h"

#include "design/prepare_once.h"

#include <algorithm>
#include <functional>
#include <mutex>
#include <unordered_map>

namespace jurn {
namespace {

struct Key {
  FilterDesign design;
  PrepareOptions options;

  bool operator==(const Key& other) const {
    return options == other.options && design == other.design;
  }
};

struct HashOfDesign {
  std::size_t operator()(const Key& key) const { return std::hash<FilterDesign>()(key.design); }
};

struct Kept {
  std::shared_ptr<const Prepared> prepared;
  unsigned long long used;  // the number of the call that asked last
};

}  // namespace

std::shared_ptr<const Prepared> prepare_once(const FilterDesign& design,
                                             const PrepareOptions& options) {
  if (design.b.size() > kLongTaps)
    return std::make_shared<const Prepared>(prepare(design, options));
  static std::mutex mutex;
  static std::unordered_map<Key, Kept, HashOfDesign> kept;
  static unsigned long long calls = 0;
  const Key key = {design, options};
  {
    const std::lock_guard<std::mutex> lock(mutex);
    const auto found = kept.find(key);
    if (found != kept.end()) {
      found->second.used = ++calls;
      return found->second.prepared;
    }
  }
  auto prepared = std::make_shared<const Prepared>(prepare(design, options));
  const std::lock_guard<std::mutex> lock(mutex);
  kept[key] = {prepared, ++calls};
  if (kept.size() > kKept)
    kept.erase(std::min_element(kept.begin(), kept.end(), [](const auto& x, const auto& y) {
      return x.second.used < y.second.used;
    }));
  return prepared;
}

}  // namespace jurn
