#include "live/pipewire_node.h"

#include <spa/param/audio/format-utils.h>
#include <spa/param/latency-utils.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <vector>

#include "errors.h"

namespace jurn {
namespace {

constexpr std::uint32_t kMostChannels = SPA_AUDIO_MAX_CHANNELS;

/** The usual order of loudspeakers, which cards have too; else channels without a place. */
spa_audio_info_raw format_of(int channels) {
  spa_audio_info_raw info{};
  info.format = SPA_AUDIO_FORMAT_F32P;
  info.channels = static_cast<std::uint32_t>(channels);
  constexpr std::uint32_t kPlaces[] = {
      SPA_AUDIO_CHANNEL_FL, SPA_AUDIO_CHANNEL_FR, SPA_AUDIO_CHANNEL_FC, SPA_AUDIO_CHANNEL_LFE,
      SPA_AUDIO_CHANNEL_RL, SPA_AUDIO_CHANNEL_RR, SPA_AUDIO_CHANNEL_SL, SPA_AUDIO_CHANNEL_SR};
  for (std::uint32_t c = 0; c < info.channels; ++c) info.position[c] = SPA_AUDIO_CHANNEL_AUX0 + c;
  if (channels == 1) info.position[0] = SPA_AUDIO_CHANNEL_MONO;
  if (channels == 2 || channels == 6 || channels == 8)
    std::copy_n(kPlaces, channels, info.position);
  if (channels == 4) {
    std::copy_n(kPlaces, 2, info.position);
    std::copy_n(kPlaces + 4, 2, info.position + 2);
  }
  return info;
}

/** Of clients whose audio thread is one of real time; later versions of PipeWire have one for all.
 */
pw_context* make_context(pw_loop* loop) {
  if (pw_context* const context =
          pw_context_new(loop, pw_properties_new(PW_KEY_CONFIG_NAME, "client-rt.conf", nullptr), 0))
    return context;
  return pw_context_new(loop, nullptr, 0);
}

}  // namespace

const pw_core_events PipewireNode::kCoreEvents = [] {
  pw_core_events events{};
  events.version = PW_VERSION_CORE_EVENTS;
  events.error = [](void* self, std::uint32_t id, int, int problem, const char*) {
    if (id == PW_ID_CORE && problem == -EPIPE) static_cast<PipewireNode*>(self)->is_lost_ = true;
  };
  return events;
}();

const pw_stream_events PipewireNode::kInEvents = [] {
  pw_stream_events events{};
  events.version = PW_VERSION_STREAM_EVENTS;
  events.state_changed = [](void* self, pw_stream_state, pw_stream_state now, const char*) {
    auto* const node = static_cast<PipewireNode*>(self);
    if (now == PW_STREAM_STATE_PAUSED) node->audio_->reset();
  };
  events.io_changed = [](void* self, std::uint32_t id, void* area, std::uint32_t) {
    if (id == SPA_IO_Position)
      static_cast<PipewireNode*>(self)->position_.store(static_cast<spa_io_position*>(area));
  };
  events.param_changed = [](void* self, std::uint32_t id, const spa_pod* param) {
    auto* const node = static_cast<PipewireNode*>(self);
    node->changed(&node->in_, id, param);
  };
  // What follows runs in the same cycle.
  events.process = [](void* self) {
    pw_stream_trigger_process(static_cast<PipewireNode*>(self)->out_.stream.get());
  };
  return events;
}();

const pw_stream_events PipewireNode::kOutEvents = [] {
  pw_stream_events events{};
  events.version = PW_VERSION_STREAM_EVENTS;
  events.param_changed = [](void* self, std::uint32_t id, const spa_pod* param) {
    auto* const node = static_cast<PipewireNode*>(self);
    node->changed(&node->out_, id, param);
  };
  events.process = [](void* self) { static_cast<PipewireNode*>(self)->process(); };
  return events;
}();

PipewireNode::PipewireNode(pw_loop* loop, const NodeOptions& options, LiveAudio* audio,
                           std::function<void(int rate)> on_rate)
    : audio_(audio), on_rate_(std::move(on_rate)), context_(make_context(loop)) {
  if (context_) core_.reset(pw_context_connect(context_.get(), nullptr, 0));
  if (!core_)
    throw Error(kInputError,
                std::string("PipeWire: no server answers (") + std::strerror(errno) + ")");
  pw_core_add_listener(core_.get(), &core_listener_, &kCoreEvents, this);
  connect(&in_, PW_DIRECTION_INPUT, options);
  connect(&out_, PW_DIRECTION_OUTPUT, options);
}

void PipewireNode::connect(Side* side, pw_direction direction, const NodeOptions& options) {
  const bool is_in = direction == PW_DIRECTION_INPUT;
  const bool is_seen = is_in != options.is_microphone;  // by programs
  const std::string group = "jurn-" + std::to_string(getpid()) + "-" + options.name;
  const std::string name = options.name + (is_seen ? "" : is_in ? ".input" : ".output");
  pw_properties* const properties = pw_properties_new(
      PW_KEY_NODE_NAME, name.c_str(), PW_KEY_NODE_DESCRIPTION, options.name.c_str(),
      PW_KEY_NODE_GROUP, group.c_str(), PW_KEY_NODE_LINK_GROUP, group.c_str(), PW_KEY_NODE_VIRTUAL,
      "true", PW_KEY_MEDIA_CLASS,
      is_seen ? (is_in ? "Audio/Sink" : "Audio/Source")
              : (is_in ? "Stream/Input/Audio" : "Stream/Output/Audio"),
      nullptr);
  if (is_seen) {
    if (options.is_default) pw_properties_set(properties, PW_KEY_PRIORITY_SESSION, "3000");
  } else {
    // It runs while somebody uses the other side.
    pw_properties_set(properties, PW_KEY_NODE_PASSIVE, "true");
    pw_properties_set(properties, PW_KEY_STREAM_DONT_REMIX, "true");
    if (!options.target.empty())
      pw_properties_set(properties, PW_KEY_TARGET_OBJECT, options.target.c_str());
  }
  side->stream.reset(pw_stream_new(core_.get(), name.c_str(), properties));
  if (!side->stream) throw Error(kInputError, "PipeWire: makes no stream");
  pw_stream_add_listener(side->stream.get(), &side->listener, is_in ? &kInEvents : &kOutEvents,
                         this);
  spa_audio_info_raw info = format_of(is_in ? audio_->inputs() : audio_->outputs());
  std::array<std::uint8_t, 1024> memory;
  spa_pod_builder builder = SPA_POD_BUILDER_INIT(memory.data(), memory.size());
  const spa_pod* formats[] = {spa_format_audio_raw_build(&builder, SPA_PARAM_EnumFormat, &info)};
  const int flags = PW_STREAM_FLAG_AUTOCONNECT | PW_STREAM_FLAG_MAP_BUFFERS |
                    PW_STREAM_FLAG_RT_PROCESS | (is_in ? 0 : PW_STREAM_FLAG_TRIGGER);
  if (const int problem = pw_stream_connect(side->stream.get(), direction, PW_ID_ANY,
                                            static_cast<pw_stream_flags>(flags), formats, 1);
      problem < 0)
    throw Error(kInputError, std::string("PipeWire: ") + std::strerror(-problem));
}

void PipewireNode::changed(Side* side, std::uint32_t id, const spa_pod* param) {
  spa_audio_info_raw info{};
  if (id == SPA_PARAM_Format && param && spa_format_audio_raw_parse(param, &info) >= 0) {
    side->rate = static_cast<int>(info.rate);
    try {
      if (in_.rate == out_.rate && !problem_) on_rate_(in_.rate);
    } catch (...) {
      problem_ = std::current_exception();
    }
  }
  spa_latency_info latency;
  if (id != SPA_PARAM_Latency || !param || spa_latency_parse(param, &latency) < 0) return;
  latency_[latency.direction] = latency;
  told_latency_ = -1;
}

void PipewireNode::tell_latency() {
  const int own = audio_->latency();
  if (own == told_latency_) return;
  told_latency_ = own;
  // What follows is told to what comes before, later by the filter; and the other way round.
  for (const spa_direction direction : {SPA_DIRECTION_INPUT, SPA_DIRECTION_OUTPUT}) {
    spa_latency_info latency = latency_[direction];
    latency.direction = direction;
    latency.min_rate += static_cast<std::uint32_t>(own);
    latency.max_rate += static_cast<std::uint32_t>(own);
    std::array<std::uint8_t, 1024> memory;
    spa_pod_builder builder = SPA_POD_BUILDER_INIT(memory.data(), memory.size());
    const spa_pod* params[] = {spa_latency_build(&builder, SPA_PARAM_Latency, &latency)};
    pw_stream_update_params((direction == SPA_DIRECTION_INPUT ? in_ : out_).stream.get(), params,
                            1);
  }
}

/** A cycle of the graph. */
void PipewireNode::process() {
  if (const spa_io_position* const position = position_.load()) {
    const spa_io_clock& clock = position->clock;
    if (expected_ != 0 && clock.position != expected_ && clock.id == clock_) audio_->miss();
    expected_ = clock.position + clock.duration;
    clock_ = clock.id;
  }
  pw_buffer* const in = pw_stream_dequeue_buffer(in_.stream.get());
  pw_buffer* const out = pw_stream_dequeue_buffer(out_.stream.get());
  if (!in || !out) audio_->miss();
  if (out && !in)
    for (std::uint32_t c = 0; c < out->buffer->n_datas; ++c) out->buffer->datas[c].chunk->size = 0;
  if (in && out) {
    std::array<const float*, kMostChannels> from;
    std::array<float*, kMostChannels> to;
    std::size_t bytes = SIZE_MAX;
    for (std::uint32_t c = 0; c < in->buffer->n_datas; ++c) {
      const spa_data& data = in->buffer->datas[c];
      const std::uint32_t begin = std::min(data.chunk->offset, data.maxsize);
      bytes = std::min<std::size_t>(bytes, std::min(data.chunk->size, data.maxsize - begin));
      from[c] = static_cast<const float*>(data.data) + begin / sizeof(float);
    }
    for (std::uint32_t c = 0; c < out->buffer->n_datas; ++c) {
      bytes = std::min<std::size_t>(bytes, out->buffer->datas[c].maxsize);
      to[c] = static_cast<float*>(out->buffer->datas[c].data);
    }
    const auto frames = static_cast<int>(bytes / sizeof(float));
    audio_->process(from.data(), frames, to.data());
    for (std::uint32_t c = 0; c < out->buffer->n_datas; ++c) {
      spa_chunk* const chunk = out->buffer->datas[c].chunk;
      chunk->offset = 0;
      chunk->size = static_cast<std::uint32_t>(frames) * sizeof(float);
      chunk->stride = sizeof(float);
    }
  }
  if (in) pw_stream_queue_buffer(in_.stream.get(), in);
  if (out) pw_stream_queue_buffer(out_.stream.get(), out);
}

}  // namespace jurn
