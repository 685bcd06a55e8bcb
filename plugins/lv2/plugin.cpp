#include "plugin.h"

#include <lv2/atom/util.h>
#include <lv2/patch/patch.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <exception>

namespace jurn::lv2 {
namespace {

std::size_t size(int count) {
  return static_cast<std::size_t>(count);
}

template <typename Data>
const Data* feature(const LV2_Feature* const* features, const char* uri) {
  for (; features && *features; ++features)
    if (!std::strcmp((*features)->URI, uri)) return static_cast<const Data*>((*features)->data);
  return nullptr;
}

void free_path(char* path, const LV2_Feature* const* features) {
  if (!path) return;
  if (const auto* const by = feature<LV2_State_Free_Path>(features, LV2_STATE__freePath))
    by->free_path(by->handle, path);
  else
    std::free(path);
}

}  // namespace

Plugin::Plugin(const Description& description, const Host& host, double rate)
    : description_(description),
      host_(host),
      running_{static_cast<int>(rate), description.inputs, description.outputs, description.block,
               true},
      format_(engine_format(running_, description.block, description.history)),
      in_(size(description.inputs)),
      out_(size(description.outputs)),
      ports_(size(description.controls + description.has_bypass)),
      controls_(ports_.size()),
      message_(controls_.size() * sizeof(float) + file_.size()) {
  if (host_.map) lv2_atom_forge_init(&forge_, host_.map);
  if (description.file) file_urid_ = host_.urid((std::string(kPrefix) + description.file).c_str());
}

void Plugin::connect_port(std::uint32_t port, void* data) {
  std::size_t i = port;
  if (i < in_.size()) {
    in_[i] = static_cast<const float*>(data);
    return;
  }
  if ((i -= in_.size()) < out_.size()) {
    out_[i] = static_cast<float*>(data);
    return;
  }
  if ((i -= out_.size()) == 0) {
    latency_ = static_cast<float*>(data);
    return;
  }
  if (--i < ports_.size())
    ports_[i] = static_cast<const float*>(data);
  else if (i == ports_.size())
    messages_ = static_cast<const LV2_Atom_Sequence*>(data);
  else
    replies_ = static_cast<LV2_Atom_Sequence*>(data);
}

/** Whether they changed. */
bool Plugin::read_controls() {
  bool changed = false;
  for (std::size_t i = 0; i < ports_.size(); ++i) {
    // Bit by bit: what is no number equals not even itself.
    if (!ports_[i] || !std::memcmp(ports_[i], &controls_[i], sizeof(float))) continue;
    controls_[i] = *ports_[i];
    changed = true;
  }
  return changed;
}

/** With the lock held. */
std::unique_ptr<OfferedFilter> Plugin::make_wanted(const std::vector<float>& controls) {
  const std::size_t bypass = description_.has_bypass ? 1 : 0;
  std::unique_ptr<OfferedFilter> made;
  if (!bypass || controls[0] > 0.0F)
    made = make({{controls.begin() + static_cast<std::ptrdiff_t>(bypass), controls.end()},
                 wanted_file_,
                 naming_,
                 format_.rate});
  if (!made) made = offer_of(make_idle());
  made->made_for = running_;
  return made;
}

/** What the ports say by now is there from the first frame on. */
void Plugin::activate() {
  read_controls();
  const std::lock_guard<std::mutex> lock(mutex_);
  std::unique_ptr<OfferedFilter> first;
  try {
    first = make_wanted(controls_);
  } catch (const std::exception& problem) {
    host_.say(host_.error, problem.what());
    first = offer_of(make_idle());
    first->made_for = running_;
  }
  offers_.empty();
  // A filter that the worker still has to make was asked for before: ask again once it is there.
  is_changed_ = requests_.load(std::memory_order_acquire) > 0;
  stream_ = std::make_unique<BlockStream>(&offers_, std::move(first));
}

void Plugin::run(int frames) {
  is_changed_ |= read_controls();
  take_messages();
  if (named_bytes_ || (is_changed_ && requests_.load(std::memory_order_acquire) == 0)) request();
  stream_->process(in_.data(), frames, out_.data());
  if (latency_) *latency_ = static_cast<float>(stream_->latency());
}

/** Asks the worker for a filter by the controls, and by the file that was named since. If it has no
 * room, both wait for the next call. */
void Plugin::request() {
  const std::size_t controls = controls_.size() * sizeof(float);
  std::memcpy(message_.data(), controls_.data(), controls);
  const auto length = static_cast<std::uint32_t>(controls + named_bytes_);
  requests_.fetch_add(1, std::memory_order_relaxed);
  if (!host_.worker) {
    work(message_.data(), length, nullptr, nullptr);
  } else if (host_.worker->schedule_work(host_.worker->handle, length, message_.data()) !=
             LV2_WORKER_SUCCESS) {
    requests_.fetch_sub(1, std::memory_order_relaxed);
    return;
  }
  is_changed_ = false;
  named_bytes_ = 0;
}

void Plugin::work(const void* message, std::uint32_t bytes, LV2_Worker_Respond_Function respond,
                  LV2_Worker_Respond_Handle handle) {
  const std::size_t start = controls_.size() * sizeof(float);
  std::vector<float> controls(controls_.size());
  std::memcpy(controls.data(), message, start);
  const std::lock_guard<std::mutex> lock(mutex_);
  const std::string before = wanted_file_;
  if (bytes > start) {
    const char* const text = static_cast<const char*>(message) + start;
    wanted_file_.assign(text, strnlen(text, bytes - start));
    ++naming_;
  }
  try {
    offers_.offer(make_wanted(controls));
  } catch (const std::exception& problem) {
    host_.say(host_.error, problem.what());
    if (wanted_file_ != before) ++naming_;
    wanted_file_ = before;
  }
  requests_.fetch_sub(1, std::memory_order_release);
  if (bytes > start && respond)
    respond(handle, static_cast<std::uint32_t>(wanted_file_.size() + 1), wanted_file_.c_str());
}

/** The audio thread hears which file runs, and tells the host. */
void Plugin::answer(const void* message, std::uint32_t bytes) {
  const std::size_t count = std::min<std::size_t>(bytes, file_.size());
  std::memcpy(file_.data(), message, count);
  file_.back() = 0;
  tells_file_ = true;
}

void Plugin::take_messages() {
  if (!messages_ || !replies_) return;
  LV2_ATOM_SEQUENCE_FOREACH(messages_, event) {
    if (event->body.type != host_.object) continue;
    const auto* const object = reinterpret_cast<const LV2_Atom_Object*>(&event->body);
    const LV2_Atom* property = nullptr;
    const LV2_Atom* value = nullptr;
    lv2_atom_object_get(object, host_.patch_property, &property, host_.patch_value, &value, 0);
    if (property && (property->type != host_.urid_type ||
                     reinterpret_cast<const LV2_Atom_URID*>(property)->body != file_urid_))
      continue;
    if (object->body.otype == host_.patch_get) tells_file_ = true;
    if (object->body.otype == host_.patch_set && property && value &&
        (value->type == host_.path || value->type == host_.string)) {
      // Of a longer name no system opens the start: the worker says so.
      named_bytes_ = std::min<std::size_t>(value->size, file_.size());
      std::memcpy(message_.data() + controls_.size() * sizeof(float), LV2_ATOM_BODY_CONST(value),
                  named_bytes_);
    }
  }
  const std::uint32_t room = replies_->atom.size;
  lv2_atom_forge_set_buffer(&forge_, reinterpret_cast<std::uint8_t*>(replies_),
                            room + sizeof(LV2_Atom));
  LV2_Atom_Forge_Frame sequence;
  lv2_atom_forge_sequence_head(&forge_, &sequence, 0);
  const auto length = static_cast<std::uint32_t>(std::strlen(file_.data()));
  if (tells_file_ && room > length + 128) {  // what surrounds the name takes 88
    tells_file_ = false;
    LV2_Atom_Forge_Frame set;
    lv2_atom_forge_frame_time(&forge_, 0);
    lv2_atom_forge_object(&forge_, &set, 0, host_.patch_set);
    lv2_atom_forge_key(&forge_, host_.patch_property);
    lv2_atom_forge_urid(&forge_, file_urid_);
    lv2_atom_forge_key(&forge_, host_.patch_value);
    lv2_atom_forge_path(&forge_, file_.data(), length);
    lv2_atom_forge_pop(&forge_, &set);
  }
  lv2_atom_forge_pop(&forge_, &sequence);
}

LV2_State_Status Plugin::save(LV2_State_Store_Function store, LV2_State_Handle handle,
                              const LV2_Feature* const* features) {
  const std::lock_guard<std::mutex> lock(mutex_);
  if (!file_urid_ || wanted_file_.empty()) return LV2_STATE_SUCCESS;
  const auto* const paths = feature<LV2_State_Map_Path>(features, LV2_STATE__mapPath);
  char* const mapped = paths ? paths->abstract_path(paths->handle, wanted_file_.c_str()) : nullptr;
  const char* const path = mapped ? mapped : wanted_file_.c_str();
  const LV2_State_Status status = store(handle, file_urid_, path, std::strlen(path) + 1, host_.path,
                                        LV2_STATE_IS_POD | LV2_STATE_IS_PORTABLE);
  free_path(mapped, features);
  return status;
}

LV2_State_Status Plugin::restore(LV2_State_Retrieve_Function retrieve, LV2_State_Handle handle,
                                 const LV2_Feature* const* features) {
  if (!file_urid_) return LV2_STATE_SUCCESS;
  std::size_t bytes = 0;
  std::uint32_t type = 0, flags = 0;
  const void* const value = retrieve(handle, file_urid_, &bytes, &type, &flags);
  const auto* const paths = feature<LV2_State_Map_Path>(features, LV2_STATE__mapPath);
  std::string path;
  if (value && bytes && type == host_.path) {
    path.assign(static_cast<const char*>(value), strnlen(static_cast<const char*>(value), bytes));
    if (char* const mapped = paths ? paths->absolute_path(paths->handle, path.c_str()) : nullptr) {
      path = mapped;
      free_path(mapped, features);
    }
  }
  const std::lock_guard<std::mutex> lock(mutex_);
  wanted_file_ = path;
  named_bytes_ = 0;
  ++naming_;
  answer(path.c_str(), static_cast<std::uint32_t>(path.size() + 1));
  if (!stream_) return LV2_STATE_SUCCESS;
  try {
    offers_.offer(make_wanted(controls_));
  } catch (const std::exception& problem) {
    host_.say(host_.error, problem.what());
  }
  return LV2_STATE_SUCCESS;
}

}  // namespace jurn::lv2
