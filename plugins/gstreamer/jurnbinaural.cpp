/**
 * SECTION:element-jurnbinaural
 *
 * Places a mono source around a listener with headphones.
 *
 * |[
 * gst-launch-1.0 filesrc location=voice.wav ! decodebin ! audioconvert ! jurnbinaural azimuth=90 !
 *   autoaudiosink
 * ]|
 */
#include "jurnbinaural.h"

#include <atomic>
#include <cmath>
#include <cstring>
#include <mutex>
#include <stdexcept>
#include <utility>

#include "Filter_control.h"
#include "blocks.h"
#include "impulse_responses/hrtf_set.h"
#include "streams/convolve.h"

using jurn::gst::StreamFormat;

namespace {

enum Property { kSofa = 1, kAzimuth, kElevation, kGain };

constexpr char kFormats[] = GST_AUDIO_CAPS_MAKE("{ " GST_AUDIO_NE(S16) ", " GST_AUDIO_NE(
    F32) " }") ", layout = (string) interleaved, channels = (int) ";

// The longest responses for floats, which are prepared anew within a block when the voice moves.
constexpr int kFloatTaps = 8192;

/** Degrees and dB, written by any thread. */
struct Place {
  std::atomic<double> azimuth{0.0}, elevation{0.0}, gain_db{0.0};
};

struct Direction {
  double azimuth, elevation, gain_db;
  bool operator!=(const Direction& other) const {
    return azimuth != other.azimuth || elevation != other.elevation || gain_db != other.gain_db;
  }
};

/** A set of responses. */
struct PreparedSet : jurn::gst::Offer {
  PreparedSet(const std::string& path, int rate) : set(path, rate) {}
  jurn::HrtfSet set;
};

/** Reads the sets, and knows where the voice is. */
class SetSource final : public jurn::gst::Preparer {
 public:
  using Preparer::Preparer;

  void set_sofa(const std::string& path) {
    {
      const std::lock_guard<std::mutex> lock(mutex_);
      sofa_ = path;
      ++version_;
    }
    request();
  }
  std::string sofa() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return sofa_;
  }
  Direction direction() const { return {place.azimuth, place.elevation, place.gain_db}; }

  Place place;

 private:
  std::unique_ptr<jurn::gst::Offer> prepare(const StreamFormat& format,
                                            std::vector<std::string>*) override {
    {
      const std::lock_guard<std::mutex> lock(mutex_);
      tried_ = sofa_;
      tried_version_ = version_;
    }
    if (tried_.empty()) return nullptr;
    // A set that was read while no stream ran is kept for the one that comes.
    const int rate = format.rate ? format.rate : kUsualRate;
    const gint64 written = jurn::gst::time_of_writing(tried_);
    if (!ahead_ || ahead_rate_ != rate || ahead_version_ != tried_version_ ||
        ahead_written_ != written)
      ahead_ = std::make_unique<PreparedSet>(tried_, rate);
    ahead_rate_ = rate;
    ahead_version_ = tried_version_;
    ahead_written_ = written;
    if (format.is_float && ahead_->set.taps() > kFloatTaps)
      throw std::runtime_error(tried_ + ": has responses of " + std::to_string(ahead_->set.taps()) +
                               " taps; the limit for floats is " + std::to_string(kFloatTaps));
    return format.block ? std::move(ahead_) : nullptr;
  }

  void settled(bool well) override {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (well)
      good_ = tried_;
    else if (version_ == tried_version_)
      sofa_ = good_;
  }

  static constexpr int kUsualRate = 48000;

  mutable std::mutex mutex_;
  std::string sofa_ = JURN_DEFAULT_SOFA;
  guint64 version_ = 0;  // changes of it

  // The worker's own.
  std::string tried_, good_;
  guint64 tried_version_ = 0;
  std::unique_ptr<PreparedSet> ahead_;
  int ahead_rate_ = 0;
  guint64 ahead_version_ = 0;
  gint64 ahead_written_ = 0;
};

/** Follows the place and the newest set. */
class BinauralBlocks : public jurn::gst::Blocks {
 public:
  BinauralBlocks(GstElement* element, SetSource* source, std::unique_ptr<PreparedSet> first)
      : element_(element), source_(source), set_(first.release()) {}
  ~BinauralBlocks() override { source_->give_back(set_); }

  std::int64_t tail() const override { return set_->set.taps() - 1; }

 protected:
  /** Whether taps for another direction, or from another set, are due in this block. */
  bool moves(GstClockTime time) {
    if (GST_CLOCK_TIME_IS_VALID(time)) gst_object_sync_values(GST_OBJECT(element_), time);
    source_->settle();
    auto* const next = source_->take<PreparedSet>();
    if (next) source_->give_back(std::exchange(set_, next));
    return next || source_->direction() != heard_;
  }
  void look_up(float* left, float* right) {
    heard_ = source_->direction();
    set_->set.taps_at(heard_.azimuth, heard_.elevation, std::pow(10.0, heard_.gain_db / 20.0), left,
                      right);
  }
  int taps() const { return set_->set.taps(); }

 private:
  GstElement* element_;
  SetSource* source_;
  PreparedSet* set_;
  Direction heard_{};
};

/** 16 bits: the long filter in the time domain, which fades within exactly one block. */
class Int16Binaural final : public BinauralBlocks {
 public:
  Int16Binaural(GstElement* element, SetSource* source, std::unique_ptr<PreparedSet> first,
                int block)
      : BinauralBlocks(element, source, std::move(first)),
        block_(block),
        filter_(std::make_unique<Filterlongfir_ID>()),
        copy_(std::make_unique<Filterlongfir_ID>()) {
    filter_->chanel = JURN_MONO;
    filter_->filtertype = JURN_LONG_MONO_TO_STEREO;
    filter_->blen = filter_->bRlen = taps();
    reset();
  }

  void process(const void* in, void* out, GstClockTime time) override {
    if (moves(time)) {
      MORVAX_FilterlongfirCalcu_APItime(filter_.get());  // keeps the old taps for the fade
      set_taps();
    }
    run(filter_.get(), in, out);
  }

  void preview(const void* in, void* out) override {
    *copy_ = *filter_;
    run(copy_.get(), in, out);
  }

  void reset() override {
    MORVAX_FilterlongfirReset_API(filter_.get());
    set_taps();
    MORVAX_FilterlongfirCalcu_APItime(filter_.get());
  }

 private:
  void set_taps() {
    filter_->blen = filter_->bRlen = taps();
    look_up(filter_->b, filter_->bR);
  }
  void run(Filterlongfir_ID* filter, const void* in, void* out) const {
    MORVAX_FilterlongfirRun_API(filter, static_cast<const short*>(in), block_,
                                static_cast<short*>(out));
  }

  int block_;
  std::unique_ptr<Filterlongfir_ID> filter_, copy_;
};

/** Floats: the convolution, whose responses, as short as these, are prepared within a block. */
class FloatBinaural final : public BinauralBlocks {
 public:
  FloatBinaural(GstElement* element, SetSource* source, std::unique_ptr<PreparedSet> first,
                int block)
      : BinauralBlocks(element, source, std::move(first)),
        shape_{1, 2, block, kFloatTaps},
        stream_(std::make_unique<jurn::ConvolutionStream>(shape_)),
        copy_(std::make_unique<jurn::ConvolutionStream>(shape_)) {
    jurn::Routing both{1, 2, {{0, 0, {}}, {0, 1, {}}}};
    for (jurn::Route& route : both.routes) route.taps.resize(kFloatTaps);
    for (auto& response : responses_)
      response = std::make_unique<jurn::ConvolutionResponse>(shape_, both);
    ears_.resize(2 * kFloatTaps);
    reset();
  }

  void process(const void* in, void* out, GstClockTime time) override {
    const auto* const input = static_cast<const float*>(in);
    auto* const output = static_cast<float*>(out);
    if (!moves(time))
      return MORVAX_ConvolutionRun_API_float(stream_->get(), responses_[0]->get(), input, output);
    prepare(responses_[1].get());
    MORVAX_ConvolutionFade_API_float(stream_->get(), responses_[0]->get(), responses_[1]->get(),
                                     input, output);
    responses_[0].swap(responses_[1]);
  }

  void preview(const void* in, void* out) override {
    std::memcpy(copy_->get(), stream_->get(), MORVAX_ConvolutionStreamSize_API(&shape_));
    MORVAX_ConvolutionRun_API_float(copy_->get(), responses_[0]->get(),
                                    static_cast<const float*>(in), static_cast<float*>(out));
  }

  void reset() override {
    MORVAX_ConvolutionReset_API(stream_->get());
    prepare(responses_[0].get());
  }

 private:
  /** Writes the taps of the direction into a response; allocates nothing. */
  void prepare(jurn::ConvolutionResponse* response) {
    look_up(ears_.data(), ears_.data() + kFloatTaps);
    const Convolution_route routes[] = {{0, 0, ears_.data(), taps()},
                                        {0, 1, ears_.data() + kFloatTaps, taps()}};
    response->set(shape_, routes, 2);
  }

  Convolution_shape shape_;
  std::unique_ptr<jurn::ConvolutionStream> stream_, copy_;
  std::unique_ptr<jurn::ConvolutionResponse> responses_[2];  // what runs, and the next one
  std::vector<float> ears_;
};

}  // namespace

struct GstJurnBinaural {
  GstJurnBlocks parent;
};
struct GstJurnBinauralClass {
  GstJurnBlocksClass parent_class;
};

G_DEFINE_TYPE_WITH_CODE(GstJurnBinaural, gst_jurn_binaural, GST_TYPE_JURN_BLOCKS,
                        G_IMPLEMENT_INTERFACE(GST_TYPE_PRESET, jurn::gst::add_presets))
GST_ELEMENT_REGISTER_DEFINE(jurnbinaural, "jurnbinaural", GST_RANK_NONE, GST_TYPE_JURN_BINAURAL)

static SetSource* source_of(gpointer object) {
  return static_cast<SetSource*>(jurn::gst::preparer_of(GST_JURN_BLOCKS(object)));
}

static std::unique_ptr<jurn::gst::Blocks> make(GstJurnBlocks* base, const StreamFormat& format) {
  SetSource* const source = source_of(base);
  auto first =
      source->first<PreparedSet>("no set of responses is installed; name one by the property sofa");
  if (format.is_float)
    return std::make_unique<FloatBinaural>(GST_ELEMENT(base), source, std::move(first),
                                           format.block);
  return std::make_unique<Int16Binaural>(GST_ELEMENT(base), source, std::move(first), format.block);
}

static GstCaps* transform_caps(GstBaseTransform*, GstPadDirection direction, GstCaps* caps,
                               GstCaps* filter) {
  return direction == GST_PAD_SINK ? jurn::gst::with_channels(caps, filter, 2, GST_PAD_SRC)
                                   : jurn::gst::with_channels(caps, filter, 1, GST_PAD_SINK);
}

static void set_property(GObject* object, guint id, const GValue* value, GParamSpec* spec) {
  Place* const place = &source_of(object)->place;
  switch (id) {
    case kSofa:
      return source_of(object)->set_sofa(jurn::gst::text_of(value));
    case kAzimuth:
      place->azimuth = g_value_get_double(value);
      return;
    case kElevation:
      place->elevation = g_value_get_double(value);
      return;
    case kGain:
      place->gain_db = g_value_get_double(value);
      return;
    default:
      if (!jurn::gst::set_blocks_property(object, id, value))
        G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, spec);
  }
}

static void get_property(GObject* object, guint id, GValue* value, GParamSpec* spec) {
  SetSource* const source = source_of(object);
  switch (id) {
    case kSofa:
      return g_value_set_string(value, source->sofa().c_str());
    case kAzimuth:
      return g_value_set_double(value, source->place.azimuth);
    case kElevation:
      return g_value_set_double(value, source->place.elevation);
    case kGain:
      return g_value_set_double(value, source->place.gain_db);
    default:
      if (!jurn::gst::get_blocks_property(object, id, value))
        G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, spec);
  }
}

static void gst_jurn_binaural_init(GstJurnBinaural* self) {
  jurn::gst::set_preparer(&self->parent, std::make_unique<SetSource>(GST_ELEMENT(self)));
}

static void gst_jurn_binaural_class_init(GstJurnBinauralClass* klass) {
  GObjectClass* const object_class = G_OBJECT_CLASS(klass);
  object_class->set_property = set_property;
  object_class->get_property = get_property;

  constexpr auto flags = static_cast<GParamFlags>(G_PARAM_READWRITE | G_PARAM_STATIC_STRINGS |
                                                  GST_PARAM_MUTABLE_PLAYING);
  constexpr auto controllable = static_cast<GParamFlags>(flags | GST_PARAM_CONTROLLABLE);
  const auto install = [&](Property id, GParamSpec* spec) {
    g_object_class_install_property(object_class, id, spec);
  };
  install(kSofa, g_param_spec_string("sofa", "SOFA file", "Set of head-related impulse responses",
                                     JURN_DEFAULT_SOFA, flags));
  install(kAzimuth, g_param_spec_double("azimuth", "Azimuth", "Degrees: 0 in front, 90 to the left",
                                        -3600.0, 3600.0, 0.0, controllable));
  install(kElevation, g_param_spec_double("elevation", "Elevation", "Degrees: 90 above, -90 below",
                                          -90.0, 90.0, 0.0, controllable));
  install(kGain,
          g_param_spec_double("gain", "Gain", "Gain in dB", -200.0, 200.0, 0.0, controllable));
  jurn::gst::install_blocks_properties(object_class, JURN_BLOCK);

  GstElementClass* const element_class = GST_ELEMENT_CLASS(klass);
  gst_element_class_set_static_metadata(element_class, "JURN binaural", "Filter/Effect/Audio",
                                        "Places a mono source around a listener with headphones",
                                        "the JURN authors");
  jurn::gst::add_pad_templates(element_class, (std::string(kFormats) + "1").c_str(),
                               (std::string(kFormats) + "2, channel-mask = (bitmask) 0x3").c_str());
  GST_BASE_TRANSFORM_CLASS(klass)->transform_caps = transform_caps;
  GST_JURN_BLOCKS_CLASS(klass)->make = make;
}
