// The native methods of org.hdsml.PresenceDetector. Each entry point turns
// every C++ exception into a Java one before it returns: none may unwind into
// the JVM. The Java side has checked the arguments and holds its locks; the
// checks here only keep a stale handle, or a missing or address-less buffer,
// from ever reaching the library.
#include <jni.h>

#include <boost/property_tree/exceptions.hpp>

#include <atomic>
#include <chrono>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>

#include "java/native/DetectorSession.h"
#include "java/native/JniSupport.h"

using hdsml_jni::DetectorSession;
using hdsml_jni::JavaError;
using hdsml_jni::throwJava;

namespace {

// The library keeps one facade per process, so there is one session at most.
// openMutex serialises open and close; `current` is what handles are checked
// against.
std::mutex openMutex;
std::atomic<DetectorSession*> current{nullptr};

DetectorSession* sessionOf(JNIEnv* env, jlong handle) {
  auto* session = reinterpret_cast<DetectorSession*>(handle);
  if (session == nullptr || session != current.load()) {
    throwJava(env, JavaError::kIllegalState, "the PresenceDetector is closed");
    return nullptr;
  }
  return session;
}

// Null, after an IllegalArgumentException naming the plane, when `buffer` is
// null or has no address.
unsigned char* planeStart(JNIEnv* env, const char* name, jobject buffer, jint position) {
  if (buffer == nullptr) {
    throwJava(env, JavaError::kIllegalArgument, std::string("plane ") + name + ": no buffer");
    return nullptr;
  }
  auto* base = static_cast<unsigned char*>(env->GetDirectBufferAddress(buffer));
  if (base == nullptr) {
    throwJava(env, JavaError::kIllegalArgument,
              std::string("plane ") + name + ": its buffer has no native address");
    return nullptr;
  }
  return base + position;
}

// The Java side's bound on the waits it asks for.
std::chrono::milliseconds millis(jlong value) {
  return std::chrono::milliseconds(value > 0 ? value : 0);
}

std::string bytesOf(JNIEnv* env, jbyteArray array) {
  std::string bytes(static_cast<size_t>(env->GetArrayLength(array)), '\0');
  env->GetByteArrayRegion(array, 0, static_cast<jsize>(bytes.size()),
                          reinterpret_cast<jbyte*>(&bytes[0]));
  return bytes;
}

}  // namespace

extern "C" {

JNIEXPORT jint JNICALL JNI_OnLoad(JavaVM* vm, void* /*reserved*/) { return hdsml_jni::onLoad(vm); }

JNIEXPORT jlong JNICALL Java_org_hdsml_PresenceDetector_nativeOpen(JNIEnv* env, jclass,
                                                                   jbyteArray configPath,
                                                                   jboolean debug,
                                                                   jobject logForwarder) {
  std::lock_guard<std::mutex> lock(openMutex);
  if (current.load() != nullptr) {
    throwJava(env, JavaError::kIllegalState, "a PresenceDetector is already open in this process");
    return 0;
  }
  try {
    const std::string path = bytesOf(env, configPath);
    auto session = std::make_unique<DetectorSession>(env, logForwarder);
    if (!session->open(path, debug)) {
      throwJava(env, JavaError::kIo,
                path + ": cannot open the configuration file (missing, unreadable or a directory)");
      return 0;
    }
    current = session.get();
    return reinterpret_cast<jlong>(session.release());
  } catch (const boost::property_tree::ptree_error&) {
    hdsml_jni::throwCurrentException(env, JavaError::kIllegalArgument);
  } catch (const std::invalid_argument&) {
    hdsml_jni::throwCurrentException(env, JavaError::kIllegalArgument);
  } catch (...) {
    hdsml_jni::throwCurrentException(env, JavaError::kRuntime);
  }
  return 0;
}

JNIEXPORT void JNICALL Java_org_hdsml_PresenceDetector_nativeDetect(
    JNIEnv* env, jclass, jlong handle, jobject y, jint yPosition, jint yPixelStride,
    jint yRowStride, jobject u, jint uPosition, jint uPixelStride, jint uRowStride, jobject v,
    jint vPosition, jint vPixelStride, jint vRowStride, jint width, jint height, jlong timestamp,
    jint exposureTime, jboolean lensMoving, jlongArray fields) {
  DetectorSession* session = sessionOf(env, handle);
  if (session == nullptr) return;
  unsigned char* yStart = planeStart(env, "y", y, yPosition);
  unsigned char* uStart = yStart != nullptr ? planeStart(env, "u", u, uPosition) : nullptr;
  unsigned char* vStart = uStart != nullptr ? planeStart(env, "v", v, vPosition) : nullptr;
  if (vStart == nullptr) return;
  hdsml_jni::Frame frame{yStart,
                         uStart,
                         vStart,
                         yPixelStride,
                         yRowStride,
                         uPixelStride,
                         uRowStride,
                         vPixelStride,
                         vRowStride,
                         width,
                         height,
                         timestamp,
                         exposureTime,
                         lensMoving == JNI_TRUE};
  int64_t result[hdsml_jni::kResultSlots];
  try {
    session->detect(frame, result);
  } catch (...) {
    hdsml_jni::throwCurrentException(env, JavaError::kRuntime);
    return;
  }
  static_assert(sizeof(jlong) == sizeof(int64_t), "a jlong is 64 bits");
  env->SetLongArrayRegion(fields, 0, hdsml_jni::kResultSlots, reinterpret_cast<jlong*>(result));
}

JNIEXPORT void JNICALL Java_org_hdsml_PresenceDetector_nativeRead(JNIEnv* env, jclass,
                                                                  jlong handle,
                                                                  jlongArray fields) {
  DetectorSession* session = sessionOf(env, handle);
  if (session == nullptr) return;
  int64_t result[hdsml_jni::kResultSlots];
  session->read(result);
  env->SetLongArrayRegion(fields, 0, hdsml_jni::kResultSlots, reinterpret_cast<jlong*>(result));
}

JNIEXPORT void JNICALL Java_org_hdsml_PresenceDetector_nativeSetState(JNIEnv* env, jclass,
                                                                      jlong handle, jint state,
                                                                      jint frameRate,
                                                                      jlong timestamp,
                                                                      jstring reason) {
  DetectorSession* session = sessionOf(env, handle);
  if (session == nullptr) return;
  const char* text = reason != nullptr ? env->GetStringUTFChars(reason, nullptr) : nullptr;
  if (reason != nullptr && text == nullptr) return;  // OutOfMemoryError is pending
  try {
    session->setState(state, frameRate, timestamp, text);
  } catch (...) {
    hdsml_jni::throwCurrentException(env, JavaError::kIllegalArgument);
  }
  if (text != nullptr) env->ReleaseStringUTFChars(reason, text);
}

JNIEXPORT jboolean JNICALL Java_org_hdsml_PresenceDetector_nativePause(JNIEnv* env, jclass,
                                                                       jlong handle,
                                                                       jlong timeoutMs) {
  DetectorSession* session = sessionOf(env, handle);
  if (session == nullptr) return JNI_FALSE;
  try {
    return session->pause(millis(timeoutMs)) ? JNI_TRUE : JNI_FALSE;
  } catch (...) {
    hdsml_jni::throwCurrentException(env, JavaError::kRuntime);
  }
  return JNI_FALSE;
}

JNIEXPORT void JNICALL Java_org_hdsml_PresenceDetector_nativeResume(JNIEnv* env, jclass,
                                                                    jlong handle) {
  DetectorSession* session = sessionOf(env, handle);
  if (session == nullptr) return;
  try {
    session->resume();
  } catch (...) {
    hdsml_jni::throwCurrentException(env, JavaError::kRuntime);
  }
}

JNIEXPORT jboolean JNICALL Java_org_hdsml_PresenceDetector_nativeFlushLog(JNIEnv* env, jclass,
                                                                          jlong handle,
                                                                          jlong timeoutMs) {
  DetectorSession* session = sessionOf(env, handle);
  if (session == nullptr) return JNI_FALSE;
  return session->flushLog(millis(timeoutMs)) ? JNI_TRUE : JNI_FALSE;
}

JNIEXPORT void JNICALL Java_org_hdsml_PresenceDetector_nativeClose(JNIEnv*, jclass, jlong handle) {
  std::lock_guard<std::mutex> lock(openMutex);
  auto* session = reinterpret_cast<DetectorSession*>(handle);
  if (session == nullptr || session != current.load()) return;  // closed already
  current = nullptr;
  delete session;  // waits for the library's thread to end
}

}  // extern "C"
