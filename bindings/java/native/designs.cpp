// The methods of Native.java for designs, which are values: kind, b and a go in and come out.
#include "designs.h"

#include "JURN_api.h"
#include "calls.h"
#include "coefficients/formats.h"
#include "design/frequency_response.h"
#include "design/spectrum.h"

namespace jurn::java {
namespace {

FilterDesign design_of(JNIEnv* env, jint kind, jdoubleArray b, jdoubleArray a) {
  return checked_design(static_cast<FilterDesign::Kind>(kind), listed(env, b), listed(env, a));
}

/** An array of kind and delay, with what is told besides; then b and a, and a text if there is one.
 */
jobjectArray answer(JNIEnv* env, const FilterDesign& design, std::vector<double> besides = {},
                    const std::string& text = {}) {
  const jclass object = got(env->FindClass("java/lang/Object"));
  const jobjectArray all = got(env->NewObjectArray(4, object, nullptr));
  besides.insert(besides.begin(),
                 {static_cast<double>(design.kind), static_cast<double>(design.delay)});
  env->SetObjectArrayElement(all, 0, java_doubles(env, besides));
  env->SetObjectArrayElement(all, 1, java_doubles(env, design.b));
  env->SetObjectArrayElement(all, 2, java_doubles(env, design.a));
  env->SetObjectArrayElement(all, 3, java_bytes(env, text));
  return all;
}

jobjectArray check(JNIEnv* env, jclass, jint kind, jdoubleArray b, jdoubleArray a) {
  return guarded(env, [&] { return answer(env, design_of(env, kind, b, a)); });
}

/** A coefficient file's bytes. */
jobjectArray parse(JNIEnv* env, jclass, jbyteArray name, jbyteArray content, jint rate) {
  return guarded(env, [&] {
    return answer(env, bindings::read_design(bytes_of(env, name), bytes_of(env, content), rate));
  });
}

/** Filters in words, one in a line. */
jobjectArray words(JNIEnv* env, jclass, jbyteArray lines, jint rate) {
  return guarded(
      env, [&] { return answer(env, bindings::design_of_words(bytes_of(env, lines), rate)); });
}

jobjectArray prepare(JNIEnv* env, jclass, jint kind, jdoubleArray b, jdoubleArray a, jint rate,
                     jboolean in_int16) {
  return guarded(env, [&] {
    const auto prepared = bindings::prepared(design_of(env, kind, b, a), rate,
                                             in_int16 ? Precision::kInt16 : Precision::kDouble);
    return answer(
        env, prepared->design,
        {static_cast<double>(prepared->runs), prepared->stable ? 1.0 : 0.0, prepared->pole_radius,
         prepared->expected_error, static_cast<double>(prepared->tail)},
        bindings::notices_of(*prepared));
  });
}

/** Real part, imaginary part and delay in frames, at each frequency in radians a frame. */
jdoubleArray response(JNIEnv* env, jclass, jint kind, jdoubleArray b, jdoubleArray a,
                      jdoubleArray frequencies) {
  return guarded(env, [&] {
    const FilterDesign design = design_of(env, kind, b, a);
    std::vector<double> result;
    for (const double frequency : listed(env, frequencies)) {
      const ResponsePoint point = response_at(design, frequency);
      result.insert(result.end(), {point.value.real(), point.value.imag(), point.delay});
    }
    return java_doubles(env, result);
  });
}

jdouble peak(JNIEnv* env, jclass, jint kind, jdoubleArray b, jdoubleArray a) {
  return guarded(env, [&] { return peak_gain(design_of(env, kind, b, a)); });
}

jbyteArray describe(JNIEnv* env, jclass, jint kind, jdoubleArray b, jdoubleArray a) {
  return guarded(env, [&] { return java_bytes(env, description_of(design_of(env, kind, b, a))); });
}

jbyteArray version(JNIEnv* env, jclass) {
  return guarded(env, [&] { return java_bytes(env, MORVAX_Version_API()); });
}

}  // namespace

const std::vector<JNINativeMethod>& design_methods() {
  static const std::vector<JNINativeMethod> table = {
      method("check", "(I[D[D)[Ljava/lang/Object;", check),
      method("parse", "([B[BI)[Ljava/lang/Object;", parse),
      method("words", "([BI)[Ljava/lang/Object;", words),
      method("prepare", "(I[D[DIZ)[Ljava/lang/Object;", prepare),
      method("response", "(I[D[D[D)[D", response),
      method("peak", "(I[D[D)D", peak),
      method("describe", "(I[D[D)[B", describe),
      method("version", "()[B", version)};
  return table;
}

}  // namespace jurn::java
