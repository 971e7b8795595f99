// The native methods of org.hdsml.PresenceDetector. Each entry point turns
// every C++ exception into a Java one before it returns: none may unwind into
// the JVM. The Java side has checked the arguments and holds its locks; the
// checks here only keep a stale handle or an address-less buffer from ever
// reaching the library.
#include <jni.h>

#include <boost/property_tree/exceptions.hpp>

#include <atomic>
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

unsigned char* planeStart(JNIEnv* env, jobject buffer, jint position) {
  auto* base = static_cast<unsigned char*>(env->GetDirectBufferAddress(buffer));
  return base != nullptr ? base + position : nullptr;
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
  hdsml_jni::Frame frame{planeStart(env, y, yPosition),
                         planeStart(env, u, uPosition),
                         planeStart(env, v, vPosition),
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
  if (frame.y == nullptr || frame.u == nullptr || frame.v == nullptr) {
    throwJava(env, JavaError::kIllegalArgument, "a plane's buffer has no native address");
    return;
  }
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

JNIEXPORT void JNICALL Java_org_hdsml_PresenceDetector_nativePause(JNIEnv* env, jclass,
                                                                   jlong handle) {
  DetectorSession* session = sessionOf(env, handle);
  if (session == nullptr) return;
  try {
    session->pause();
  } catch (...) {
    hdsml_jni::throwCurrentException(env, JavaError::kRuntime);
  }
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

JNIEXPORT void JNICALL Java_org_hdsml_PresenceDetector_nativeClose(JNIEnv*, jclass, jlong handle) {
  std::lock_guard<std::mutex> lock(openMutex);
  auto* session = reinterpret_cast<DetectorSession*>(handle);
  if (session == nullptr || session != current.load()) return;  // closed already
  current = nullptr;
  delete session;  // waits for the library's thread to end
}

}  // extern "C"
