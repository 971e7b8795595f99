// Native side of the binding's benchmark (org.hdsml.BenchHooks): the frames
// hdsml_bench measures, shared with Java as direct buffers, detect() called
// from C++ on the same facade for comparison, and the allocation count of the
// calling thread when the counting allocator is preloaded.
#include <dlfcn.h>
#include <jni.h>

#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <vector>

#include "bench/BenchFrames.h"
#include "client/camera_metadata.h"
#include "java/native/DetectorSession.h"
#include "tests/support/ClientProbe.h"
#include "wrapper/PresenceDetectorWrapper.h"

namespace {

const std::vector<hdsml::YuvFrame>& frames(jint width, jint height) {
  return hdsml_bench::nv21Frames(width, height);
}

}  // namespace

extern "C" {

// How many frames of the recording to load (hdsml_bench's --frames); call first.
JNIEXPORT void JNICALL Java_org_hdsml_BenchHooks_loadFrames(JNIEnv*, jclass, jint count) {
  hdsml_bench::setSourceFrameCount(count);
}

JNIEXPORT jint JNICALL Java_org_hdsml_BenchHooks_frameCount(JNIEnv*, jclass, jint width,
                                                            jint height) {
  return static_cast<jint>(frames(width, height).size());
}

// Frame i's bytes (they live as long as the process) and its layout: offsets of
// the three planes in the buffer, then pixel and row stride of each.
JNIEXPORT jobject JNICALL Java_org_hdsml_BenchHooks_frame(JNIEnv* env, jclass, jint width,
                                                          jint height, jint i, jintArray layout) {
  const hdsml::YuvFrame& f = frames(width, height)[i];
  const uint8_t* base = f.bytes.data();
  const jint values[] = {0,
                         static_cast<jint>(f.u - base),
                         static_cast<jint>(f.v - base),
                         f.yPixelStride,
                         f.yRowStride,
                         f.uPixelStride,
                         f.uRowStride,
                         f.vPixelStride,
                         f.vRowStride};
  env->SetIntArrayRegion(layout, 0, 9, values);
  return env->NewDirectByteBuffer(const_cast<uint8_t*>(base), static_cast<jlong>(f.bytes.size()));
}

// `count` detect() calls from C++ on the detector's facade, over the frames
// from `first` on, as the Java loop makes them: each once the library's thread
// has analysed the frame before, so that every call does the whole intake.
// Returns the nanoseconds spent in the calls.
JNIEXPORT jlong JNICALL Java_org_hdsml_BenchHooks_detectFromCpp(JNIEnv*, jclass, jlong handle,
                                                                jint width, jint height, jint first,
                                                                jint count, jlong timestamp) {
  detector_wrapper::PresenceDetectorWrapper& facade =
      *reinterpret_cast<hdsml_jni::DetectorSession*>(handle)->facade();
  const std::vector<hdsml::YuvFrame>& all = frames(width, height);
  std::chrono::nanoseconds spent{0};
  for (jint k = 0; k < count; ++k) {
    const hdsml::YuvFrame& f = all[(first + k) % all.size()];
    camera_metadata metadata;
    metadata.exposureTime = 10000000;
    hdsml::waitForIdle(*facade.client);
    const auto start = std::chrono::steady_clock::now();
    facade.detect(f.y, f.u, f.v, f.width, f.height, f.yPixelStride, f.yRowStride, f.uPixelStride,
                  f.uRowStride, f.vPixelStride, f.vRowStride, timestamp + k, metadata, 0);
    spent += std::chrono::steady_clock::now() - start;
  }
  return spent.count();
}

// Waits until the library's thread has analysed every frame handed over.
JNIEXPORT jboolean JNICALL Java_org_hdsml_BenchHooks_waitForIdle(JNIEnv*, jclass, jlong handle) {
  return hdsml::waitForIdle(
      *reinterpret_cast<hdsml_jni::DetectorSession*>(handle)->facade()->client);
}

// Allocations made so far by the calling thread, or -1 without the counting
// allocator (libhdsml_alloc_preload.so in LD_PRELOAD).
JNIEXPORT jlong JNICALL Java_org_hdsml_BenchHooks_threadAllocations(JNIEnv*, jclass) {
  using Counter = uint64_t (*)();
  static const auto counter =
      reinterpret_cast<Counter>(dlsym(RTLD_DEFAULT, "hdsml_thread_allocations"));
  return counter != nullptr ? static_cast<jlong>(counter()) : -1;
}

// Allocations counted while one heap block is made and freed: 1 when the
// counting allocator is in place, which makes a count of 0 mean something.
JNIEXPORT jlong JNICALL Java_org_hdsml_BenchHooks_countOneAllocation(JNIEnv* env, jclass cls) {
  const jlong before = Java_org_hdsml_BenchHooks_threadAllocations(env, cls);
  void* volatile block = std::malloc(64);
  std::free(block);
  return Java_org_hdsml_BenchHooks_threadAllocations(env, cls) - before;
}

}  // extern "C"
