// What Java calls when it loads the library. Nothing else of it can be seen from outside.
#include "calls.h"

namespace {

jclass native = nullptr;  // the class Native, while the library is loaded
jmethodID refusal = nullptr;

/** Whether every method of the class Native is there now. */
bool register_all(JNIEnv* env) {
  const jclass found = env->FindClass("jurn/filter/Native");
  if (!found) return false;
  native = static_cast<jclass>(env->NewGlobalRef(found));
  refusal = env->GetStaticMethodID(native, "refusal", "([B)Ljava/lang/IllegalArgumentException;");
  if (!refusal) return false;
  std::vector<JNINativeMethod> table = jurn::java::running_methods();
  const auto& designs = jurn::java::design_methods();
  table.insert(table.end(), designs.begin(), designs.end());
  return env->RegisterNatives(native, table.data(), static_cast<jint>(table.size())) == JNI_OK;
}

}  // namespace

void jurn::java::refuse(JNIEnv* env, const std::string& sentence) {
  const jbyteArray bytes = env->NewByteArray(static_cast<jsize>(sentence.size()));
  if (!bytes) return;
  env->SetByteArrayRegion(bytes, 0, static_cast<jsize>(sentence.size()),
                          reinterpret_cast<const jbyte*>(sentence.data()));
  const jobject exception = env->CallStaticObjectMethod(native, refusal, bytes);
  if (exception && !env->ExceptionCheck()) env->Throw(static_cast<jthrowable>(exception));
}

extern "C" JNIEXPORT jint JNICALL JNI_OnLoad(JavaVM* machine, void*) {
  void* env = nullptr;
  if (machine->GetEnv(&env, JNI_VERSION_1_6) != JNI_OK) return JNI_ERR;
  return register_all(static_cast<JNIEnv*>(env)) ? JNI_VERSION_1_6 : JNI_ERR;
}
