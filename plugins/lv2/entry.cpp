// The table by which hosts find the plugins.
#include <array>
#include <exception>
#include <string>

#include <lv2/core/lv2.h>

#include "plugin.h"

namespace jurn::lv2 {
namespace {

Plugin* plugin(LV2_Handle handle) {
  return static_cast<Plugin*>(handle);
}

constexpr std::array<const Kind*, 7> kKinds = {
    &kEqualiserMono, &kEqualiserStereo, &kConvolverMono, &kConvolverStereo,
    &kBinaural,      &kSetupStereo,     &kSetupMulti};

LV2_Handle instantiate(const LV2_Descriptor* descriptor, double rate, const char*,
                       const LV2_Feature* const* features) {
  const Host host(features);
  try {
    for (const Kind* const kind : kKinds) {
      if (descriptor->URI != std::string(kPrefix) + kind->description.name) continue;
      if (kind->description.file && !host.map) return nullptr;
      return kind->create(kind->description, host, rate).release();
    }
  } catch (const std::exception& problem) {
    host.say(host.error, problem.what());
  }
  return nullptr;
}

LV2_Worker_Status work(LV2_Handle handle, LV2_Worker_Respond_Function respond,
                       LV2_Worker_Respond_Handle to, std::uint32_t bytes, const void* message) {
  plugin(handle)->work(message, bytes, respond, to);
  return LV2_WORKER_SUCCESS;
}

LV2_Worker_Status answer(LV2_Handle handle, std::uint32_t bytes, const void* message) {
  plugin(handle)->answer(message, bytes);
  return LV2_WORKER_SUCCESS;
}

const void* extension(const char* uri) {
  static const LV2_Worker_Interface worker = {work, answer, nullptr};
  static const LV2_State_Interface state = {
      [](LV2_Handle handle, LV2_State_Store_Function store, LV2_State_Handle to, std::uint32_t,
         const LV2_Feature* const* features) { return plugin(handle)->save(store, to, features); },
      [](LV2_Handle handle, LV2_State_Retrieve_Function retrieve, LV2_State_Handle from,
         std::uint32_t, const LV2_Feature* const* features) {
        return plugin(handle)->restore(retrieve, from, features);
      }};
  if (std::string(LV2_WORKER__interface) == uri) return &worker;
  if (std::string(LV2_STATE__interface) == uri) return &state;
  return nullptr;
}

struct Descriptors {
  std::array<std::string, kKinds.size()> uris;
  std::array<LV2_Descriptor, kKinds.size()> list;

  Descriptors() {
    for (std::size_t i = 0; i < kKinds.size(); ++i) {
      uris[i] = std::string(kPrefix) + kKinds[i]->description.name;
      list[i] = {uris[i].c_str(),
                 instantiate,
                 [](LV2_Handle handle, std::uint32_t port, void* data) {
                   plugin(handle)->connect_port(port, data);
                 },
                 [](LV2_Handle handle) { plugin(handle)->activate(); },
                 [](LV2_Handle handle, std::uint32_t frames) {
                   plugin(handle)->run(static_cast<int>(frames));
                 },
                 nullptr,
                 [](LV2_Handle handle) { delete plugin(handle); },
                 extension};
    }
  }
};

}  // namespace
}  // namespace jurn::lv2

LV2_SYMBOL_EXPORT const LV2_Descriptor* lv2_descriptor(std::uint32_t index) {
  static const jurn::lv2::Descriptors descriptors;
  return index < descriptors.list.size() ? &descriptors.list[index] : nullptr;
}
