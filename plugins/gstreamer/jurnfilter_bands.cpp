#include "jurnfilter_bands.h"

#include <cmath>
#include <string>

using jurn::EqualiserFilter;
using jurn::EqualiserType;
using jurn::gst::FilterPreparer;

struct GstJurnFilterBand {
  GstObject parent;
  FilterPreparer* preparer;  // of the element that is the parent; null when that is gone
  guint index;
};
struct GstJurnFilterBandClass {
  GstObjectClass parent_class;
};

static GType gst_jurn_filter_band_get_type();
G_DEFINE_TYPE(GstJurnFilterBand, gst_jurn_filter_band, GST_TYPE_OBJECT)

namespace {

enum Property { kFrequency = 1, kGain, kQ, kTypeOfBand, kTargetFrequency, kTargetQ };

GType band_type() {
  static const GEnumValue values[] = {
      {static_cast<gint>(EqualiserType::kPeak), "Peak or dip", "peak"},
      {static_cast<gint>(EqualiserType::kLowShelf), "Low shelf", "low-shelf"},
      {static_cast<gint>(EqualiserType::kHighShelf), "High shelf", "high-shelf"},
      {static_cast<gint>(EqualiserType::kLowPass), "Low-pass", "low-pass"},
      {static_cast<gint>(EqualiserType::kHighPass), "High-pass", "high-pass"},
      {static_cast<gint>(EqualiserType::kBandPass), "Band-pass", "band-pass"},
      {static_cast<gint>(EqualiserType::kNotch), "Notch", "notch"},
      {static_cast<gint>(EqualiserType::kAllPass), "All-pass", "all-pass"},
      {static_cast<gint>(EqualiserType::kTilt), "Tilt around the frequency", "tilt"},
      {static_cast<gint>(EqualiserType::kLinkwitzTransform), "Linkwitz transform",
       "linkwitz-transform"},
      {0, nullptr, nullptr}};
  static const GType type = g_enum_register_static("GstJurnFilterBandType", values);
  return type;
}

bool is_pass(EqualiserType type) {
  return type == EqualiserType::kLowPass || type == EqualiserType::kHighPass;
}

void set_width(EqualiserFilter* band, double q) {
  band->q = q;
  band->octaves = 0.0;
  band->order = 0;
  band->linkwitz_riley = false;
}

/** Another type keeps what it has use for, and gets the width that it needs. */
void set_type(EqualiserFilter* band, EqualiserType type) {
  band->type = type;
  if (band->order && !is_pass(type)) set_width(band, 0.0);
  if (type == EqualiserType::kTilt) return set_width(band, 0.0);
  if (type == EqualiserType::kLinkwitzTransform) {
    if (band->q == 0.0) set_width(band, std::sqrt(0.5));
    if (band->target_frequency == 0.0) band->target_frequency = band->frequency;
    if (band->target_q == 0.0) band->target_q = band->q;
  }
  if (band->q == 0.0 && band->octaves == 0.0 && !band->order) band->q = std::sqrt(0.5);
}

GstJurnFilterBand* band_of(GObject* object) {
  return reinterpret_cast<GstJurnFilterBand*>(object);
}

void set_property(GObject* object, guint id, const GValue* value, GParamSpec* spec) {
  GstJurnFilterBand* const self = band_of(object);
  if (id < kFrequency || id > kTargetQ) {
    G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, spec);
    return;
  }
  if (!self->preparer) return;
  self->preparer->change([&](jurn::gst::FilterSource* source) {
    if (self->index >= source->bands().size()) return;
    EqualiserFilter band = source->bands()[self->index];
    if (id == kFrequency) band.frequency = g_value_get_double(value);
    if (id == kGain) band.gain = g_value_get_double(value);
    if (id == kQ) set_width(&band, g_value_get_double(value));
    if (id == kTypeOfBand) set_type(&band, static_cast<EqualiserType>(g_value_get_enum(value)));
    if (id == kTargetFrequency) band.target_frequency = g_value_get_double(value);
    if (id == kTargetQ) band.target_q = g_value_get_double(value);
    source->set_band(self->index, band);
  });
}

void get_property(GObject* object, guint id, GValue* value, GParamSpec* spec) {
  GstJurnFilterBand* const self = band_of(object);
  EqualiserFilter band{};
  if (self->preparer) {
    const jurn::gst::FilterSource source = self->preparer->settings();
    if (self->index < source.bands().size()) band = source.bands()[self->index];
  }
  switch (id) {
    case kFrequency:
      return g_value_set_double(value, band.frequency);
    case kGain:
      return g_value_set_double(value, band.gain);
    case kQ:
      return g_value_set_double(value, band.q);
    case kTypeOfBand:
      return g_value_set_enum(value, static_cast<gint>(band.type));
    case kTargetFrequency:
      return g_value_set_double(value, band.target_frequency);
    case kTargetQ:
      return g_value_set_double(value, band.target_q);
    default:
      G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, spec);
  }
}

}  // namespace

static void gst_jurn_filter_band_init(GstJurnFilterBand*) {}

static void gst_jurn_filter_band_class_init(GstJurnFilterBandClass* klass) {
  GObjectClass* const object_class = G_OBJECT_CLASS(klass);
  object_class->set_property = set_property;
  object_class->get_property = get_property;
  constexpr auto flags =
      static_cast<GParamFlags>(G_PARAM_READWRITE | G_PARAM_STATIC_STRINGS | GST_PARAM_CONTROLLABLE |
                               GST_PARAM_MUTABLE_PLAYING);
  const auto install = [&](Property id, GParamSpec* spec) {
    g_object_class_install_property(object_class, id, spec);
  };
  install(kFrequency, g_param_spec_double("frequency", "Frequency", "Centre or corner in Hz", 0.0,
                                          1e6, 1000.0, flags));
  install(kGain, g_param_spec_double("gain", "Gain", "Gain in dB, of peaks, shelves and tilts",
                                     -200.0, 200.0, 0.0, flags));
  install(kQ, g_param_spec_double("q", "Q",
                                  "Width; replaces an order or a width in octaves. 0: the steepest "
                                  "shelf or pass without overshoot",
                                  0.0, 1e6, 0.0, flags));
  install(kTargetFrequency,
          g_param_spec_double("target-frequency", "Target frequency",
                              "What the frequency becomes, of a Linkwitz transform, in Hz", 0.0,
                              1e6, 0.0, flags));
  install(kTargetQ,
          g_param_spec_double("target-q", "Target Q", "What the Q becomes, of a Linkwitz transform",
                              0.0, 1e6, 0.0, flags));
  install(kTypeOfBand, g_param_spec_enum("type", "Type", "Kind of the band", band_type(),
                                         static_cast<gint>(EqualiserType::kPeak), flags));
}

namespace jurn::gst {

Bands::~Bands() {
  for (GstObject* const child : children_) {
    reinterpret_cast<GstJurnFilterBand*>(child)->preparer = nullptr;
    gst_object_unparent(child);
  }
}

GObject* Bands::child(guint index) {
  if (index >= count()) return nullptr;
  const std::lock_guard<std::mutex> lock(mutex_);
  while (children_.size() <= index) {
    const auto next = static_cast<guint>(children_.size());
    const std::string name = "band" + std::to_string(next);
    auto* const band = static_cast<GstJurnFilterBand*>(
        g_object_new(gst_jurn_filter_band_get_type(), "name", name.c_str(), nullptr));
    band->preparer = preparer_;
    band->index = next;
    gst_object_set_parent(GST_OBJECT(band), GST_OBJECT(element_));
    children_.push_back(GST_OBJECT(band));
    is_empty_ = false;
  }
  return G_OBJECT(gst_object_ref(children_[index]));
}

void Bands::sync_values(GstClockTime time) {
  if (is_empty_) return;
  // Not locked while a band tells its new value, for who hears it may ask for any. None ever goes.
  for (std::size_t i = 0;; ++i) {
    GstObject* child = nullptr;
    {
      const std::lock_guard<std::mutex> lock(mutex_);
      if (i == children_.size()) return;
      child = children_[i];
    }
    gst_object_sync_values(child, time);
  }
}

}  // namespace jurn::gst
