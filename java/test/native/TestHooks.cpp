// Native helpers of the Java tests (org.hdsml.NativeHooks), never shipped: the
// facade's fields read from C++ by name, the lockstep wait that hds-replay
// uses, buffers that end at an inaccessible page, and OpenCV's colour
// conversion, so that the tests feed the pixels hds-replay feeds.
#include <jni.h>
#include <sys/mman.h>
#include <unistd.h>

#include <opencv2/imgproc.hpp>

#include <chrono>
#include <cstdint>
#include <cstring>

#include "java/native/DetectorSession.h"
#include "tests/support/ClientProbe.h"
#include "wrapper/PresenceDetectorWrapper.h"

namespace {

using detector_wrapper::PresenceDetectorWrapper;

PresenceDetectorWrapper& facadeOf(jlong handle) {
  return *reinterpret_cast<hdsml_jni::DetectorSession*>(handle)->facade();
}

int64_t bitsOf(float value) {
  int32_t bits;
  std::memcpy(&bits, &value, sizeof bits);
  return bits;
}

uintptr_t pageSize() { return static_cast<uintptr_t>(sysconf(_SC_PAGESIZE)); }
uintptr_t pageFloor(uintptr_t a) { return a & ~(pageSize() - 1); }
uintptr_t pageCeil(uintptr_t a) { return pageFloor(a + pageSize() - 1); }

}  // namespace

extern "C" {

// The facade's fields in their declaration order, floats as their bits.
JNIEXPORT void JNICALL Java_org_hdsml_NativeHooks_facadeFields(JNIEnv* env, jclass, jlong handle,
                                                               jlongArray out) {
  const PresenceDetectorWrapper& f = facadeOf(handle);
  const jlong fields[] = {f.state,
                          f.status,
                          bitsOf(f.detectTimeMs),
                          bitsOf(f.confidence),
                          f.detectCount,
                          f.outputFrameTimestamp,
                          f.outputWallClock,
                          f.stateChangeTimestamp,
                          f.frameResult,
                          f.motionDetected,
                          bitsOf(f.motionScore),
                          f.motionFrameTimestamp,
                          f.motionWallClock};
  env->SetLongArrayRegion(out, 0, sizeof fields / sizeof fields[0], fields);
}

JNIEXPORT jboolean JNICALL Java_org_hdsml_NativeHooks_waitForIdle(JNIEnv*, jclass, jlong handle,
                                                                  jlong timeoutMillis) {
  return hdsml::waitForIdle(*facadeOf(handle).client, std::chrono::milliseconds(timeoutMillis));
}

// The timestamp of the frame the library's thread analysed last.
JNIEXPORT jlong JNICALL Java_org_hdsml_NativeHooks_lastAnalysed(JNIEnv*, jclass, jlong handle) {
  return facadeOf(handle).client->queryMotionDetector().frameTimestamp;
}

// `size` bytes that end where an inaccessible page begins: a read past the
// end crashes the process instead of passing unseen.
JNIEXPORT jobject JNICALL Java_org_hdsml_NativeHooks_pageEndBuffer(JNIEnv* env, jclass,
                                                                   jint size) {
  const uintptr_t length = pageCeil(static_cast<uintptr_t>(size)) + pageSize();
  void* base = mmap(nullptr, length, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (base == MAP_FAILED) return nullptr;
  auto* guard = static_cast<unsigned char*>(base) + length - pageSize();
  mprotect(guard, pageSize(), PROT_NONE);
  return env->NewDirectByteBuffer(guard - size, size);
}

// Makes a pageEndBuffer inaccessible: any later read of it crashes.
JNIEXPORT void JNICALL Java_org_hdsml_NativeHooks_revoke(JNIEnv* env, jclass, jobject buffer) {
  const auto start = reinterpret_cast<uintptr_t>(env->GetDirectBufferAddress(buffer));
  const auto end = start + static_cast<uintptr_t>(env->GetDirectBufferCapacity(buffer));
  mprotect(reinterpret_cast<void*>(pageFloor(start)), pageCeil(end) - pageFloor(start), PROT_NONE);
}

JNIEXPORT void JNICALL Java_org_hdsml_NativeHooks_release(JNIEnv* env, jclass, jobject buffer) {
  const auto start = reinterpret_cast<uintptr_t>(env->GetDirectBufferAddress(buffer));
  const auto end = start + static_cast<uintptr_t>(env->GetDirectBufferCapacity(buffer));
  munmap(reinterpret_cast<void*>(pageFloor(start)), pageCeil(end) - pageFloor(start) + pageSize());
}

// 8-bit BGR to planar I420, the conversion hds-replay makes.
JNIEXPORT jbyteArray JNICALL Java_org_hdsml_NativeHooks_bgrToI420(JNIEnv* env, jclass,
                                                                  jbyteArray bgr, jint width,
                                                                  jint height) {
  cv::Mat image(height, width, CV_8UC3);
  env->GetByteArrayRegion(bgr, 0, width * height * 3, reinterpret_cast<jbyte*>(image.data));
  cv::Mat i420;
  cv::cvtColor(image, i420, cv::COLOR_BGR2YUV_I420);
  const jsize size = static_cast<jsize>(i420.total());
  jbyteArray out = env->NewByteArray(size);
  if (out != nullptr)
    env->SetByteArrayRegion(out, 0, size, reinterpret_cast<const jbyte*>(i420.data));
  return out;
}

}  // extern "C"
