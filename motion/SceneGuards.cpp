#include "motion/SceneGuards.h"

#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cmath>

#include "conditioning/Filter.h"
#include "motion/BlockMask.h"
#include "motion/BlockSums.h"

namespace hdsml {
namespace {

constexpr int kSide = 4;
constexpr int kPixelsPerBlock = kSide * kSide;

// Frames between the compared frames: the built-in rings of 15 and 5. The
// night rule looks as far back as normal light, so that a slow, dim walker has
// moved far enough to change whole blocks.
constexpr int kLagNormal = 14;
constexpr int kLagLowLight = 4;
constexpr int kLagAfterChange = 4;

// Normal light, on block means. `energy` is the squared change of the block's
// mean colour summed over the channels, times 16: for a block whose pixels all
// change alike it equals the built-in rule's colour distance. Half of that
// rule's 16000, because a mean changes less than its pixels where a moving edge
// crosses a block. The chromaticity, range and very-large cases are the
// built-in rule's, computed on the block means.
constexpr double kEnergyThreshold = 8000.0;
constexpr double kVeryLargeEnergy = 800000.0;
constexpr double kChromaThreshold = 0.08;
constexpr double kExtremeChromaThreshold = 0.8;
constexpr int kDarkChannelSum = 160;
constexpr int kBrightChannelSum = 3840;

// Low light: the absolute luma change of the block mean times 16, with the
// built-in rule's weights by byte position and its 320 (20 a pixel). The night
// rule needs 6 a pixel; the noise guard keeps it above the measured noise.
constexpr double kLowLightThreshold = 320.0;
constexpr double kNightThreshold = 96.0;

// Noise: with per-pixel difference variance v (three channels summed), a still
// block's energy averages v and its luma change has variance about 2.4 v. The
// thresholds stay this far above them; the median of the energies, divided by
// kMedianToMean, estimates v.
constexpr double kEnergyNoiseFactor = 6.0;
constexpr double kLumaNoiseFactor = 5.0;
constexpr double kLumaNoiseVariance = 2.4;
constexpr double kMedianToMean = 0.7;
constexpr int kNoiseSampleStep = 5;
constexpr float kNoiseSmoothing = 0.3f;

// Whole-picture changes: a comparison in which this share of the compared
// blocks changed beyond the threshold, or whose colour fell (or rose) to less
// than half, spans a change of the picture itself; no person covers that much.
// Brightness is matched when it moved by more than kGainTolerance or the
// exposure time changed.
constexpr double kGlobalShare = 0.35;
constexpr double kColourCollapse = 0.5;
constexpr float kMinColour = 0.02f;
// The saturation of a picture too dark to have one.
constexpr float kNoColour = -1.0f;
constexpr double kGainTolerance = 0.04;
// Exposure times that differ by less than this are the camera's own jitter.
constexpr double kExposureTolerance = 0.02;

// Block i's three channel sums from planes of `cells` values, times `gain`.
void blockSums(const std::vector<uint16_t>& sums, size_t cells, size_t i, float gain,
               float out[3]) {
  out[0] = gain * static_cast<float>(sums[i]);
  out[1] = gain * static_cast<float>(sums[cells + i]);
  out[2] = gain * static_cast<float>(sums[2 * cells + i]);
}

// 1 when a channel sum is neither near black nor near white (161 to 3839).
int inRangeSum(int sum) {
  return static_cast<unsigned>(sum - kDarkChannelSum - 1) <
         static_cast<unsigned>(kBrightChannelSum - kDarkChannelSum - 1);
}

bool outOfRange(float sum) { return sum <= kDarkChannelSum || sum >= kBrightChannelSum; }

double lumaChange(double d0, double d1, double d2) {
  return std::fabs(0.299 * d2 + 0.587 * d1 + 0.114 * d0);
}

double energy(double d0, double d1, double d2) {
  return (d0 * d0 + d1 * d1 + d2 * d2) / kPixelsPerBlock;
}

// Squared red and blue chromaticity differences of two block means, times 16.
double chromaDistance(const float a[3], const float b[3]) {
  const double sa = double(a[0]) + a[1] + a[2] + kPixelsPerBlock;
  const double sb = double(b[0]) + b[1] + b[2] + kPixelsPerBlock;
  const double dr = a[0] / sa - b[0] / sb, db = a[2] / sa - b[2] / sb;
  return kPixelsPerBlock * (dr * dr + db * db);
}

}  // namespace

SceneGuards::SceneGuards(const GuardSettings& settings, int width, int height)
    : settings_(settings),
      width_(width),
      height_(height),
      cols_(width / kSide),
      rows_(height / kSide),
      cells_(size_t(width / kSide) * (height / kSide)),
      ignored_(blockMaskOfPolygons(settings.masks, width, height)),
      minArea_(settings.minRegionPixels(width, height)),
      scale_(settings.thresholdScale()),
      unmasked_(static_cast<int>(std::count(ignored_.begin(), ignored_.end(), 0))),
      change_(cells_, 0.0f),
      grid_(height / kSide, width / kSide, CV_8UC1, cv::Scalar(0)),
      path_(defaultKernelPath()) {
  for (Slot& slot : ring_) {
    slot.sums.assign(3 * cells_, 0);
    slot.light.assign(cells_, 0);
    slot.inRange.assign(cells_, 0);
  }
  samples_.reserve(cells_ / kNoiseSampleStep + 1);
  ratios_.reserve(cells_);
  contours_.reserve(64);
}

void SceneGuards::restart() {
  firstSeq_ = seq_ + 1;
  rearmSeq_ = 0;
}

// Per block of the newest frame: whether it lies within range in every channel,
// and its brightness; and the saturation of the whole picture, the block
// means' distance from grey over their brightness, so that a change of
// exposure leaves it as it is.
void SceneGuards::describe(Slot& slot) const {
  const uint16_t *s0 = slot.sums.data(), *s1 = s0 + cells_, *s2 = s1 + cells_;
  uint16_t* light = slot.light.data();
  uint8_t* inRange = slot.inRange.data();
  const uint8_t* ignored = ignored_.data();
  // Plain integer arithmetic without branches, which the compiler vectorises;
  // the sums stay below 2^31 (at most 2 * 4080 and 3 * 4080 a block).
  int colour = 0, total = 0;
  for (size_t i = 0; i < cells_; ++i) {
    const int a = s0[i], b = s1[i], c = s2[i];
    colour += std::abs(a - b) + std::abs(c - b);
    total += a + b + c;
    light[i] = static_cast<uint16_t>((a + b + c) >> 2);
    inRange[i] =
        static_cast<uint8_t>(inRangeSum(a) & inRangeSum(b) & inRangeSum(c) & (ignored[i] ^ 1));
  }
  // A picture close to black (a film's black frame, a covered lens) has no
  // colour to lose: its saturation is the noise's.
  const bool dark = int64_t(total) < int64_t(3) * kDarkChannelSum * int64_t(cells_);
  slot.colour = dark ? kNoColour : float(colour) / float(total);
}

// The infrared switch: the picture loses (or regains) its colour at once.
bool SceneGuards::colourCollapsed(const Slot& cur) const {
  const int64_t prev = cur.seq - 1;
  if (prev < firstSeq_) return false;
  const Slot& p = ring_[static_cast<size_t>(prev % kRing)];
  if (p.colour == kNoColour || cur.colour == kNoColour) return false;
  const float low = std::min(p.colour, cur.colour), high = std::max(p.colour, cur.colour);
  return high >= kMinColour && low < kColourCollapse * high;
}

// Brightness of the frame over its reference's, from the blocks that neither
// clip nor sink into black in either; 1 when it barely moved and the exposure
// time did not change.
float SceneGuards::matchGain(const Slot& cur, const Slot& ref, bool exposureChanged) {
  long a = 0, b = 0;
  for (size_t i = 0; i < cells_; ++i) {
    const int both = cur.inRange[i] & ref.inRange[i];
    a += both * cur.light[i];
    b += both * ref.light[i];
  }
  if (a <= 0 || b <= 0) return 1.0f;
  const double rough = double(a) / double(b);
  if (!exposureChanged && std::fabs(rough - 1.0) <= kGainTolerance) return 1.0f;
  // The median of the blocks' own ratios, so that what changed otherwise
  // (someone large and near, a lamp lighting one corner) does not bend it.
  ratios_.clear();
  for (size_t i = 0; i < cells_; ++i)
    if (cur.inRange[i] & ref.inRange[i] && ref.light[i] > 0)
      ratios_.push_back(float(cur.light[i]) / float(ref.light[i]));
  if (ratios_.empty()) return 1.0f;
  auto middle = ratios_.begin() + ratios_.size() / 2;
  std::nth_element(ratios_.begin(), middle, ratios_.end());
  const double gain = *middle;
  if (!exposureChanged && std::fabs(gain - 1.0) <= kGainTolerance) return 1.0f;
  return static_cast<float>(gain);
}

// change_[i]: the energy of block i (normal light) or its luma change (low
// light), against the reference scaled by `gain`. While the brightness is
// matched, blocks that clip or sink into black in either frame cannot be
// compared and count as unchanged.
void SceneGuards::measureChange(const Slot& cur, const Slot& ref, float gain, bool lowLight) {
  const bool matched = gain != 1.0f;
  if (!matched) {
    // The common case in integers, which the compiler vectorises: the energy
    // is at most 3 * 4080^2, the luma change in thousandths at most 1000 * 4080,
    // both far from 2^31.
    const uint16_t *a0 = cur.sums.data(), *a1 = a0 + cells_, *a2 = a1 + cells_;
    const uint16_t *b0 = ref.sums.data(), *b1 = b0 + cells_, *b2 = b1 + cells_;
    float* change = change_.data();
    if (lowLight) {
      for (size_t i = 0; i < cells_; ++i) {
        const int d0 = a0[i] - b0[i], d1 = a1[i] - b1[i], d2 = a2[i] - b2[i];
        change[i] = static_cast<float>(std::abs(299 * d2 + 587 * d1 + 114 * d0)) * 0.001f;
      }
    } else {
      for (size_t i = 0; i < cells_; ++i) {
        const int d0 = a0[i] - b0[i], d1 = a1[i] - b1[i], d2 = a2[i] - b2[i];
        change[i] = static_cast<float>(d0 * d0 + d1 * d1 + d2 * d2) * (1.0f / kPixelsPerBlock);
      }
    }
    return;
  }
  for (size_t i = 0; i < cells_; ++i) {
    float a[3], b[3];
    blockSums(cur.sums, cells_, i, 1.0f, a);
    blockSums(ref.sums, cells_, i, gain, b);
    if (matched && (outOfRange(a[0]) || outOfRange(a[1]) || outOfRange(a[2]) || outOfRange(b[0]) ||
                    outOfRange(b[1]) || outOfRange(b[2]))) {
      change_[i] = 0.0f;
      continue;
    }
    const double d0 = a[0] - b[0], d1 = a[1] - b[1], d2 = a[2] - b[2];
    change_[i] = static_cast<float>(lowLight ? lumaChange(d0, d1, d2) : energy(d0, d1, d2));
  }
}

// Noise variance of a difference from the median block energy of every
// fifth unmasked block: most blocks of a scene do not move, so the median is theirs.
float SceneGuards::measureNoise(const Slot& cur, const Slot& ref, float gain) {
  samples_.clear();
  for (size_t i = 0; i < cells_; i += kNoiseSampleStep) {
    if (ignored_[i]) continue;
    float a[3], b[3];
    blockSums(cur.sums, cells_, i, 1.0f, a);
    blockSums(ref.sums, cells_, i, gain, b);
    samples_.push_back(static_cast<float>(energy(a[0] - b[0], a[1] - b[1], a[2] - b[2])));
  }
  if (samples_.empty()) return noiseVar_;
  auto middle = samples_.begin() + samples_.size() / 2;
  std::nth_element(samples_.begin(), middle, samples_.end());
  const float measured = static_cast<float>(*middle / kMedianToMean);
  return noiseVar_ < 0.0f ? measured : noiseVar_ + kNoiseSmoothing * (measured - noiseVar_);
}

// Marks the moving blocks in grid_ and returns their pixels.
int SceneGuards::markBlocks(const Slot& cur, const Slot& ref, float gain, bool lowLight,
                            float threshold, GuardReport& r) {
  int moved = 0;
  uint8_t* grid = grid_.data;
  const double veryLarge = kVeryLargeEnergy * scale_;
  for (size_t i = 0; i < cells_; ++i) {
    grid[i] = 0;
    if (change_[i] <= threshold) continue;
    bool moving = lowLight;
    if (!lowLight) {
      float a[3];
      blockSums(cur.sums, cells_, i, 1.0f, a);
      float b[3];
      blockSums(ref.sums, cells_, i, gain, b);
      const bool extreme = outOfRange(a[0]) || outOfRange(a[1]) || outOfRange(a[2]) ||
                           outOfRange(b[0]) || outOfRange(b[1]) || outOfRange(b[2]);
      const double chroma = chromaDistance(a, b);
      moving = change_[i] > veryLarge ||
               (extreme ? change_[i] > 2.0 * threshold && chroma > kExtremeChromaThreshold
                        : chroma > kChromaThreshold);
    }
    if (!moving) continue;
    if (ignored_[i]) {
      r.acted |= kGuardMask;
      continue;
    }
    grid[i] = 255;
    moved += kPixelsPerBlock;
  }
  return moved;
}

// Bounding boxes of the 8-connected groups of moving blocks, larger than
// minArea pixels; the built-in rules' contours, found on the grid of blocks.
void SceneGuards::findRegions(int minArea, std::vector<std::pair<cv::Rect, float>>& regions,
                              GuardReport& r) {
  cv::findContours(grid_, contours_, cv::RETR_EXTERNAL, cv::CHAIN_APPROX_NONE, cv::Point(0, 0));
  for (const std::vector<cv::Point>& contour : contours_) {
    const cv::Rect cell = cv::boundingRect(cv::Mat(contour));
    const cv::Rect box(kSide * cell.x, kSide * cell.y, kSide * cell.width, kSide * cell.height);
    r.largestRegion = std::max(r.largestRegion, box.area());
    if (box.area() > minArea) regions.emplace_back(box, 0.0f);
  }
}

// The frame the newest is compared with: `lag` frames back, never before the
// ring's start or the last whole-picture change. After such a change, at most
// kLagAfterChange frames back until `lag` frames back lies beyond the first
// kLagAfterChange frames after it: those may still be settling or clipped, and
// a reference pinned to them would hide whoever came in with the light.
int64_t SceneGuards::reference(int lag) const {
  if (rearmSeq_ > 0 && seq_ - lag < rearmSeq_ + kLagAfterChange)
    lag = std::min(lag, kLagAfterChange);
  return std::max({seq_ - lag, firstSeq_, rearmSeq_});
}

// The block threshold in force: the rule's, scaled by the sensitivity, and with
// the noise or night guard at least the measured noise's floor. `noise` gets
// the noise variance it used (-1 unmeasured).
double SceneGuards::blockThreshold(const Slot& cur, const Slot& ref, bool lowLight, bool night,
                                   GuardReport& r, float& noise) {
  double threshold =
      (lowLight ? (night ? kNightThreshold : kLowLightThreshold) : kEnergyThreshold) * scale_;
  noise = noiseVar_;
  if (!settings_.noise && !night) return threshold;
  // While the brightness is matched, what remains of a still block is the
  // match's error, not noise: the noise learnt before stands.
  if (r.gain == 1.0f) noise = measureNoise(cur, ref, r.gain);
  if (noise < 0.0f) return threshold;
  const double floor = lowLight ? kLumaNoiseFactor * std::sqrt(kLumaNoiseVariance * noise)
                                : kEnergyNoiseFactor * noise;
  if (floor > threshold) {
    threshold = floor;
    r.acted |= kGuardNoise;
  }
  r.noise = std::sqrt(noise / 6.0f);  // a difference of two samples, 3 channels
  return threshold;
}

// Whether this share of the unmasked blocks changed: the picture's own change.
bool SceneGuards::wholePictureChanged(double threshold) const {
  const float t = static_cast<float>(threshold);
  const uint8_t* ignored = ignored_.data();
  int changed = 0;
  for (size_t i = 0; i < cells_; ++i) changed += (change_[i] > t) & (ignored[i] ^ 1);
  return unmasked_ > 0 && changed >= kGlobalShare * unmasked_;
}

SceneGuards::Verdict SceneGuards::analyse(const uint8_t* frame, int exposure, int64_t timestamp,
                                          bool lowLight,
                                          std::vector<std::pair<cv::Rect, float>>& regions) {
  regions.clear();
  GuardReport r;
  r.frameTimestamp = timestamp;
  r.lightMode = lowLight ? 0 : 1;
  r.lightSwitched = lightSwitched_;
  lightSwitched_ = false;
  const bool night = lowLight && settings_.night;
  const int minArea = lowLight && !night ? 4 * minArea_ : minArea_;
  r.neededArea = minArea;

  Slot& cur = slotOf(++seq_);
  sumBlocks(frame, width_, height_, cur.sums.data(), path_);
  cur.seq = seq_;
  cur.exposure = exposure;
  if (settings_.globalChange) {
    describe(cur);
    if (colourCollapsed(cur)) {
      rearmSeq_ = seq_;
      r.acted |= kGuardGlobalChange;
    }
  }
  const int64_t refSeq = reference(lowLight && !night ? kLagLowLight : kLagNormal);
  if (refSeq >= seq_) {
    publish(r);
    return {};
  }
  const Slot& ref = slotOf(refSeq);
  r.compared = true;
  r.lag = static_cast<int>(seq_ - refSeq);
  bool lightChanged = false;
  if (settings_.globalChange) {
    const bool exposureChanged =
        cur.exposure > 0 && ref.exposure > 0 &&
        std::abs(cur.exposure - ref.exposure) > kExposureTolerance * ref.exposure;
    r.gain = matchGain(cur, ref, exposureChanged);
    if (r.gain != 1.0f) r.acted |= kGuardGainMatched;
    lightChanged = exposureChanged || r.gain != 1.0f;
  }
  measureChange(cur, ref, r.gain, lowLight);
  float noise = -1.0f;
  const double threshold = blockThreshold(cur, ref, lowLight, night, r, noise);
  if (night) r.acted |= kGuardNight;
  r.threshold = static_cast<float>(threshold);
  // Only a change of the light explains a change of the whole picture: with
  // the same exposure and brightness, a third of the blocks moving is
  // something big moving (a person close by, a cut in a film), and it votes.
  if (lightChanged && wholePictureChanged(threshold)) {
    rearmSeq_ = seq_;
    r.acted |= kGuardGlobalChange;
    publish(r);
    return {};
  }
  // A whole-picture change is no noise: only frames that vote teach it.
  noiseVar_ = noise;

  r.movedArea = markBlocks(cur, ref, r.gain, lowLight, static_cast<float>(threshold), r);
  if (r.movedArea > minArea / 3) findRegions(minArea, regions, r);
  r.voted = true;
  r.vote = !regions.empty();
  remember(r.vote);
  publish(r);
  return {true, r.vote};
}

void SceneGuards::remember(bool vote) {
  voteBits_ = (voteBits_ << 1) | (vote ? 1u : 0u);
  voteCount_ = std::min(voteCount_ + 1, 32);
}

void SceneGuards::refill(Filter& filter) const {
  const int n = std::min(voteCount_, filter.length);
  for (int k = n - 1; k >= 0; --k) filter.updateBuffer(((voteBits_ >> k) & 1u) != 0);
}

void SceneGuards::publish(const GuardReport& r) {
  std::lock_guard<std::mutex> lock(reportMutex_);
  report_ = r;
}

GuardReport SceneGuards::report() const {
  std::lock_guard<std::mutex> lock(reportMutex_);
  return report_;
}

}  // namespace hdsml
