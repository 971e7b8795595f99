// Soak: drives the facade as a hostile host would, for a bounded time. A camera
// thread calls detect() as fast as it can with changing content, layouts, sizes
// and metadata while a control thread fires random stateChange (unknown names
// and null included), pause and resume; then clients are built and destroyed
// with frames in flight. A watchdog aborts a phase that does not end in time.
//   hdsml_soak [--seconds N] [--seed S]   (CI: 20 s; by hand: any length)
#include <gtest/gtest.h>

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <thread>
#include <vector>

#include "frames/FrameData.h"
#include "frames/MemoryPool.h"
#include "tests/support/ClientProbe.h"
#include "tests/support/SyntheticScene.h"
#include "tests/support/TestConfig.h"
#include "tests/support/YuvFrame.h"
#include "wrapper/PresenceDetectorWrapper.h"

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
extern "C" size_t __sanitizer_get_current_allocated_bytes();  // GCC installs no header
#else
#include <malloc.h>
#endif

// Every frame frees memory; AddressSanitizer's default 256 MB quarantine would
// show up as resident growth, so the soak keeps a small one.
extern "C" __attribute__((visibility("default"))) const char* __asan_default_options() {
  return "quarantine_size_mb=16";
}

namespace {

using detector_wrapper::PresenceDetectorWrapper;
using Clock = std::chrono::steady_clock;
double gSeconds = 20;
unsigned gSeed = 0;

// Memory is read at quiescent points from warm-up on and judged by its growth
// over the first and the second half of a phase: a leak grows both halves, while
// a buffer made once, late (seen under TSan: +233 KB once in the cycles phase),
// grows one. Heap in use is exact (the sanitizers' figure leaves out their
// quarantine) and moves by a few kilobytes at most, so 32 KB over the thousands
// of frames, or the hundred cycles at least, of half a phase catches leaks of a
// few bytes a frame or a few hundred bytes a cycle. Resident memory also moves
// with allocator caches, the 16 MB quarantine and sanitizer shadow; 16 MB still
// catches a leaked client or a leaked motion-resolution buffer per frame.
constexpr long kHeapSlack = 32 << 10, kResidentSlack = 16 << 20;

struct Memory {
  long heap, resident;
  Memory() {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    heap = static_cast<long>(__sanitizer_get_current_allocated_bytes());
#else
    const struct mallinfo2 info = mallinfo2();
    heap = static_cast<long>(info.uordblks + info.hblkhd);
#endif
    long pages = 0;
    FILE* statm = std::fopen("/proc/self/statm", "r");
    if (statm == nullptr || std::fscanf(statm, "%*s %ld", &pages) != 1) pages = 0;
    if (statm != nullptr) std::fclose(statm);
    resident = pages * sysconf(_SC_PAGESIZE);
  }
};

// `readings` run from warm-up to the end of a phase.
void expectFlat(const std::vector<Memory>& readings, const char* phase) {
  const Memory &warm = readings.front(), &mid = readings[readings.size() / 2],
               &end = readings.back();
  const long heap = std::min(mid.heap - warm.heap, end.heap - mid.heap);
  const long resident = std::min(mid.resident - warm.resident, end.resident - mid.resident);
  std::fprintf(stderr,
               "soak: %s: heap %+ld B, resident %+ld KB after warm-up (%+ld B, %+ld KB"
               " in the lesser half)\n",
               phase, end.heap - warm.heap, (end.resident - warm.resident) / 1024, heap,
               resident / 1024);
  EXPECT_LE(heap, kHeapSlack) << phase;
  EXPECT_LE(resident, kResidentSlack) << phase;
}

int threadCount() {
  int n = 0;
  if (DIR* dir = opendir("/proc/self/task")) {
    while (const dirent* entry = readdir(dir)) n += entry->d_name[0] != '.';
    closedir(dir);
  }
  return n;
}

// destroy() returns once the motion thread has said it is done, but the detached
// thread then still runs its exit (thread-local storage, OpenCV's per-thread
// buffers included). Memory is measured only once every such thread is gone:
// a bounded wait until the process has no more than `count` threads.
bool waitForThreadsAtMost(int count) {
  const auto limit = Clock::now() + std::chrono::seconds(30);
  while (threadCount() > count) {
    if (Clock::now() > limit) return false;
    std::this_thread::yield();
  }
  return true;
}

// Aborts the run when a phase outlives its limit: a deadlock fails, not hangs.
class Watchdog {
 public:
  Watchdog(const char* phase, double seconds)
      : thread_([this, phase, seconds] {
          std::unique_lock<std::mutex> lock(mutex_);
          if (done_cv_.wait_for(lock, std::chrono::duration<double>(seconds),
                                [this] { return done_; }))
            return;
          std::fprintf(stderr, "soak: %s did not finish within %.0f s\n", phase, seconds);
          std::abort();
        }) {}
  ~Watchdog() {
    {
      std::lock_guard<std::mutex> lock(mutex_);
      done_ = true;
    }
    done_cv_.notify_one();
    thread_.join();
  }

 private:
  std::mutex mutex_;  // guards done_
  std::condition_variable done_cv_;
  bool done_ = false;
  std::thread thread_;  // declared last: starts once the members above exist
};

// The library prints every state change, exposure change and absence, tens of
// thousands of lines a second here; they go to /dev/null while a phase runs.
class QuietStdout {
 public:
  QuietStdout() {
    std::fflush(stdout);
    const int null = open("/dev/null", O_WRONLY);
    dup2(null, 1);
    close(null);
  }
  ~QuietStdout() {
    std::fflush(stdout);
    dup2(saved_, 1);
    close(saved_);
  }

 private:
  int saved_ = dup(1);
};

class SoakTest : public ::testing::Test {
 protected:
  SoakTest() {
    const int sizes[][2] = {{640, 480}, {320, 240}, {1280, 720}, {176, 144}, {162, 90}};
    for (int g = 0; g < 5; ++g) {
      const hdsml::SyntheticScene scene(sizes[g][0], sizes[g][1]);
      frames_.emplace_back();
      for (int k = 0; k < 9; ++k)  // eight steps of a moving square, then the still scene
        frames_.back().push_back(
            hdsml::packYuv(k < 8 ? scene.moving(k, sizes[g][1] / 4, 6) : scene.still(),
                           static_cast<hdsml::YuvLayout>(g % 3), 16 * (g % 3)));
    }
    const int exposures[] = {10000000, 100000000, -1, 0};  // normal, dark, unknown, zero
    for (int e = 0; e < 4; ++e) {
      metadata_[e].exposureTime = exposures[e];
      metadata_[e].entryCount = e;
      metadata_[e].entries = e > 0 ? new camera_metadata_entry[e]() : nullptr;
    }
  }

  // Frame n: a new size and layout every 64 frames, moving and still content in
  // turns of 256, a new exposure every 300 (or `exposure`), now and then a
  // moving lens.
  void detect(PresenceDetectorWrapper& facade, long n, int exposure = -1) {
    const hdsml::YuvFrame& f = frames_[(n / 64) % 5][(n / 256) % 2 ? 8 : n % 8];
    camera_metadata& meta = metadata_[exposure >= 0 ? exposure : (n / 300) % 4];
    meta.lensMoving = n % 97 == 0;
    facade.detect(f.y, f.u, f.v, f.width, f.height, f.yPixelStride, f.yRowStride, f.uPixelStride,
                  f.uRowStride, f.vPixelStride, f.vRowStride, 33 * n, meta, 0);
    ++calls_;
  }

  // The same quiescent state every time: detection on, 40 frames analysed in
  // normal light, every record back in the pool at count 0.
  void settle(PresenceDetectorWrapper& facade, long& n) {
    facade.stateChange("DETECT_MOTION", 30, 33 * n, "settle");
    for (int i = 0; i < 40; ++i, ++n) {
      detect(facade, n, 0);
      ASSERT_TRUE(hdsml::waitForIdle(*facade.client)) << "motion thread stuck";
    }
    for (FrameData* record : facade.client->framePool->frames) EXPECT_EQ(record->getRef(), 0);
  }

  std::vector<std::vector<hdsml::YuvFrame>> frames_;
  camera_metadata metadata_[4];
  long calls_ = 0;
  hdsml::ScopedEnv absence_{"PERSIST_HDS_CV_ABSENCE", "500"};
  hdsml::TestConfig config_{320, 240};
};

TEST_F(SoakTest, DetectAgainstRandomControlCalls) {
  PresenceDetectorWrapper* facade = PresenceDetectorWrapper::initialize(config_.path(), false);
  ASSERT_NE(facade, nullptr);
  long n = 0, controlCalls = 0, badStatus = 0, analysed = 0;
  std::vector<Memory> readings;
  readings.reserve(3);
  for (const double share : {0.2, 0.25, 0.25}) {  // warm-up, then two measured halves
    QuietStdout quiet;
    Watchdog watchdog("detect against control calls", share * gSeconds + 120);
    std::atomic<bool> stop{false};
    std::atomic<long> clock{n};
    std::thread camera([&] {
      for (long i = n, seen = -1; !stop; clock = ++i, seen = facade->motionFrameTimestamp) {
        detect(*facade, i);
        badStatus += facade->status != 0 && facade->status != 2 && facade->status != 5;
        analysed += facade->motionFrameTimestamp != seen;
      }
    });
    std::thread control([&, rng = std::mt19937(gSeed + (share > 0.2))]() mutable {
      const char* names[] = {"DETECT_MOTION", "DETECT_PRESENCE", "DETECT_ABSENCE", "NAP", nullptr};
      for (; !stop; ++controlCalls) {
        const unsigned op = rng() % 10;
        if (op < 6) facade->stateChange(names[rng() % 5], 30, 33 * clock, "soak");
        if (op == 6 || op == 7) facade->pause();
        if (op > 7) facade->resume();
        std::this_thread::sleep_for(std::chrono::microseconds(rng() % 2000));  // pacing only
      }
    });
    std::this_thread::sleep_for(std::chrono::duration<double>(share * gSeconds));
    stop = true;
    camera.join();
    control.join();
    n = clock;
    settle(*facade, n);
    readings.emplace_back();
  }
  std::fprintf(stderr, "soak: %ld detect calls (%ld saw a new analysis), %ld control calls\n",
               calls_, analysed, controlCalls);
  expectFlat(readings, "detect against control calls");
  EXPECT_EQ(static_cast<uint32_t>(facade->detectCount), static_cast<uint32_t>(calls_ + 1));
  EXPECT_EQ(badStatus, 0);
  EXPECT_GT(analysed, 20);
  PresenceDetectorWrapper::destroy();
}

TEST_F(SoakTest, InitializeDestroyCyclesWithFramesInFlight) {
  hdsml::TestConfig small(160, 120);
  std::mt19937 rng(gSeed);
  const auto deadline = Clock::now() + std::chrono::duration<double>(0.3 * gSeconds);
  QuietStdout quiet;
  Watchdog watchdog("initialize/destroy cycles", 0.3 * gSeconds + 300);
  const int threads = threadCount();  // no client yet
  const auto halfway = Clock::now() + std::chrono::duration<double>(0.15 * gSeconds);
  std::vector<Memory> readings;  // after warm-up (20 cycles), halfway, at the end
  readings.reserve(3);
  long held[2] = {};  // heap a new client takes, by configuration
  int cycles = 0;
  for (long n = 0; cycles < 200 || Clock::now() < deadline; ++cycles) {
    ASSERT_TRUE(waitForThreadsAtMost(threads)) << "a motion thread did not end";
    const Memory before;
    if (cycles == 20 || (readings.size() == 1 && cycles >= 110 && Clock::now() >= halfway))
      readings.push_back(before);
    PresenceDetectorWrapper* facade =
        PresenceDetectorWrapper::initialize(cycles % 2 ? small.path() : config_.path(), false);
    ASSERT_NE(facade, nullptr);
    held[cycles % 2] = Memory().heap - before.heap;
    facade->stateChange(cycles % 3 ? "DETECT_MOTION" : "DETECT_ABSENCE", 30, 33 * n, "cycle");
    for (unsigned k = 1 + rng() % 4; k > 0; --k) detect(*facade, n++);
    PresenceDetectorWrapper::destroy();  // the motion thread is still busy with those frames
  }
  // The README's 53.5 bytes per motion pixel: the difference between the two
  // sizes cancels what does not depend on the resolution.
  const double perPixel = double(held[0] - held[1]) / (320 * 240 - 160 * 120);
  std::fprintf(stderr, "soak: %d initialize/destroy cycles, %.2f B per motion pixel\n", cycles,
               perPixel);
  EXPECT_NEAR(perPixel, 53.5, 0.25);
  ASSERT_TRUE(waitForThreadsAtMost(threads)) << "a motion thread did not end";
  readings.emplace_back();
  expectFlat(readings, "initialize/destroy cycles");
}

}  // namespace

int main(int argc, char** argv) {
  ::testing::InitGoogleTest(&argc, argv);
  gSeed = static_cast<unsigned>(Clock::now().time_since_epoch().count());
  for (int i = 1; i + 1 < argc; i += 2) {
    if (std::strcmp(argv[i], "--seconds") == 0) gSeconds = std::atof(argv[i + 1]);
    if (std::strcmp(argv[i], "--seed") == 0) gSeed = std::strtoul(argv[i + 1], nullptr, 10);
  }
  std::fprintf(stderr, "soak: %.0f s, seed %u\n", gSeconds, gSeed);
  return RUN_ALL_TESTS();
}
