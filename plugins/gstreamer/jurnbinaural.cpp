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

#include <mutex>
#include <stdexcept>
#include <utility>

#include "Filter_control.h"
#include "handover.h"
#include "impulse_responses/hrtf_set.h"

using jurn::gst::Caps;

namespace {

enum Property { kSofa = 1, kAzimuth, kElevation, kGain };

constexpr char kSinkCaps[] =
    GST_AUDIO_CAPS_MAKE(GST_AUDIO_NE(S16)) ", layout = (string) interleaved, channels = (int) 1";
constexpr char kSourceCaps[] = GST_AUDIO_CAPS_MAKE(GST_AUDIO_NE(
    S16)) ", layout = (string) interleaved, channels = (int) 2, channel-mask = (bitmask) 0x3";

/** Degrees and dB, written by any thread. */
struct Place {
  std::atomic<double> azimuth{0.0}, elevation{0.0}, gain_db{0.0};
};

/** A set of responses that is passed to the streaming thread. */
struct PreparedSet {
  PreparedSet(const std::string& path, int rate) : set(path, rate) {}
  jurn::HrtfSet set;
  PreparedSet* next = nullptr;
};

using SetHandover = jurn::gst::Handover<PreparedSet>;

/** The long filter in the time domain, which fades within exactly one block. */
class BinauralBlocks final : public jurn::gst::Blocks {
 public:
  BinauralBlocks(GstElement* element, const Place* place, SetHandover* sets,
                 std::unique_ptr<PreparedSet> first, int frames)
      : Blocks(1, 2, frames),
        element_(element),
        place_(place),
        sets_(sets),
        set_(first.release()),
        filter_(std::make_unique<Filterlongfir_ID>()) {
    filter_->chanel = JURN_MONO;
    filter_->filtertype = JURN_LONG_MONO_TO_STEREO;
    filter_->blen = filter_->bRlen = set_->set.taps();
    reset();
  }
  ~BinauralBlocks() override { sets_->give_back(set_); }

  void process(const void* in, void* out, GstClockTime time) override {
    if (GST_CLOCK_TIME_IS_VALID(time)) gst_object_sync_values(GST_OBJECT(element_), time);
    PreparedSet* const next = sets_->take();
    if (next) sets_->give_back(std::exchange(set_, next));
    const Direction wanted = direction();
    if (next || wanted != heard_) {
      MORVAX_FilterlongfirCalcu_APItime(filter_.get());  // keeps the old taps for the fade
      set_taps(wanted);
    }
    MORVAX_FilterlongfirRun_API(filter_.get(), static_cast<const short*>(in), block,
                                static_cast<short*>(out));
  }

  void reset() override {
    MORVAX_FilterlongfirReset_API(filter_.get());
    set_taps(direction());
    MORVAX_FilterlongfirCalcu_APItime(filter_.get());
  }

  std::int64_t tail() const override { return filter_->blen - 1; }

 private:
  struct Direction {
    double azimuth, elevation, gain_db;
    bool operator!=(const Direction& other) const {
      return azimuth != other.azimuth || elevation != other.elevation || gain_db != other.gain_db;
    }
  };

  Direction direction() const { return {place_->azimuth, place_->elevation, place_->gain_db}; }

  void set_taps(const Direction& wanted) {
    filter_->blen = filter_->bRlen = set_->set.taps();
    set_->set.taps_at(wanted.azimuth, wanted.elevation, std::pow(10.0, wanted.gain_db / 20.0),
                      filter_->b, filter_->bR);
    heard_ = wanted;
  }

  GstElement* element_;
  const Place* place_;
  SetHandover* sets_;
  PreparedSet* set_;
  std::unique_ptr<Filterlongfir_ID> filter_;
  Direction heard_{};
};

struct State {
  std::mutex mutex;
  std::string sofa = JURN_DEFAULT_SOFA;
  SetHandover sets;
  Place place;
};

}  // namespace

struct GstJurnBinaural {
  GstJurnBlocks parent;
  State* state;
};
struct GstJurnBinauralClass {
  GstJurnBlocksClass parent_class;
};

G_DEFINE_TYPE(GstJurnBinaural, gst_jurn_binaural, GST_TYPE_JURN_BLOCKS)
GST_ELEMENT_REGISTER_DEFINE(jurnbinaural, "jurnbinaural", GST_RANK_NONE, GST_TYPE_JURN_BINAURAL)

static std::unique_ptr<jurn::gst::Blocks> make(GstJurnBlocks* base, const Caps& caps, int frames) {
  State* const state = reinterpret_cast<GstJurnBinaural*>(base)->state;
  const std::lock_guard<std::mutex> lock(state->mutex);
  if (state->sofa.empty())
    throw std::runtime_error("no set of responses is installed; name one by the property sofa");
  return std::make_unique<BinauralBlocks>(GST_ELEMENT(base), &state->place, &state->sets,
                                          std::make_unique<PreparedSet>(state->sofa, caps.rate),
                                          jurn::gst::block_for(base, frames, JURN_BLOCK));
}

static GstCaps* transform_caps(GstBaseTransform*, GstPadDirection direction, GstCaps* caps,
                               GstCaps* filter) {
  return direction == GST_PAD_SINK ? jurn::gst::with_channels(caps, filter, 2, GST_PAD_SRC)
                                   : jurn::gst::with_channels(caps, filter, 1, GST_PAD_SINK);
}

static void set_sofa(GstJurnBinaural* self, const char* path) {
  std::vector<std::string> warnings;
  const int rate = jurn::gst::current_caps(&self->parent).rate;
  {
    const std::lock_guard<std::mutex> lock(self->state->mutex);
    const std::string next = path ? path : "";
    try {
      if (rate) self->state->sets.offer(std::make_unique<PreparedSet>(next, rate));
      self->state->sofa = next;
    } catch (const std::exception& error) {
      warnings = {error.what()};
    }
  }
  jurn::gst::post_warnings(GST_ELEMENT(self), warnings);
}

static void set_property(GObject* object, guint id, const GValue* value, GParamSpec* spec) {
  GstJurnBinaural* const self = reinterpret_cast<GstJurnBinaural*>(object);
  Place* const place = &self->state->place;
  switch (id) {
    case kSofa:
      return set_sofa(self, g_value_get_string(value));
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
  State* const state = reinterpret_cast<GstJurnBinaural*>(object)->state;
  switch (id) {
    case kSofa: {
      const std::lock_guard<std::mutex> lock(state->mutex);
      return g_value_set_string(value, state->sofa.c_str());
    }
    case kAzimuth:
      return g_value_set_double(value, state->place.azimuth);
    case kElevation:
      return g_value_set_double(value, state->place.elevation);
    case kGain:
      return g_value_set_double(value, state->place.gain_db);
    default:
      if (!jurn::gst::get_blocks_property(object, id, value))
        G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, spec);
  }
}

static void finalize(GObject* object) {
  // The stream gives its set back to the state.
  jurn::gst::end_stream(GST_JURN_BLOCKS(object));
  delete reinterpret_cast<GstJurnBinaural*>(object)->state;
  G_OBJECT_CLASS(gst_jurn_binaural_parent_class)->finalize(object);
}

static void gst_jurn_binaural_init(GstJurnBinaural* self) {
  self->state = new State;
}

static void gst_jurn_binaural_class_init(GstJurnBinauralClass* klass) {
  GObjectClass* const object_class = G_OBJECT_CLASS(klass);
  object_class->set_property = set_property;
  object_class->get_property = get_property;
  object_class->finalize = finalize;

  constexpr auto flags = static_cast<GParamFlags>(G_PARAM_READWRITE | G_PARAM_STATIC_STRINGS |
                                                  GST_PARAM_MUTABLE_PLAYING);
  constexpr auto controllable = static_cast<GParamFlags>(flags | GST_PARAM_CONTROLLABLE);
  const auto install = [&](Property id, GParamSpec* spec) {
    g_object_class_install_property(object_class, id, spec);
  };
  install(kSofa, g_param_spec_string("sofa", "SOFA file", "Set of head-related impulse responses",
                                     JURN_DEFAULT_SOFA, flags));
  install(kAzimuth, g_param_spec_double("azimuth", "Azimuth", "Degrees: 0 in front, 90 to the left",
                                        -36000.0, 36000.0, 0.0, controllable));
  install(kElevation, g_param_spec_double("elevation", "Elevation", "Degrees: 90 above, -90 below",
                                          -90.0, 90.0, 0.0, controllable));
  install(kGain,
          g_param_spec_double("gain", "Gain", "Gain in dB", -200.0, 200.0, 0.0, controllable));
  jurn::gst::install_blocks_properties(object_class);

  GstElementClass* const element_class = GST_ELEMENT_CLASS(klass);
  gst_element_class_set_static_metadata(element_class, "JURN binaural", "Filter/Effect/Audio",
                                        "Places a mono source around a listener with headphones",
                                        "the JURN authors");
  jurn::gst::add_pad_templates(element_class, kSinkCaps, kSourceCaps);
  GST_BASE_TRANSFORM_CLASS(klass)->transform_caps = transform_caps;
  GST_JURN_BLOCKS_CLASS(klass)->make = make;
}
