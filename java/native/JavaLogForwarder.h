// Sends the library's messages to a Java org.hdsml.LogForwarder while it is
// installed as the library's log sink. The sink only queues them (LogQueue):
// the thread that made the library speak never waits for Java. One thread of the
// forwarder's own, attached to the JVM as the daemon "hdsml log", delivers them
// in order. Owned by its DetectorSession; install() and uninstall() on the
// thread that opens or closes the detector.
#pragma once

#include <jni.h>

#include <chrono>
#include <cstddef>
#include <memory>

#include "java/native/LogQueue.h"

namespace hdsml_jni {

class JavaLogForwarder {
 public:
  // Keeps a weak reference to `target`, so that the detector that owns it can
  // still be collected, and starts the delivering thread.
  JavaLogForwarder(JNIEnv* env, jobject target);
  // Uninstalls; the thread delivers what is queued, then ends. Not waited for:
  // a slow listener must not hold up close().
  ~JavaLogForwarder();
  JavaLogForwarder(const JavaLogForwarder&) = delete;
  JavaLogForwarder& operator=(const JavaLogForwarder&) = delete;

  // From install() until uninstall() every message of the library is queued here.
  void install();
  // Returns once no message is being queued here any more.
  void uninstall();
  // Waits until the messages queued so far have been delivered; false on timeout.
  bool flush(std::chrono::milliseconds timeout) { return queue_->waitUntilDelivered(timeout); }

 private:
  static void accept(void* queue, const char* text, size_t length);
  // The delivering thread's body: owns `target` and its share of `queue`.
  static void run(JavaVM* vm, jweak target, std::shared_ptr<LogQueue> queue);
  static void deliver(JNIEnv* env, jweak target, const LogQueue::Message& message);

  std::shared_ptr<LogQueue> queue_;
};

}  // namespace hdsml_jni
