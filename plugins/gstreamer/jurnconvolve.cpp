/**
 * SECTION:element-jurnconvolve
 *
 * Convolves with impulse responses of any length, without latency.
 *
 * |[
 * gst-launch-1.0 filesrc location=music.flac ! decodebin ! audioconvert !
 *   jurnconvolve location=hall.wav gain=-6 ! autoaudiosink
 * ]|
 */
#include "jurnconvolve.h"

#include <cmath>
#include <mutex>
#include <stdexcept>
#include <utility>

#include "handover.h"
#include "impulse_responses/routes.h"
#include "streams/convolve.h"

using jurn::gst::Caps;

namespace {

enum Property { kLocation = 1, kRoutes, kGain, kNormalise, kResample };

constexpr char kCaps[] = GST_AUDIO_CAPS_MAKE("{ " GST_AUDIO_NE(S16) ", " GST_AUDIO_NE(
    F32) " }") ", layout = (string) interleaved, channels = (int) [ 1, 16 ]";

/** What the properties ask for. */
struct Settings {
  std::string location, routes;
  double gain_db = 0.0;
  bool normalise = false, resample = false;
};

/** Channels in and out that a response can connect. */
using Pairs = std::vector<std::pair<int, int>>;

/** A response and a silent stream for it. */
struct PreparedConvolution {
  PreparedConvolution(const Convolution_shape& s, const jurn::Routing& routing)
      : shape(s),
        response(s, routing),
        stream(std::make_unique<jurn::ConvolutionStream>(s)),
        taps(routing.longest()) {}

  Convolution_shape shape;
  jurn::ConvolutionResponse response;
  std::unique_ptr<jurn::ConvolutionStream> stream;
  int taps;
  PreparedConvolution* next = nullptr;
};

using ConvolutionHandover = jurn::gst::Handover<PreparedConvolution>;

/** Taps that a stream has room for, so that most other responses need no other stream. */
int capacity(int taps) {
  int room = 8192;
  while (room < taps) room *= 2;
  return room;
}

void run(const PreparedConvolution& c, const short* in, short* out) {
  MORVAX_ConvolutionRun_API(c.stream->get(), c.response.get(), in, out);
}
void run(const PreparedConvolution& c, const float* in, float* out) {
  MORVAX_ConvolutionRun_API_float(c.stream->get(), c.response.get(), in, out);
}
void fade(const PreparedConvolution& from, const PreparedConvolution& to, const short* in,
          short* out) {
  MORVAX_ConvolutionFade_API(from.stream->get(), from.response.get(), to.response.get(), in, out);
}
void fade(const PreparedConvolution& from, const PreparedConvolution& to, const float* in,
          float* out) {
  MORVAX_ConvolutionFade_API_float(from.stream->get(), from.response.get(), to.response.get(), in,
                                   out);
}

template <typename Sample>
class ConvolveBlocks final : public jurn::gst::Blocks {
 public:
  ConvolveBlocks(ConvolutionHandover* handover, std::unique_ptr<PreparedConvolution> first)
      : Blocks(first->shape.inputs, first->shape.outputs, first->shape.block),
        handover_(handover),
        current_(first.release()),
        other_(static_cast<std::size_t>(block * outputs)) {}
  ~ConvolveBlocks() override { handover_->give_back(current_); }

  void process(const void* input, void* output, GstClockTime) override {
    const auto* const in = static_cast<const Sample*>(input);
    auto* const out = static_cast<Sample*>(output);
    PreparedConvolution* const next = handover_->take();
    if (!next) return run(*current_, in, out);
    if (next->shape.taps == current_->shape.taps) {
      fade(*current_, *next, in, out);
      std::swap(current_->stream, next->stream);
    } else {
      // A stream of another length starts from silence; both run over this block.
      run(*next, in, other_.data());
      run(*current_, in, out);
      for (std::size_t i = 0; i < other_.size(); ++i) {
        const int frame = static_cast<int>(i) / outputs;
        const float weight =
            block > 1 ? static_cast<float>(frame) / static_cast<float>(block - 1) : 1.0f;
        const float mixed =
            (1.0f - weight) * static_cast<float>(out[i]) + weight * static_cast<float>(other_[i]);
        if constexpr (std::is_same_v<Sample, short>)
          out[i] = static_cast<short>(std::lrint(mixed));
        else
          out[i] = mixed;
      }
    }
    handover_->give_back(std::exchange(current_, next));
  }

  void reset() override { MORVAX_ConvolutionReset_API(current_->stream->get()); }
  std::int64_t tail() const override { return current_->taps - 1; }

 private:
  ConvolutionHandover* handover_;
  PreparedConvolution* current_;
  std::vector<Sample> other_;
};

struct State {
  std::mutex mutex;
  Settings settings;
  Pairs pairs;          // what the response connects; empty: as many in as out
  std::string problem;  // of a property that was set before there was a stream
  ConvolutionHandover handover;
};

}  // namespace

struct GstJurnConvolve {
  GstJurnBlocks parent;
  State* state;
};
struct GstJurnConvolveClass {
  GstJurnBlocksClass parent_class;
};

G_DEFINE_TYPE(GstJurnConvolve, gst_jurn_convolve, GST_TYPE_JURN_BLOCKS)
GST_ELEMENT_REGISTER_DEFINE(jurnconvolve, "jurnconvolve", GST_RANK_NONE, GST_TYPE_JURN_CONVOLVE)

/** Pairs of channels in and out that an impulse response of `count` channels can connect. */
static Pairs pairs_of(std::size_t count) {
  switch (count) {
    case 1:
      return {};
    case 4:
      return {{2, 2}, {4, 4}, {1, 4}};
    default:
      return {{static_cast<int>(count), static_cast<int>(count)}, {1, static_cast<int>(count)}};
  }
}

/** Reads and prepares the response. */
static std::unique_ptr<PreparedConvolution> prepare(const Settings& settings, const Caps& caps,
                                                    int block) {
  const bool by_routes = !settings.routes.empty();
  const std::string& name = by_routes ? settings.routes : settings.location;
  if (name.empty()) throw std::runtime_error("no impulse response: set location or routes");
  jurn::ImpulseResponseOptions options;
  options.resample = settings.resample;
  options.max_taps = JURN_CONVOLUTION_TAPS;
  options.limit = "at most " + std::to_string(JURN_CONVOLUTION_TAPS) + " are supported";
  jurn::Routing routing =
      by_routes ? jurn::read_routes(name, caps.rate, options)
                : jurn::connect(jurn::read_impulse_response({name}, caps.rate, options),
                                jurn::Wiring::kAutomatic, caps.inputs, name);
  if (routing.inputs != caps.inputs || routing.outputs != caps.outputs)
    throw std::runtime_error(name + ": connects " + std::to_string(routing.inputs) + " to " +
                             std::to_string(routing.outputs) + " channels, and the stream has " +
                             std::to_string(caps.inputs) + " and " + std::to_string(caps.outputs));
  if (settings.normalise) jurn::normalise(&routing, name);
  jurn::scale(&routing, std::pow(10.0, settings.gain_db / 20.0));
  const Convolution_shape shape{caps.inputs, caps.outputs, block, capacity(routing.longest())};
  return std::make_unique<PreparedConvolution>(shape, routing);
}

static std::unique_ptr<jurn::gst::Blocks> make(GstJurnBlocks* base, const Caps& caps, int frames) {
  State* const state = reinterpret_cast<GstJurnConvolve*>(base)->state;
  const std::lock_guard<std::mutex> lock(state->mutex);
  if (!state->problem.empty()) throw std::runtime_error(state->problem);
  auto first =
      prepare(state->settings, caps, jurn::gst::block_for(base, frames, JURN_CONVOLUTION_BLOCK));
  if (caps.is_float)
    return std::make_unique<ConvolveBlocks<float>>(&state->handover, std::move(first));
  return std::make_unique<ConvolveBlocks<short>>(&state->handover, std::move(first));
}

/** Changes the settings by `change`. While audio runs, the new response is prepared at once; an
 * error leaves the old one, and what the properties say, as it was. */
template <typename Change>
static void change_settings(GstJurnConvolve* self, Change change) {
  State* const state = self->state;
  std::vector<std::string> warnings;
  const Caps caps = jurn::gst::current_caps(&self->parent);
  const int block = jurn::gst::current_block(&self->parent);
  {
    const std::lock_guard<std::mutex> lock(state->mutex);
    Settings changed = state->settings;
    try {
      change(&changed);
      Pairs pairs;
      if (!changed.routes.empty())
        pairs = {jurn::count_routes(changed.routes)};
      else if (!changed.location.empty())
        pairs = pairs_of(jurn::count_channels(changed.location));
      if (block) state->handover.offer(prepare(changed, caps, block));
      state->settings = std::move(changed);
      state->pairs = std::move(pairs);
      state->problem.clear();
    } catch (const std::exception& error) {
      if (!block) state->problem = error.what();
      warnings = {error.what()};
    }
  }
  jurn::gst::post_warnings(GST_ELEMENT(self), warnings);
}

static GstCaps* transform_caps(GstBaseTransform* transform, GstPadDirection direction,
                               GstCaps* caps, GstCaps* filter) {
  State* const state = reinterpret_cast<GstJurnConvolve*>(transform)->state;
  Pairs pairs;
  {
    const std::lock_guard<std::mutex> lock(state->mutex);
    pairs = state->pairs;
  }
  if (pairs.empty())
    return filter ? gst_caps_intersect_full(filter, caps, GST_CAPS_INTERSECT_FIRST)
                  : gst_caps_ref(caps);
  GstCaps* const result = gst_caps_new_empty();
  for (const auto& [in, out] : pairs) {
    const int from = direction == GST_PAD_SINK ? in : out;
    const int to = direction == GST_PAD_SINK ? out : in;
    GstCaps* const wanted =
        gst_caps_new_simple("audio/x-raw", "channels", G_TYPE_INT, from, nullptr);
    GstCaps* const possible = gst_caps_intersect(caps, wanted);
    if (from == to)
      gst_caps_append(result,
                      filter ? gst_caps_intersect_full(filter, possible, GST_CAPS_INTERSECT_FIRST)
                             : gst_caps_ref(possible));
    else
      gst_caps_append(
          result, jurn::gst::with_channels(possible, filter, to,
                                           direction == GST_PAD_SINK ? GST_PAD_SRC : GST_PAD_SINK));
    gst_caps_unref(possible);
    gst_caps_unref(wanted);
  }
  return result;
}

static void set_property(GObject* object, guint id, const GValue* value, GParamSpec* spec) {
  auto* const self = reinterpret_cast<GstJurnConvolve*>(object);
  const auto text = [&] {
    const char* const string = g_value_get_string(value);
    return std::string(string ? string : "");
  };
  switch (id) {
    case kLocation:
      return change_settings(self, [&](Settings* s) { s->location = text(); });
    case kRoutes:
      return change_settings(self, [&](Settings* s) { s->routes = text(); });
    case kGain:
      return change_settings(self, [&](Settings* s) { s->gain_db = g_value_get_double(value); });
    case kNormalise:
      return change_settings(self, [&](Settings* s) { s->normalise = g_value_get_boolean(value); });
    case kResample:
      return change_settings(self, [&](Settings* s) { s->resample = g_value_get_boolean(value); });
    default:
      if (!jurn::gst::set_blocks_property(object, id, value))
        G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, spec);
  }
}

static void get_property(GObject* object, guint id, GValue* value, GParamSpec* spec) {
  State* const state = reinterpret_cast<GstJurnConvolve*>(object)->state;
  if (jurn::gst::get_blocks_property(object, id, value)) return;
  const std::lock_guard<std::mutex> lock(state->mutex);
  switch (id) {
    case kLocation:
      return g_value_set_string(value, state->settings.location.c_str());
    case kRoutes:
      return g_value_set_string(value, state->settings.routes.c_str());
    case kGain:
      return g_value_set_double(value, state->settings.gain_db);
    case kNormalise:
      return g_value_set_boolean(value, state->settings.normalise);
    case kResample:
      return g_value_set_boolean(value, state->settings.resample);
    default:
      G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, spec);
  }
}

static void finalize(GObject* object) {
  // The stream gives its response back to the state.
  jurn::gst::end_stream(GST_JURN_BLOCKS(object));
  delete reinterpret_cast<GstJurnConvolve*>(object)->state;
  G_OBJECT_CLASS(gst_jurn_convolve_parent_class)->finalize(object);
}

static void gst_jurn_convolve_init(GstJurnConvolve* self) {
  self->state = new State;
}

static void gst_jurn_convolve_class_init(GstJurnConvolveClass* klass) {
  GObjectClass* const object_class = G_OBJECT_CLASS(klass);
  object_class->set_property = set_property;
  object_class->get_property = get_property;
  object_class->finalize = finalize;

  constexpr auto flags = static_cast<GParamFlags>(G_PARAM_READWRITE | G_PARAM_STATIC_STRINGS |
                                                  GST_PARAM_MUTABLE_PLAYING);
  const auto install = [&](Property id, GParamSpec* spec) {
    g_object_class_install_property(object_class, id, spec);
  };
  install(kLocation, g_param_spec_string(
                         "location", "Location",
                         "Impulse response: one channel for all; one for each channel, or for "
                         "both ears of a mono stream; or four for stereo, left to left, left to "
                         "right, right to left, right to right",
                         nullptr, flags));
  install(kRoutes, g_param_spec_string("routes", "Routes",
                                       "File of routes between any channels, as jurn-filter reads "
                                       "it; replaces location",
                                       nullptr, flags));
  install(kGain, g_param_spec_double("gain", "Gain", "Gain in dB", -200.0, 200.0, 0.0, flags));
  install(kNormalise, g_param_spec_boolean("normalise", "Normalise",
                                           "Scale the largest gain over all frequencies to 0 dB",
                                           FALSE, flags));
  install(kResample,
          g_param_spec_boolean("resample", "Resample",
                               "Convert an impulse response at another rate than the stream's",
                               FALSE, flags));
  jurn::gst::install_blocks_properties(object_class);

  GstElementClass* const element_class = GST_ELEMENT_CLASS(klass);
  gst_element_class_set_static_metadata(
      element_class, "JURN convolution", "Filter/Effect/Audio",
      "Convolves with impulse responses of any length without latency", "the JURN authors");
  jurn::gst::add_pad_templates(element_class, kCaps, kCaps);
  GST_BASE_TRANSFORM_CLASS(klass)->transform_caps = transform_caps;
  GST_JURN_BLOCKS_CLASS(klass)->make = make;
}
