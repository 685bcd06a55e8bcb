#include "host.h"

#include <lv2/patch/patch.h>

#include <cstdio>
#include <cstring>

namespace jurn::lv2 {

Host::Host(const LV2_Feature* const* features) {
  for (const LV2_Feature* const* f = features; f && *f; ++f) {
    if (!std::strcmp((*f)->URI, LV2_URID__map)) map = static_cast<LV2_URID_Map*>((*f)->data);
    if (!std::strcmp((*f)->URI, LV2_WORKER__schedule))
      worker = static_cast<LV2_Worker_Schedule*>((*f)->data);
    if (!std::strcmp((*f)->URI, LV2_LOG__log)) log = static_cast<LV2_Log_Log*>((*f)->data);
  }
  path = urid(LV2_ATOM__Path);
  string = urid(LV2_ATOM__String);
  urid_type = urid(LV2_ATOM__URID);
  object = urid(LV2_ATOM__Object);
  patch_get = urid(LV2_PATCH__Get);
  patch_set = urid(LV2_PATCH__Set);
  patch_property = urid(LV2_PATCH__property);
  patch_value = urid(LV2_PATCH__value);
  warning = urid(LV2_LOG__Warning);
  error = urid(LV2_LOG__Error);
}

void Host::say(LV2_URID level, const std::string& sentence) const {
  if (log)
    log->printf(log->handle, level, "JURN: %s\n", sentence.c_str());
  else
    std::fprintf(stderr, "JURN: %s\n", sentence.c_str());
}

}  // namespace jurn::lv2
