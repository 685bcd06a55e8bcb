// The methods of Native.java for objects that run.
#include "running.h"

#include <cstdint>

#include "calls.h"

namespace jurn::java {
namespace {

using bindings::Running;
using bindings::Wanted;
using bindings::What;

Running* at(jlong object) {
  // NOLINTNEXTLINE(performance-no-int-to-ptr): Java keeps addresses in numbers
  return reinterpret_cast<Running*>(static_cast<std::intptr_t>(object));
}

jlong address(std::unique_ptr<Running> object) {
  return static_cast<jlong>(reinterpret_cast<std::intptr_t>(object.release()));
}

Wanted wanted_of(JNIEnv* env, jint kind, jdoubleArray b, jdoubleArray a, jintArray routes) {
  const std::vector<jint> list = listed(env, routes);
  return {kind, listed(env, b), listed(env, a), {list.begin(), list.end()}};
}

jlong make_record_object(JNIEnv* env, jclass, jint what, jint channels, jint kind, jdoubleArray b,
                         jdoubleArray a) {
  return guarded(env, [&] {
    const Wanted wanted = {kind, listed(env, b), listed(env, a), {}};
    return address(bindings::make_record(static_cast<What>(what), channels, &wanted));
  });
}

jlong make_stream_object(JNIEnv* env, jclass, jint what, jintArray shape, jint kind, jdoubleArray b,
                         jdoubleArray a, jintArray routes) {
  return guarded(env, [&] {
    const std::vector<jint> numbers = listed(env, shape);
    return address(bindings::make_stream(static_cast<What>(what), {numbers.begin(), numbers.end()},
                                         wanted_of(env, kind, b, a, routes)));
  });
}

jlong restore(JNIEnv* env, jclass, jint what, jbyteArray bytes) {
  return guarded(env, [&] {
    return address(bindings::restored(static_cast<What>(what), bytes_of(env, bytes)));
  });
}

jbyteArray stored(JNIEnv* env, jclass, jlong object) {
  return guarded(env, [&] { return java_bytes(env, at(object)->stored()); });
}

void free_object(JNIEnv*, jclass, jlong object) {
  delete at(object);
}

void change(JNIEnv* env, jclass, jlong object, jint kind, jdoubleArray b, jdoubleArray a,
            jintArray routes, jint fade) {
  guarded(env, [&] { at(object)->change(wanted_of(env, kind, b, a, routes), fade); });
}

void reset(JNIEnv*, jclass, jlong object) {
  at(object)->reset();
}

/** By the numbers of Native.java. */
jint number(JNIEnv*, jclass, jlong object, jint which) {
  const Running& running = *at(object);
  switch (which) {
    case 0:
      return running.inputs();
    case 1:
      return running.outputs();
    case 2:
      return running.block();
    case 3:
      return running.latency();
    case 4:
      return running.rate();
    default:
      return running.tail();
  }
}

jint push(JNIEnv* env, jclass, jlong object, jshort sample) {
  return guarded(env, [&] { return at(object)->push(sample); });
}

// ---- Samples
// -------------------------------------------------------------------------------------

void take(JNIEnv* env, jshortArray from, jint at, jsize count, short* to) {
  env->GetShortArrayRegion(from, at, count, to);
}
void take(JNIEnv* env, jfloatArray from, jint at, jsize count, float* to) {
  env->GetFloatArrayRegion(from, at, count, to);
}
void give(JNIEnv* env, const short* from, jsize count, jshortArray to, jint at) {
  env->SetShortArrayRegion(to, at, count, from);
}
void give(JNIEnv* env, const float* from, jsize count, jfloatArray to, jint at) {
  env->SetFloatArrayRegion(to, at, count, from);
}

/** By copies of its own: a critical section would keep the collector waiting for a filter. */
template <typename In, typename Out, typename InArray, typename OutArray>
void run_arrays(JNIEnv* env, jclass, jlong object, InArray in, jint in_at, OutArray out,
                jint out_at, jint frames) {
  guarded(env, [&] {
    Running& running = *at(object);
    const jsize taken = frames * running.inputs(), given = frames * running.outputs();
    In* const from = running.room<In>(static_cast<std::size_t>(taken), 0);
    Out* const to = running.room<Out>(static_cast<std::size_t>(given), 1);
    take(env, in, in_at, taken, from);
    running.run(from, frames, to);
    give(env, to, given, out, out_at);
  });
}

template <typename In, typename Out>
void run_buffers(JNIEnv* env, jclass, jlong object, jobject in, jint in_at, jobject out,
                 jint out_at, jint frames) {
  guarded(env, [&] {
    Running& running = *at(object);
    auto* const from_start = static_cast<const In*>(env->GetDirectBufferAddress(in));
    auto* const to_start = static_cast<Out*>(env->GetDirectBufferAddress(out));
    if (!from_start || !to_start) throw Error(kUsageError, "the buffer is not a direct one");
    const In* const from = from_start + in_at;
    Out* const to = to_start + out_at;
    const auto begin = reinterpret_cast<std::uintptr_t>(from);
    const auto out_begin = reinterpret_cast<std::uintptr_t>(to);
    if (begin % alignof(In) || out_begin % alignof(Out))
      throw Error(kUsageError, "the buffer does not begin at a multiple of its samples' size");
    const auto count = static_cast<std::uintptr_t>(frames);
    const auto bytes_in = count * static_cast<unsigned>(running.inputs()) * sizeof(In);
    const auto bytes_out = count * static_cast<unsigned>(running.outputs()) * sizeof(Out);
    const bool in_place = begin == out_begin && bytes_in == bytes_out;
    if (!in_place && begin < out_begin + bytes_out && out_begin < begin + bytes_in)
      throw Error(kUsageError,
                  "the buffers overlap; the result goes to where the input is, or "
                  "elsewhere");
    running.run(from, frames, to);
  });
}

}  // namespace

const std::vector<JNINativeMethod>& running_methods() {
  static const std::vector<JNINativeMethod> table = {
      method("makeRecord", "(III[D[D)J", make_record_object),
      method("makeStream", "(I[II[D[D[I)J", make_stream_object),
      method("restore", "(I[B)J", restore),
      method("stored", "(J)[B", stored),
      method("free", "(J)V", free_object),
      method("change", "(JI[D[D[II)V", change),
      method("reset", "(J)V", reset),
      method("number", "(JI)I", number),
      method("push", "(JS)I", push),
      method("run", "(J[SI[SII)V", run_arrays<short, short, jshortArray, jshortArray>),
      method("run", "(J[FI[FII)V", run_arrays<float, float, jfloatArray, jfloatArray>),
      method("run", "(J[SI[FII)V", run_arrays<short, float, jshortArray, jfloatArray>),
      method("run", "(JLjava/nio/ShortBuffer;ILjava/nio/ShortBuffer;II)V",
             run_buffers<short, short>),
      method("run", "(JLjava/nio/FloatBuffer;ILjava/nio/FloatBuffer;II)V",
             run_buffers<float, float>),
      method("run", "(JLjava/nio/ShortBuffer;ILjava/nio/FloatBuffer;II)V",
             run_buffers<short, float>)};
  return table;
}

}  // namespace jurn::java
