#include "java/native/JavaLogForwarder.h"

#include <new>
#include <stdexcept>
#include <system_error>
#include <thread>

#include "diagnostics/LogSink.h"
#include "java/native/JniSupport.h"

namespace hdsml_jni {

JavaLogForwarder::JavaLogForwarder(JNIEnv* env, jobject target)
    : queue_(std::make_shared<LogQueue>()) {
  JavaVM* vm = nullptr;
  if (env->GetJavaVM(&vm) != JNI_OK) throw std::runtime_error("no JavaVM");
  jweak weak = env->NewWeakGlobalRef(target);
  if (weak == nullptr) throw std::bad_alloc();
  try {
    std::thread(&JavaLogForwarder::run, vm, weak, queue_).detach();
  } catch (...) {
    env->DeleteWeakGlobalRef(weak);
    throw;
  }
}

JavaLogForwarder::~JavaLogForwarder() {
  uninstall();
  queue_->close();
}

void JavaLogForwarder::install() { hdsml::setLogSink(&JavaLogForwarder::accept, queue_.get()); }

void JavaLogForwarder::uninstall() { hdsml::setLogSink(nullptr, nullptr); }

// Runs on whichever thread made the library speak, inside the library's own
// lock: it only queues.
void JavaLogForwarder::accept(void* queue, const char* text, size_t length) {
  static_cast<LogQueue*>(queue)->push(text, length);
}

void JavaLogForwarder::run(JavaVM* vm, jweak target, std::shared_ptr<LogQueue> queue) {
  JNIEnv* env = attachDaemon(vm, "hdsml log");
  LogQueue::Message message;
  message.text.reserve(LogQueue::kReservedBytes);
  while (queue->take(message)) {
    // Without the JVM the messages are lost, but still taken, so that the
    // queue never stays full.
    if (env != nullptr) deliver(env, target, message);
    queue->delivered();
  }
  if (env == nullptr) return;
  env->DeleteWeakGlobalRef(target);
  vm->DetachCurrentThread();
}

// This thread never returns to Java, where local references would be freed:
// each delivery gets a frame of its own. Exceptions are Java's to log
// (LogForwarder catches what the listener throws); one left here is cleared.
void JavaLogForwarder::deliver(JNIEnv* env, jweak target, const LogQueue::Message& message) {
  if (env->PushLocalFrame(4) != JNI_OK) {
    env->ExceptionClear();
    return;
  }
  jobject forwarder = env->NewLocalRef(target);
  if (forwarder != nullptr) {  // null once the detector is gone
    if (message.droppedBefore > 0) {
      env->CallVoidMethod(forwarder, logForwarderDropped(),
                          static_cast<jlong>(message.droppedBefore));
      env->ExceptionClear();
    }
    if (message.hasText) {
      const char* text = message.text.data();
      size_t length = message.text.size();
      // Java's listener gets the line without its line feed.
      if (length > 0 && text[length - 1] == '\n') --length;
      jbyteArray bytes = env->NewByteArray(static_cast<jsize>(length));
      if (bytes != nullptr) {
        env->SetByteArrayRegion(bytes, 0, static_cast<jsize>(length),
                                reinterpret_cast<const jbyte*>(text));
        env->CallVoidMethod(forwarder, logForwarderDeliver(), bytes);
      }
      env->ExceptionClear();  // the array's OutOfMemoryError: the message is lost
    }
  }
  env->PopLocalFrame(nullptr);
}

}  // namespace hdsml_jni
