#include "java/native/JavaLogForwarder.h"

#include <new>
#include <stdexcept>

#include "diagnostics/LogSink.h"
#include "java/native/JniSupport.h"

namespace hdsml_jni {

JavaLogForwarder::JavaLogForwarder(JNIEnv* env, jobject target) {
  if (env->GetJavaVM(&vm_) != JNI_OK) throw std::runtime_error("no JavaVM");
  target_ = env->NewGlobalRef(target);
  if (target_ == nullptr) throw std::bad_alloc();
}

JavaLogForwarder::~JavaLogForwarder() {
  uninstall();
  if (JNIEnv* env = currentEnv(vm_)) env->DeleteGlobalRef(target_);
}

void JavaLogForwarder::install() { hdsml::setLogSink(&JavaLogForwarder::deliver, this); }

void JavaLogForwarder::uninstall() { hdsml::setLogSink(nullptr, nullptr); }

// Runs on whichever thread made the library speak, so it must leave that
// thread's JNI state as it found it: no exception of its own left pending, one
// already pending restored, and no local reference left behind (an attached
// native thread never returns to Java, where they would be freed).
void JavaLogForwarder::deliver(void* self, const char* text, size_t length) {
  auto* forwarder = static_cast<JavaLogForwarder*>(self);
  JNIEnv* env = currentEnv(forwarder->vm_);
  if (env == nullptr) return;
  jthrowable pending = env->ExceptionOccurred();
  if (pending != nullptr) env->ExceptionClear();

  // Java's listener gets the line without its line feed.
  if (length > 0 && text[length - 1] == '\n') --length;
  jbyteArray bytes = env->NewByteArray(static_cast<jsize>(length));
  if (bytes != nullptr) {
    env->SetByteArrayRegion(bytes, 0, static_cast<jsize>(length),
                            reinterpret_cast<const jbyte*>(text));
    env->CallVoidMethod(forwarder->target_, logForwarderDeliver(), bytes);
    if (env->ExceptionCheck()) env->ExceptionClear();
    env->DeleteLocalRef(bytes);
  } else {
    env->ExceptionClear();  // the array's OutOfMemoryError: the message is lost
  }

  if (pending != nullptr) {
    env->Throw(pending);
    env->DeleteLocalRef(pending);
  }
}

}  // namespace hdsml_jni
