// A camera application in miniature, built by scripts/check-install against the
// installed hdsml packages, once through find_package(hdsml) and once through
// pkg-config. It feeds NV21 frames of a grey scene through the facade at a
// camera's pace and requires what the library is for: motion reported while a
// bright square moves across the scene, then, in DETECT_ABSENCE, absence once
// the scene has been still for longer than the absence threshold (5 s of frame
// time by default). Exits 1 when either does not come within its frame budget.
//   consumer CONFIG [FRAMES_DIR]
// With FRAMES_DIR it also writes the luma of every frame as frame_NNNN.pgm
// there, for the installed hds-replay to replay.
#include <chrono>
#include <cstdio>
#include <string>
#include <thread>
#include <vector>

#include "wrapper/PresenceDetectorWrapper.h"

using detector_wrapper::PresenceDetectorWrapper;

namespace {

constexpr int kWidth = 320;
constexpr int kHeight = 240;
constexpr int kSquare = 48;
constexpr long long kFrameMs = 100;  // timestamps of a 10 fps camera
constexpr int kFrameBudget = 200;    // per phase; each needs well under 100

class Camera {
 public:
  Camera(PresenceDetectorWrapper* hds, const char* framesDir)
      : hds_(hds), framesDir_(framesDir), y_(kWidth * kHeight), vu_(kWidth * kHeight / 2, 128) {}

  // Shows the scene with the square's left edge at x, then waits a camera's
  // frame interval (shortened: the library analyses a 320x240 frame in well
  // under a millisecond) before the next frame comes.
  void shoot(int x) {
    for (int r = 0; r < kHeight; ++r)
      for (int c = 0; c < kWidth; ++c)
        y_[r * kWidth + c] = (c >= x && c < x + kSquare && r >= 96 && r < 96 + kSquare) ? 230 : 90;
    camera_metadata meta;
    meta.exposureTime = 10000000;  // 10 ms: normal light
    // NV21: one interleaved chroma plane, V first.
    hds_->detect(y_.data(), vu_.data() + 1, vu_.data(), kWidth, kHeight, 1, kWidth, 2, kWidth, 2,
                 kWidth, timestamp(), meta, 0);
    if (framesDir_ != nullptr) writePgm();
    ++frame_;
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }

  int frame() const { return frame_; }
  long long timestamp() const { return frame_ * kFrameMs; }

 private:
  void writePgm() const {
    char name[64];
    std::snprintf(name, sizeof name, "/frame_%04d.pgm", frame_);
    const std::string path = std::string(framesDir_) + name;
    if (FILE* f = std::fopen(path.c_str(), "wb")) {
      std::fprintf(f, "P5\n%d %d\n255\n", kWidth, kHeight);
      std::fwrite(y_.data(), 1, y_.size(), f);
      std::fclose(f);
    } else {
      std::perror(path.c_str());
    }
  }

  PresenceDetectorWrapper* hds_;
  const char* framesDir_;
  std::vector<unsigned char> y_, vu_;
  int frame_ = 0;
};

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    std::fprintf(stderr, "usage: consumer CONFIG [FRAMES_DIR]\n");
    return 2;
  }
  PresenceDetectorWrapper* hds = PresenceDetectorWrapper::initialize(argv[1], false);
  if (hds == nullptr) {
    PresenceDetectorWrapper::destroy();
    std::fprintf(stderr, "consumer: initialize(%s) failed\n", argv[1]);
    return 1;
  }
  Camera camera(hds, argc > 2 ? argv[2] : nullptr);

  hds->stateChange("DETECT_MOTION", 10, camera.timestamp(), "consumer");
  int x = 0, step = 12;
  while (hds->status != 0 && camera.frame() < kFrameBudget) {
    camera.shoot(x);
    if (x + step < 0 || x + step + kSquare > kWidth) step = -step;
    x += step;
  }
  const bool motion = hds->status == 0;
  std::printf("consumer: motion %s after %d frames (score %.2f)\n",
              motion ? "reported" : "NOT reported", camera.frame(), hds->motionScore);

  const int stillFrom = camera.frame();
  hds->stateChange("DETECT_ABSENCE", 10, camera.timestamp(), "consumer");
  while (hds->status != 2 && camera.frame() < stillFrom + kFrameBudget) camera.shoot(x);
  const bool absence = hds->status == 2;
  std::printf("consumer: absence %s %d frames after the square stopped (DETECT_ABSENCE from frame %d)\n",
              absence ? "reported" : "NOT reported", camera.frame() - stillFrom, stillFrom);

  PresenceDetectorWrapper::destroy();
  return motion && absence ? 0 : 1;
}
