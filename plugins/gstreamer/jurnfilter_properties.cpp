#include <algorithm>
#include <string>

#include "jurnfilter_state.h"

namespace jurn::gst {
namespace {

enum Property {
  kLocation = 1,
  kKindOfFilter,
  kCoefficients,
  kEqualiser,
  kGain,
  kLength,
  kPrecision,
  kTail,
  kStatistics,
  kStatisticsInterval
};

GType kind_type() {
  static const GEnumValue values[] = {
      {static_cast<gint>(Kind::kAutomatic), "What the file or the arrays look like", "automatic"},
      {static_cast<gint>(Kind::kFir), "Taps", "fir"},
      {static_cast<gint>(Kind::kIir), "Numerator and denominator", "iir"},
      {static_cast<gint>(Kind::kSections), "Second-order sections", "sections"},
      {static_cast<gint>(Kind::kAverage), "Mean of the last length samples", "average"},
      {0, nullptr, nullptr}};
  static const GType type = g_enum_register_static("GstJurnFilterKind", values);
  return type;
}

void set_property(GObject* object, guint id, const GValue* value, GParamSpec* spec) {
  GstJurnFilter* const self = GST_JURN_FILTER(object);
  const auto change = [&](auto what) { self->state->preparer.change(what); };
  switch (id) {
    case kLocation:
      return change([&](FilterSource* s) { s->set_file(text_of(value)); });
    case kKindOfFilter:
      return change([&](FilterSource* s) { s->kind = static_cast<Kind>(g_value_get_enum(value)); });
    case kCoefficients:
      return change([&](FilterSource* s) { s->set_coefficients(value); });
    case kEqualiser:
      return change([&](FilterSource* s) { s->set_equaliser(text_of(value)); });
    case kGain:
      return change([&](FilterSource* s) { s->gain_db = g_value_get_double(value); });
    case kLength:
      return change([&](FilterSource* s) { s->length = g_value_get_int(value); });
    case kPrecision:
      return change([&](FilterSource* s) { s->precision = precision_of(value); });
    case kTail:
      self->state->keeps_tail = g_value_get_boolean(value);
      return;
    case kStatisticsInterval:
      self->state->statistics.set_interval(g_value_get_uint64(value));
      return;
    default:
      G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, spec);
  }
}

void get_property(GObject* object, guint id, GValue* value, GParamSpec* spec) {
  GstJurnFilter* const self = GST_JURN_FILTER(object);
  const FilterSource source = self->state->preparer.settings();
  switch (id) {
    case kLocation:
      return g_value_set_string(value, source.file().c_str());
    case kKindOfFilter:
      return g_value_set_enum(value, static_cast<gint>(source.kind));
    case kCoefficients:
      return source.get_coefficients(value);
    case kEqualiser:
      return g_value_set_string(value, source.equaliser().c_str());
    case kGain:
      return g_value_set_double(value, source.gain_db);
    case kLength:
      return g_value_set_int(value, source.length);
    case kPrecision:
      return g_value_set_enum(value, static_cast<gint>(source.precision));
    case kTail:
      return g_value_set_boolean(value, self->state->keeps_tail);
    case kStatistics:
      return g_value_take_boxed(value, self->state->statistics.structure());
    case kStatisticsInterval:
      return g_value_set_uint64(value, self->state->statistics.interval());
    default:
      G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, spec);
  }
}

}  // namespace

void install_filter_properties(GObjectClass* object_class) {
  object_class->set_property = set_property;
  object_class->get_property = get_property;
  const auto install = [&](Property id, GParamSpec* spec) {
    g_object_class_install_property(object_class, id, spec);
  };
  install(kLocation, g_param_spec_string("location", "Location",
                                         "Coefficient file in any format that jurn-filter reads; "
                                         "replaces coefficients and equaliser",
                                         nullptr, kChangeable));
  install(kKindOfFilter, g_param_spec_enum("kind", "Kind", "What the coefficients are", kind_type(),
                                           static_cast<gint>(Kind::kAutomatic), kChangeable));
  install(
      kCoefficients,
      gst_param_spec_array(
          "coefficients", "Coefficients",
          "One array of taps, two of numerator and denominator, or one of six for each section: "
          "<<0.5,0.5>>, <<b0,b1>,<1,a1>>, <<b0,b1,b2,1,a1,a2>,...>; replaces location and "
          "equaliser",
          gst_param_spec_array("set", "Set", "Coefficients of a set",
                               g_param_spec_double("coefficient", "Coefficient", "A coefficient",
                                                   -G_MAXDOUBLE, G_MAXDOUBLE, 0.0, kChangeable),
                               kChangeable),
          kChangeable));
  install(kEqualiser,
          g_param_spec_string("equaliser", "Equaliser",
                              "Lines of an equaliser, like PK 3k -4 Q 2; HS 8k 3, each "
                              "a child band0, band1 ...; replaces location and coefficients",
                              nullptr, kChangeable));
  install(kGain, g_param_spec_double("gain", "Gain", "Gain of the filter in dB", -200.0, 200.0, 0.0,
                                     kControllable));
  install(kLength, g_param_spec_int("length", "Length", "Samples of the mean, with kind=average", 1,
                                    kMostAveraged, 1, kChangeable));
  install(kPrecision,
          precision_spec("double, the result rounded to its samples; or int16: 16 bits in and out "
                         "and float inside, as on a device"));
  install_common(object_class, kTail);
}

}  // namespace jurn::gst
