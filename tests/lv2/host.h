// A host of one plugin, in a few lines: ports, a worker of its own thread, messages, state.
#pragma once

#include <dlfcn.h>
#include <lv2/atom/forge.h>
#include <lv2/core/lv2.h>
#include <lv2/log/log.h>
#include <lv2/patch/patch.h>
#include <lv2/state/state.h>
#include <lv2/urid/urid.h>
#include <lv2/worker/worker.h>

#include <array>
#include <condition_variable>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace jurn_test {

using Channels = std::vector<std::vector<float>>;
/** What a host keeps of a plugin: the file's name, as it is stored. */
using State = std::map<LV2_URID, std::string>;

/** The controls of an equaliser whose bands are off. */
inline std::vector<float> flat() {
  std::vector<float> controls;
  for (int band = 0; band < 16; ++band)
    controls.insert(controls.end(), {0.0F, 0.0F, 1000.0F, 0.0F, 0.7071F});
  controls.push_back(0.0F);
  return controls;
}

class Host {
 public:
  Host(const std::string& name, double rate, int inputs, int outputs, bool has_bypass,
       std::vector<float> controls)
      : controls_(std::move(controls)), inputs_(inputs), outputs_(outputs) {
    static void* const module = dlopen(JURN_LV2_MODULE, RTLD_NOW);
    const auto find =
        reinterpret_cast<const LV2_Descriptor* (*)(std::uint32_t)>(dlsym(module, "lv2_descriptor"));
    for (std::uint32_t i = 0; (descriptor_ = find(i)) && descriptor_->URI != "urn:jurn:" + name;)
      ++i;
    const LV2_Feature* const features[] = {&map_feature_, &worker_feature_, &log_feature_, nullptr};
    handle_ = descriptor_->instantiate(descriptor_, rate, "", features);
    worker_ = static_cast<const LV2_Worker_Interface*>(
        descriptor_->extension_data(LV2_WORKER__interface));
    state_ =
        static_cast<const LV2_State_Interface*>(descriptor_->extension_data(LV2_STATE__interface));
    auto port = static_cast<std::uint32_t>(inputs + outputs);
    descriptor_->connect_port(handle_, port++, &latency);
    if (has_bypass) descriptor_->connect_port(handle_, port++, &enabled);
    for (float& control : controls_) descriptor_->connect_port(handle_, port++, &control);
    descriptor_->connect_port(handle_, port++, in_messages_.data());
    descriptor_->connect_port(handle_, port, out_messages_.data());
    lv2_atom_forge_init(&forge_, &map_);
    thread_ = std::thread([this] { work(); });
  }
  ~Host() {
    {
      const std::lock_guard<std::mutex> lock(mutex_);
      ends_ = true;
    }
    changed_.notify_all();
    thread_.join();
    descriptor_->cleanup(handle_);
  }

  void activate() { descriptor_->activate(handle_); }
  /** Frames [at, at + frames) of the input to those of the output. */
  void run(const Channels& in, Channels* out, int at, int frames) {
    std::uint32_t port = 0;
    for (const auto& channel : in)
      descriptor_->connect_port(handle_, port++, const_cast<float*>(channel.data() + at));
    for (auto& channel : *out) descriptor_->connect_port(handle_, port++, channel.data() + at);
    if (!has_message_) put_message("", "");
    has_message_ = false;
    reinterpret_cast<LV2_Atom*>(out_messages_.data())->size = sizeof out_messages_ - 8;
    std::string answer;
    {
      const std::lock_guard<std::mutex> lock(mutex_);
      answer.swap(answer_);
    }
    if (!answer.empty())
      worker_->work_response(handle_, static_cast<std::uint32_t>(answer.size()), answer.data());
    descriptor_->run(handle_, static_cast<std::uint32_t>(frames));
  }
  /** Until the worker has nothing to do. */
  void settle() {
    std::unique_lock<std::mutex> lock(mutex_);
    changed_.wait(lock, [this] { return work_.empty() && !is_working_; });
  }
  /** Names a file, and lets the worker read it meanwhile. */
  void load(const std::string& property, const std::string& path, const Channels& in, Channels* out,
            int at, int frames) {
    set_file(property, path);
    run(in, out, at, frames);
    settle();
  }
  /** Names a file with the next run(). */
  void set_file(const std::string& property, const std::string& path) {
    put_message("urn:jurn:" + property, path);
    has_message_ = true;
  }
  /** Whether the last run() told the host of a file of this name. */
  bool told(const std::string& path) const {
    const char* const bytes = reinterpret_cast<const char*>(out_messages_.data());
    return std::string(bytes, sizeof out_messages_).find(path) != std::string::npos;
  }
  State save() {
    State state;
    state_->save(
        handle_,
        [](LV2_State_Handle to, std::uint32_t key, const void* value, std::size_t bytes,
           std::uint32_t, std::uint32_t) {
          (*static_cast<State*>(to))[key].assign(static_cast<const char*>(value), bytes);
          return LV2_STATE_SUCCESS;
        },
        &state, 0, paths_);
    return state;
  }
  void restore(State state) {
    restored_ = std::move(state);
    state_->restore(
        handle_,
        [](LV2_State_Handle from, std::uint32_t key, std::size_t* bytes, std::uint32_t* type,
           std::uint32_t* flags) -> const void* {
          auto* const self = static_cast<Host*>(from);
          const auto found = self->restored_.find(key);
          if (found == self->restored_.end()) return nullptr;
          *bytes = found->second.size();
          *type = urid(LV2_ATOM__Path);
          *flags = LV2_STATE_IS_POD;
          return found->second.data();
        },
        this, 0, paths_);
  }
  std::string said() {
    const std::lock_guard<std::mutex> lock(mutex_);
    return said_;
  }

  float& control(std::size_t i) { return controls_[i]; }
  float enabled = 1.0F, latency = -1.0F;
  int asked = 0;  // how often the plugin asked for its worker
  bool has_room = true;

 private:
  static LV2_URID urid(const std::string& uri) {
    static std::map<std::string, LV2_URID> all;
    return all.try_emplace(uri, static_cast<LV2_URID>(all.size() + 1)).first->second;
  }
  static char* copy(const std::string& text) { return strdup(text.c_str()); }

  void put_message(const std::string& property, const std::string& path) {
    lv2_atom_forge_set_buffer(&forge_, reinterpret_cast<std::uint8_t*>(in_messages_.data()),
                              sizeof in_messages_);
    lv2_atom_forge_sequence_head(&forge_, &sequence_, 0);
    if (!property.empty()) {
      lv2_atom_forge_frame_time(&forge_, 0);
      lv2_atom_forge_object(&forge_, &set_, 0, urid(LV2_PATCH__Set));
      lv2_atom_forge_key(&forge_, urid(LV2_PATCH__property));
      lv2_atom_forge_urid(&forge_, urid(property));
      lv2_atom_forge_key(&forge_, urid(LV2_PATCH__value));
      lv2_atom_forge_path(&forge_, path.c_str(), static_cast<std::uint32_t>(path.size()));
      lv2_atom_forge_pop(&forge_, &set_);
    }
    lv2_atom_forge_pop(&forge_, &sequence_);
  }

  void work() {
    std::unique_lock<std::mutex> lock(mutex_);
    for (;;) {
      changed_.wait(lock, [this] { return ends_ || !work_.empty(); });
      if (ends_) return;
      const std::string message = work_.front();
      work_.erase(work_.begin());
      is_working_ = true;
      lock.unlock();
      std::string answer;
      worker_->work(
          handle_,
          [](LV2_Worker_Respond_Handle to, std::uint32_t bytes, const void* data) {
            static_cast<std::string*>(to)->assign(static_cast<const char*>(data), bytes);
            return LV2_WORKER_SUCCESS;
          },
          &answer, static_cast<std::uint32_t>(message.size()), message.data());
      lock.lock();
      is_working_ = false;
      if (!answer.empty()) answer_ = answer;
      changed_.notify_all();
    }
  }

  std::vector<float> controls_;
  int inputs_, outputs_;
  const LV2_Descriptor* descriptor_ = nullptr;
  LV2_Handle handle_ = nullptr;
  const LV2_Worker_Interface* worker_ = nullptr;
  const LV2_State_Interface* state_ = nullptr;
  std::array<std::uint64_t, 1200> in_messages_{}, out_messages_{};
  bool has_message_ = false;
  LV2_Atom_Forge forge_{};
  LV2_Atom_Forge_Frame sequence_{}, set_{};
  State restored_;

  std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<std::string> work_;
  bool is_working_ = false, ends_ = false;
  std::string answer_, said_;
  std::thread thread_;

  LV2_URID_Map map_{nullptr, [](LV2_URID_Map_Handle, const char* uri) { return urid(uri); }};
  LV2_Worker_Schedule schedule_{
      this, [](LV2_Worker_Schedule_Handle to, std::uint32_t bytes, const void* data) {
        auto* const self = static_cast<Host*>(to);
        ++self->asked;
        if (!self->has_room) return LV2_WORKER_ERR_NO_SPACE;
        {
          const std::lock_guard<std::mutex> lock(self->mutex_);
          self->work_.emplace_back(static_cast<const char*>(data), bytes);
        }
        self->changed_.notify_all();
        return LV2_WORKER_SUCCESS;
      }};
  static int say(LV2_Log_Handle to, LV2_URID, const char* format, ...) {
    char text[1000];
    va_list values;
    va_start(values, format);
    const int length = std::vsnprintf(text, sizeof text, format, values);
    va_end(values);
    auto* const self = static_cast<Host*>(to);
    const std::lock_guard<std::mutex> lock(self->mutex_);
    self->said_ += text;
    return length;
  }
  LV2_Log_Log log_{this, say, nullptr};
  // What is stored names files by "stored:" and the rest of the path.
  LV2_State_Map_Path map_path_{nullptr,
                               [](LV2_State_Map_Path_Handle, const char* path) {
                                 return copy("stored:" + std::string(path));
                               },
                               [](LV2_State_Map_Path_Handle, const char* path) {
                                 return copy(std::string(path).substr(7));
                               }};
  LV2_Feature map_feature_{LV2_URID__map, &map_}, worker_feature_{LV2_WORKER__schedule, &schedule_},
      log_feature_{LV2_LOG__log, &log_}, path_feature_{LV2_STATE__mapPath, &map_path_};
  const LV2_Feature* paths_[2] = {&path_feature_, nullptr};
};

}  // namespace jurn_test
