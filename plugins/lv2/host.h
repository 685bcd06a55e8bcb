// What a host offers a plugin.
#pragma once

#include <lv2/atom/atom.h>
#include <lv2/core/lv2.h>
#include <lv2/log/log.h>
#include <lv2/state/state.h>
#include <lv2/urid/urid.h>
#include <lv2/worker/worker.h>

#include <cstdint>
#include <string>

namespace jurn::lv2 {

struct Host {
  explicit Host(const LV2_Feature* const* features);

  LV2_URID urid(const char* uri) const { return map ? map->map(map->handle, uri) : 0; }
  /** A sentence for the user. Not for the audio thread. */
  void say(LV2_URID level, const std::string& sentence) const;
  void warn(const std::string& sentence) const { say(warning, sentence); }

  LV2_URID_Map* map = nullptr;
  const LV2_Worker_Schedule* worker = nullptr;
  const LV2_Log_Log* log = nullptr;

  LV2_URID path, string, urid_type, object, patch_get, patch_set, patch_property, patch_value,
      warning, error;
};

}  // namespace jurn::lv2
