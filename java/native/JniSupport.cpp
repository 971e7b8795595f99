#include "java/native/JniSupport.h"

#include <exception>
#include <new>

namespace hdsml_jni {
namespace {

jclass nativeErrors = nullptr;  // global reference to org.hdsml.NativeErrors
jmethodID createError = nullptr;
jmethodID deliverMessage = nullptr;
jmethodID reportDropped = nullptr;

// Desktop JDKs declare AttachCurrentThread's first parameter as void**, the
// Android NDK as JNIEnv**: this converts to whichever the header asks for.
struct EnvSlot {
  JNIEnv** env;
  operator void**() const { return reinterpret_cast<void**>(env); }
  operator JNIEnv**() const { return env; }
};

}  // namespace

jint onLoad(JavaVM* vm) {
  JNIEnv* env = nullptr;
  if (vm->GetEnv(reinterpret_cast<void**>(&env), JNI_VERSION_1_6) != JNI_OK) return JNI_ERR;
  jclass errors = env->FindClass("org/hdsml/NativeErrors");
  if (errors == nullptr) return JNI_ERR;
  createError = env->GetStaticMethodID(errors, "create", "(I[B)Ljava/lang/Throwable;");
  nativeErrors = static_cast<jclass>(env->NewGlobalRef(errors));
  jclass forwarder = env->FindClass("org/hdsml/LogForwarder");
  if (forwarder == nullptr) return JNI_ERR;
  deliverMessage = env->GetMethodID(forwarder, "deliver", "([B)V");
  reportDropped = env->GetMethodID(forwarder, "dropped", "(J)V");
  if (createError == nullptr || nativeErrors == nullptr || deliverMessage == nullptr ||
      reportDropped == nullptr)
    return JNI_ERR;
  return JNI_VERSION_1_6;
}

void throwJava(JNIEnv* env, JavaError kind, const std::string& message) {
  const jsize length = static_cast<jsize>(message.size());
  jbyteArray bytes = env->NewByteArray(length);
  if (bytes == nullptr) return;  // OutOfMemoryError is pending
  env->SetByteArrayRegion(bytes, 0, length, reinterpret_cast<const jbyte*>(message.data()));
  auto error = static_cast<jthrowable>(
      env->CallStaticObjectMethod(nativeErrors, createError, static_cast<jint>(kind), bytes));
  const bool failed = env->ExceptionCheck();  // the factory's own failure is pending instead
  env->DeleteLocalRef(bytes);
  if (failed || error == nullptr) return;
  env->Throw(error);
  env->DeleteLocalRef(error);
}

void throwCurrentException(JNIEnv* env, JavaError kind) {
  try {
    throw;
  } catch (const std::bad_alloc&) {
    throwJava(env, JavaError::kOutOfMemory, "out of native memory");
  } catch (const std::exception& e) {
    throwJava(env, kind, e.what());
  } catch (...) {
    throwJava(env, JavaError::kRuntime, "unknown C++ exception");
  }
}

JNIEnv* attachDaemon(JavaVM* vm, const char* name) {
  JNIEnv* env = nullptr;
  JavaVMAttachArgs args{JNI_VERSION_1_6, const_cast<char*>(name), nullptr};
  // A daemon, so that the binding's thread never keeps the JVM from exiting.
  if (vm->AttachCurrentThreadAsDaemon(EnvSlot{&env}, &args) != JNI_OK) return nullptr;
  return env;
}

jmethodID logForwarderDeliver() { return deliverMessage; }

jmethodID logForwarderDropped() { return reportDropped; }

}  // namespace hdsml_jni
