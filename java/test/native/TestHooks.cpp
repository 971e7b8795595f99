// Native helpers of the Java tests (org.hdsml.NativeHooks), never shipped: the
// facade's fields read by name, hds-replay's lockstep wait, a frame record held
// still, buffers that end at an inaccessible page, and the colour conversion
// hds-replay makes.
#include <jni.h>
#include <sys/mman.h>
#include <unistd.h>

#include <opencv2/imgproc.hpp>

#include <cstring>
#include <mutex>

#include "frames/Buffer.h"
#include "frames/FrameData.h"
#include "frames/MemoryPool.h"
#include "java/native/DetectorSession.h"
#include "tests/support/ClientProbe.h"

namespace {

detector_wrapper::PresenceDetectorWrapper& facadeOf(jlong handle) {
  return *reinterpret_cast<hdsml_jni::DetectorSession*>(handle)->facade();
}

jlong bitsOf(float value) {
  int32_t bits;
  std::memcpy(&bits, &value, sizeof bits);
  return bits;
}

const uintptr_t kPage = static_cast<uintptr_t>(sysconf(_SC_PAGESIZE));

FrameData* lockedRecord = nullptr;  // by lockHeldRecord

}  // namespace

extern "C" {

// What DetectionResult reports, in its getters' order, as the facade holds it
// (floats as bits, freshness from the two timestamps); then detectCount.
JNIEXPORT void JNICALL Java_org_hdsml_NativeHooks_facade(JNIEnv* env, jclass, jlong handle,
                                                         jlongArray out) {
  const detector_wrapper::PresenceDetectorWrapper& f = facadeOf(handle);
  const jlong fields[] = {f.status,
                          bitsOf(f.confidence),
                          f.outputFrameTimestamp,
                          f.outputWallClock,
                          f.outputFrameTimestamp >= f.stateChangeTimestamp,
                          f.motionDetected,
                          bitsOf(f.motionScore),
                          f.motionFrameTimestamp,
                          f.motionWallClock,
                          bitsOf(f.detectTimeMs),
                          f.detectCount};
  env->SetLongArrayRegion(out, 0, sizeof fields / sizeof fields[0], fields);
}

JNIEXPORT jlong JNICALL Java_org_hdsml_NativeHooks_lastAnalysed(JNIEnv*, jclass, jlong handle) {
  return facadeOf(handle).client->queryMotionDetector().frameTimestamp;
}

JNIEXPORT jboolean JNICALL Java_org_hdsml_NativeHooks_waitForIdle(JNIEnv*, jclass, jlong handle) {
  return hdsml::waitForIdle(*facadeOf(handle).client);
}

JNIEXPORT jint JNICALL Java_org_hdsml_NativeHooks_heldRecords(JNIEnv*, jclass, jlong handle) {
  return hdsml::heldRecords(*facadeOf(handle).client);
}

JNIEXPORT jint JNICALL Java_org_hdsml_NativeHooks_queuedFrames(JNIEnv*, jclass, jlong handle) {
  Buffer& queue = *facadeOf(handle).client->frameQueue;
  std::lock_guard<std::mutex> lock(queue.mutex);
  return static_cast<jint>(queue.queue.size());
}

// Locks the frame record the library's thread still holds, if any, and keeps
// it locked: the thread then waits at the end of its analysis, when it lets the
// record go, and so does anyone reading the record's count. False, with
// nothing locked, when no record is held.
JNIEXPORT jboolean JNICALL Java_org_hdsml_NativeHooks_lockHeldRecord(JNIEnv*, jclass,
                                                                     jlong handle) {
  for (FrameData* frame : facadeOf(handle).client->framePool->frames) {
    frame->lock.lock();
    if (frame->refCount != 0) {
      lockedRecord = frame;
      return JNI_TRUE;
    }
    frame->lock.unlock();
  }
  return JNI_FALSE;
}

// Unlocks the record of lockHeldRecord, on the thread that locked it.
JNIEXPORT void JNICALL Java_org_hdsml_NativeHooks_unlockRecord(JNIEnv*, jclass) {
  if (lockedRecord != nullptr) lockedRecord->lock.unlock();
  lockedRecord = nullptr;
}

// `size` bytes ending where an inaccessible page begins: a read past the end
// crashes. Never unmapped: a test makes a few.
JNIEXPORT jobject JNICALL Java_org_hdsml_NativeHooks_pageEndBuffer(JNIEnv* env, jclass,
                                                                   jint size) {
  const uintptr_t length = (size + kPage - 1) / kPage * kPage + kPage;
  void* base = mmap(nullptr, length, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (base == MAP_FAILED) return nullptr;
  unsigned char* guard = static_cast<unsigned char*>(base) + length - kPage;
  mprotect(guard, kPage, PROT_NONE);
  return env->NewDirectByteBuffer(guard - size, size);
}

// Makes a pageEndBuffer unreadable: a later read crashes.
JNIEXPORT void JNICALL Java_org_hdsml_NativeHooks_revoke(JNIEnv* env, jclass, jobject buffer) {
  const auto start = reinterpret_cast<uintptr_t>(env->GetDirectBufferAddress(buffer));
  const uintptr_t first = start / kPage * kPage;
  const uintptr_t end = start + static_cast<uintptr_t>(env->GetDirectBufferCapacity(buffer));
  mprotect(reinterpret_cast<void*>(first), end - first, PROT_NONE);
}

JNIEXPORT jbyteArray JNICALL Java_org_hdsml_NativeHooks_bgrToI420(JNIEnv* env, jclass,
                                                                  jbyteArray bgr, jint width,
                                                                  jint height) {
  cv::Mat image(height, width, CV_8UC3), i420;
  env->GetByteArrayRegion(bgr, 0, width * height * 3, reinterpret_cast<jbyte*>(image.data));
  cv::cvtColor(image, i420, cv::COLOR_BGR2YUV_I420);
  jbyteArray out = env->NewByteArray(static_cast<jsize>(i420.total()));
  if (out != nullptr)
    env->SetByteArrayRegion(out, 0, static_cast<jsize>(i420.total()),
                            reinterpret_cast<const jbyte*>(i420.data));
  return out;
}

}  // extern "C"
