// Sends the library's messages to a Java org.hdsml.LogForwarder while it is
// installed as the library's log sink. Messages come from the host's threads
// and from the library's motion thread, which is attached to the JVM on its
// first message and detached when it ends. Owned by its DetectorSession;
// install() and uninstall() on the thread that opens or closes the detector.
#pragma once

#include <jni.h>

#include <cstddef>

namespace hdsml_jni {

class JavaLogForwarder {
 public:
  // Keeps a global reference to `target`.
  JavaLogForwarder(JNIEnv* env, jobject target);
  ~JavaLogForwarder();
  JavaLogForwarder(const JavaLogForwarder&) = delete;
  JavaLogForwarder& operator=(const JavaLogForwarder&) = delete;

  // From install() until uninstall() every message of the library comes here.
  void install();
  // Returns once no message is being delivered here any more.
  void uninstall();

 private:
  static void deliver(void* self, const char* text, size_t length);

  JavaVM* vm_ = nullptr;
  jobject target_ = nullptr;
};

}  // namespace hdsml_jni
