// The guarded analysis of the motion thread, used instead of the motion
// detector when the configuration has a "guards" object: each frame is reduced
// to its 4x4 block sums (motion/BlockSums.h), kept in a ring of its own, and
// compared with an earlier frame block mean by block mean. The guards then act
// on that comparison: whole-picture changes are matched or cast no vote, block
// thresholds follow measured noise, the night rule sees dim walkers, masked
// blocks are skipped. Lives in the client's extensions; motion thread only,
// except report(), which any thread may call.
#pragma once

#include <array>
#include <cstdint>
#include <mutex>
#include <utility>
#include <vector>

#include <opencv2/core.hpp>

#include "frames/KernelPath.h"
#include "hdsml_export.h"
#include "motion/GuardReport.h"
#include "motion/GuardSettings.h"

class Filter;

namespace hdsml {

class HDSML_EXPORT SceneGuards {
 public:
  // Frames of width x height pixels; allocates everything it will use.
  SceneGuards(const GuardSettings& settings, int width, int height);
  SceneGuards(const SceneGuards&) = delete;
  SceneGuards& operator=(const SceneGuards&) = delete;

  struct Verdict {
    bool voted = false;  // false: the frame casts no vote
    bool vote = false;   // regions were found
  };
  // Analyses `frame` (packed width x height x 3 bytes) against the frame `lag`
  // frames earlier (14 in normal light, 4 in low light without the night
  // guard), or against the first frame after the last whole-picture change when
  // that is newer. `exposure` is the frame's exposureTime (-1 unknown). Fills
  // `regions` with the moving areas' bounding boxes.
  Verdict analyse(const uint8_t* frame, int exposure, int64_t timestamp, bool lowLight,
                  std::vector<std::pair<cv::Rect, float>>& regions);
  // Forgets the ring: the next frame has nothing to compare with (a pause).
  void restart();
  // The light mode changed: the next report says so.
  void noteLightSwitch() { lightSwitched_ = true; }
  // Feeds a new vote filter the latest votes, oldest first, so that a light
  // mode switch keeps the evidence instead of starting from an empty window.
  void refill(Filter& filter) const;
  // The last analysed frame's report.
  GuardReport report() const;
  const GuardSettings& settings() const { return settings_; }
  // Plain loop or vector kernel for the block sums; the same numbers.
  void setKernelPath(KernelPath path) { path_ = path; }

  static constexpr int kRing = 15;

 private:
  struct Slot {
    std::vector<uint16_t> sums;  // 3 planes of cells
    int64_t seq = -1;
    int exposure = -1;
    std::vector<uint16_t> light;   // per block: channel sums added, over 4
    std::vector<uint8_t> inRange;  // per block: unmasked, no channel near black or white
    float colour = 0.0f;           // saturation: distance from grey over brightness
  };
  // The steps of analyse(); kept out of the library's exported symbols.
  Slot& slotOf(int64_t seq) { return ring_[static_cast<size_t>(seq % kRing)]; }
  HDSML_NO_EXPORT void describe(Slot& slot) const;
  HDSML_NO_EXPORT bool colourCollapsed(const Slot& cur) const;
  HDSML_NO_EXPORT float matchGain(const Slot& cur, const Slot& ref, bool exposureChanged);
  HDSML_NO_EXPORT void measureChange(const Slot& cur, const Slot& ref, float gain, bool lowLight);
  HDSML_NO_EXPORT int64_t reference(int lag) const;
  HDSML_NO_EXPORT double blockThreshold(const Slot& cur, const Slot& ref, bool lowLight, bool night,
                                        GuardReport& r, float& noise);
  HDSML_NO_EXPORT bool wholePictureChanged(double threshold) const;
  HDSML_NO_EXPORT float measureNoise(const Slot& cur, const Slot& ref, float gain);
  HDSML_NO_EXPORT int markBlocks(const Slot& cur, const Slot& ref, float gain, bool lowLight,
                                 float threshold, GuardReport& r);
  HDSML_NO_EXPORT void findRegions(int minArea, std::vector<std::pair<cv::Rect, float>>& regions,
                                   GuardReport& r);
  HDSML_NO_EXPORT void remember(bool vote);
  HDSML_NO_EXPORT void publish(const GuardReport& r);

  const GuardSettings settings_;
  const int width_, height_, cols_, rows_;
  const size_t cells_;
  const std::vector<uint8_t> ignored_;  // 1 per masked block
  const int minArea_;                   // normal light, pixels
  const double scale_;                  // sensitivity's threshold factor
  const int unmasked_;                  // blocks outside the masks
  std::array<Slot, kRing> ring_;
  int64_t seq_ = 0;             // frames analysed; the newest is seq_
  int64_t firstSeq_ = 1;        // oldest frame the ring may compare with
  int64_t rearmSeq_ = 0;        // first frame after the last whole-picture change
  std::vector<float> change_;   // per block: the comparison's change statistic
  std::vector<float> samples_;  // every few unmasked blocks' change, for the noise
  std::vector<float> ratios_;   // blocks' brightness ratios, for the gain
  float noiseVar_ = -1.0f;      // smoothed per-pixel noise variance of a difference, 3 channels
  cv::Mat grid_;                // one byte per block, 255 moving
  std::vector<std::vector<cv::Point>> contours_;
  uint32_t voteBits_ = 0;  // latest votes, newest in bit 0
  int voteCount_ = 0;
  bool lightSwitched_ = false;
  KernelPath path_;
  mutable std::mutex reportMutex_;  // guards report_
  GuardReport report_;
};

}  // namespace hdsml
