// What the scene guards made of one analysed frame, for the replay tools and a
// tuning engineer: how much moved against what a vote needs, which guard acted,
// the light mode. Plain value type, copied out of SceneGuards.
#pragma once

#include <cstdint>

namespace hdsml {

// Bits of GuardReport::acted.
enum GuardAction : unsigned {
  kGuardGlobalChange = 1u << 0,  // a whole-picture change: the frame cast no vote
  kGuardGainMatched = 1u << 1,   // the reference was scaled to the frame's brightness
  kGuardNoise = 1u << 2,         // measured noise raised the block threshold
  kGuardNight = 1u << 3,         // the night rule decided the blocks
  kGuardMask = 1u << 4,          // a masked block would have counted as moving
};

struct GuardReport {
  int64_t frameTimestamp = 0;
  bool compared = false;       // a reference frame was there to compare with
  bool voted = false;          // the frame cast a vote (not across a global change)
  bool vote = false;           // regions found
  int movedArea = 0;           // pixels of moving blocks outside the masks, 16 a block
  int largestRegion = 0;       // area of the largest region's bounding box, pixels
  int neededArea = 0;          // a vote needs a region larger than this, and movedArea > 1/3 of it
  unsigned acted = 0;          // GuardAction bits
  int lightMode = 1;           // rule in force: 1 normal light, 0 low light
  bool lightSwitched = false;  // the light mode changed on this frame
  float noise = 0.0f;          // measured sensor noise, grey levels per sample (0 unmeasured)
  float threshold = 0.0f;      // block-change threshold in force
  float gain = 1.0f;           // brightness of the frame over its reference's, as matched
  int lag = 0;                 // frames between the two compared frames
};

}  // namespace hdsml
