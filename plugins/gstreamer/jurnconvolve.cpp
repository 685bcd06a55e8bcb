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
#include <cstring>
#include <utility>

#include "blocks.h"
#include "convolution_source.h"

using jurn::gst::ConvolutionSource;
using jurn::gst::PreparedConvolution;
using jurn::gst::StreamFormat;

namespace {

enum Property { kLocation = 1, kRoutes, kGain, kNormalise, kResample };

constexpr char kCaps[] = GST_AUDIO_CAPS_MAKE("{ " GST_AUDIO_NE(S16) ", " GST_AUDIO_NE(
    F32) " }") ", layout = (string) interleaved, channels = (int) [ 1, 16 ]";

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
  ConvolveBlocks(GstElement* element, ConvolutionSource* source,
                 std::unique_ptr<PreparedConvolution> first)
      : element_(element), source_(source), current_(first.release()), other_(values()) {}
  ~ConvolveBlocks() override { source_->give_back(current_); }

  void process(const void* input, void* output, GstClockTime time) override {
    if (GST_CLOCK_TIME_IS_VALID(time)) gst_object_sync_values(GST_OBJECT(element_), time);
    source_->settle();
    const auto* const in = static_cast<const Sample*>(input);
    auto* const out = static_cast<Sample*>(output);
    auto* const next = source_->take<PreparedConvolution>();
    if (!next) return run(*current_, in, out);
    if (next->shape.taps == current_->shape.taps) {
      fade(*current_, *next, in, out);
      std::swap(current_->stream, next->stream);
      std::swap(current_->copy, next->copy);
    } else {
      // A stream of another length starts from silence; both run over this block.
      run(*next, in, other_.data());
      run(*current_, in, out);
      mix(out);
    }
    source_->give_back(std::exchange(current_, next));
  }

  void preview(const void* input, void* output) override {
    current_->stream.swap(current_->copy);
    std::memcpy(current_->stream->get(), current_->copy->get(),
                MORVAX_ConvolutionStreamSize_API(&current_->shape));
    run(*current_, static_cast<const Sample*>(input), static_cast<Sample*>(output));
    current_->stream.swap(current_->copy);
  }

  void reset() override { MORVAX_ConvolutionReset_API(current_->stream->get()); }
  std::int64_t tail() const override { return current_->taps - 1; }

 private:
  std::size_t values() const {
    return static_cast<std::size_t>(current_->shape.block * current_->shape.outputs);
  }

  /** From `out` to the other one over the block. */
  void mix(Sample* out) const {
    const int block = current_->shape.block, outputs = current_->shape.outputs;
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

  GstElement* element_;
  ConvolutionSource* source_;
  PreparedConvolution* current_;
  std::vector<Sample> other_;
};

}  // namespace

struct GstJurnConvolve {
  GstJurnBlocks parent;
};
struct GstJurnConvolveClass {
  GstJurnBlocksClass parent_class;
};

G_DEFINE_TYPE_WITH_CODE(GstJurnConvolve, gst_jurn_convolve, GST_TYPE_JURN_BLOCKS,
                        G_IMPLEMENT_INTERFACE(GST_TYPE_PRESET, jurn::gst::add_presets))
GST_ELEMENT_REGISTER_DEFINE(jurnconvolve, "jurnconvolve", GST_RANK_NONE, GST_TYPE_JURN_CONVOLVE)

static ConvolutionSource* source_of(gpointer object) {
  return static_cast<ConvolutionSource*>(jurn::gst::preparer_of(GST_JURN_BLOCKS(object)));
}

static std::unique_ptr<jurn::gst::Blocks> make(GstJurnBlocks* base, const StreamFormat& format) {
  ConvolutionSource* const source = source_of(base);
  auto first = source->first<PreparedConvolution>("no impulse response: set location or routes");
  if (format.is_float)
    return std::make_unique<ConvolveBlocks<float>>(GST_ELEMENT(base), source, std::move(first));
  return std::make_unique<ConvolveBlocks<short>>(GST_ELEMENT(base), source, std::move(first));
}

static GstCaps* transform_caps(GstBaseTransform* transform, GstPadDirection direction,
                               GstCaps* caps, GstCaps* filter) {
  const jurn::gst::ChannelPairs pairs = source_of(transform)->pairs();
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
  ConvolutionSource* const source = source_of(object);
  const auto change = [&](auto what) { source->change(what); };
  using Settings = jurn::gst::ConvolutionSettings;
  switch (id) {
    case kLocation:
      return change([&](Settings* s) { s->set_location(jurn::gst::text_of(value)); });
    case kRoutes:
      return change([&](Settings* s) { s->set_routes(jurn::gst::text_of(value)); });
    case kGain:
      return change([&](Settings* s) { s->gain_db = g_value_get_double(value); });
    case kNormalise:
      return change([&](Settings* s) { s->normalise = g_value_get_boolean(value); });
    case kResample:
      return change([&](Settings* s) { s->resample = g_value_get_boolean(value); });
    default:
      if (!jurn::gst::set_blocks_property(object, id, value))
        G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, spec);
  }
}

static void get_property(GObject* object, guint id, GValue* value, GParamSpec* spec) {
  if (jurn::gst::get_blocks_property(object, id, value)) return;
  const jurn::gst::ConvolutionSettings settings = source_of(object)->settings();
  switch (id) {
    case kLocation:
      return g_value_set_string(value, settings.location.c_str());
    case kRoutes:
      return g_value_set_string(value, settings.routes.c_str());
    case kGain:
      return g_value_set_double(value, settings.gain_db);
    case kNormalise:
      return g_value_set_boolean(value, settings.normalise);
    case kResample:
      return g_value_set_boolean(value, settings.resample);
    default:
      G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, spec);
  }
}

static void gst_jurn_convolve_init(GstJurnConvolve* self) {
  jurn::gst::set_preparer(&self->parent, std::make_unique<ConvolutionSource>(GST_ELEMENT(self)));
}

static void gst_jurn_convolve_class_init(GstJurnConvolveClass* klass) {
  GObjectClass* const object_class = G_OBJECT_CLASS(klass);
  object_class->set_property = set_property;
  object_class->get_property = get_property;

  constexpr auto flags = static_cast<GParamFlags>(G_PARAM_READWRITE | G_PARAM_STATIC_STRINGS |
                                                  GST_PARAM_MUTABLE_PLAYING);
  const auto install = [&](Property id, GParamSpec* spec) {
    g_object_class_install_property(object_class, id, spec);
  };
  install(kLocation, g_param_spec_string(
                         "location", "Location",
                         "Impulse response: one channel for all; one for each channel, or for "
                         "both ears of a mono stream; or four for stereo, left to left, left to "
                         "right, right to left, right to right; replaces routes",
                         nullptr, flags));
  install(kRoutes, g_param_spec_string("routes", "Routes",
                                       "File of routes between any channels, as jurn-filter reads "
                                       "it; replaces location",
                                       nullptr, flags));
  install(kGain, g_param_spec_double("gain", "Gain", "Gain in dB", -200.0, 200.0, 0.0,
                                     static_cast<GParamFlags>(flags | GST_PARAM_CONTROLLABLE)));
  install(kNormalise, g_param_spec_boolean("normalise", "Normalise",
                                           "Scale the largest gain over all frequencies to 0 dB",
                                           FALSE, flags));
  install(kResample,
          g_param_spec_boolean("resample", "Resample",
                               "Convert an impulse response at another rate than the stream's",
                               FALSE, flags));
  jurn::gst::install_blocks_properties(object_class, JURN_CONVOLUTION_BLOCK);

  GstElementClass* const element_class = GST_ELEMENT_CLASS(klass);
  gst_element_class_set_static_metadata(
      element_class, "JURN convolution", "Filter/Effect/Audio",
      "Convolves with impulse responses of any length without latency", "the JURN authors");
  jurn::gst::add_pad_templates(element_class, kCaps, kCaps);
  GST_BASE_TRANSFORM_CLASS(klass)->transform_caps = transform_caps;
  GST_JURN_BLOCKS_CLASS(klass)->make = make;
}
