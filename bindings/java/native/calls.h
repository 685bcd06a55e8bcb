// Between Java and the engine: arrays, texts and exceptions.
#pragma once

#include <jni.h>

#include <exception>
#include <new>
#include <string>
#include <vector>

#include "errors.h"

namespace jurn::java {

/** Throws in Java, when the call returns there: IllegalArgumentException with a sentence, of which
 * Java makes a text, since it takes names of files in a UTF-8 of its own only. */
void refuse(JNIEnv* env, const std::string& sentence);

/** Java has thrown already: nothing is to be done but to return. */
struct Thrown {};

/** What a function gives, or nothing where it throws: an exception of Java's then, whose sentence
 * is the message. */
template <typename Function>
auto guarded(JNIEnv* env, Function function) -> decltype(function()) {
  try {
    return function();
  } catch (const Thrown&) {
  } catch (const std::bad_alloc&) {
    if (const jclass kind = env->FindClass("java/lang/OutOfMemoryError"))
      env->ThrowNew(kind, "no memory is left for the filter");
  } catch (const std::exception& e) {
    refuse(env, e.what());
  }
  return decltype(function())();
}

/** Checks what a call of Java's returned. */
template <typename T>
T got(T object) {
  if (!object) throw Thrown();
  return object;
}

inline std::vector<double> listed(JNIEnv* env, jdoubleArray array) {
  std::vector<double> values(static_cast<std::size_t>(env->GetArrayLength(array)));
  env->GetDoubleArrayRegion(array, 0, static_cast<jsize>(values.size()), values.data());
  return values;
}

inline std::vector<jint> listed(JNIEnv* env, jintArray array) {
  std::vector<jint> values(static_cast<std::size_t>(env->GetArrayLength(array)));
  env->GetIntArrayRegion(array, 0, static_cast<jsize>(values.size()), values.data());
  return values;
}

/** Bytes, of which Java makes texts: its own form of UTF-8 is another one. */
inline std::string bytes_of(JNIEnv* env, jbyteArray array) {
  std::string bytes(static_cast<std::size_t>(env->GetArrayLength(array)), '\0');
  env->GetByteArrayRegion(array, 0, static_cast<jsize>(bytes.size()),
                          reinterpret_cast<jbyte*>(bytes.data()));
  return bytes;
}

inline jbyteArray java_bytes(JNIEnv* env, const std::string& bytes) {
  const jbyteArray array = got(env->NewByteArray(static_cast<jsize>(bytes.size())));
  env->SetByteArrayRegion(array, 0, static_cast<jsize>(bytes.size()),
                          reinterpret_cast<const jbyte*>(bytes.data()));
  return array;
}

inline jdoubleArray java_doubles(JNIEnv* env, const std::vector<double>& values) {
  const jdoubleArray array = got(env->NewDoubleArray(static_cast<jsize>(values.size())));
  env->SetDoubleArrayRegion(array, 0, static_cast<jsize>(values.size()), values.data());
  return array;
}

/** A row of the table. */
template <typename Function>
JNINativeMethod method(const char* name, const char* signature, Function* function) {
  return {const_cast<char*>(name), const_cast<char*>(signature), reinterpret_cast<void*>(function)};
}

/** What each file adds to the one table of methods. */
const std::vector<JNINativeMethod>& running_methods();
const std::vector<JNINativeMethod>& design_methods();

}  // namespace jurn::java
