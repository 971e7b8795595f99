// Smooths per-frame motion votes over a sliding window of the last `length`
// frames and yields the fraction that saw motion. Owned and used by the motion
// thread only; no lock.
#pragma once

#include <vector>

#include "hdsml_export.h"

class HDSML_EXPORT Filter {
 public:
  Filter();
  explicit Filter(int length);

  // Takes one vote; O(1) through a running sum.
  void updateBuffer(bool vote);
  // Back to warming up. ratio keeps its last value.
  void clear();
  // sum / length after the last vote, -1 before the first one. Callers compare
  // it, widened to double, with 0.8 once full is set.
  float getRatio() const { return ratio; }

  std::vector<bool> votes;  // ring of the last length votes, one bit each
  int length;
  int index = 0;  // slot the next vote overwrites
  int sum = 0;    // true votes in the window
  int updates = 0;
  float ratio = -1.0f;
  bool full = false;  // set once length votes were taken since the last clear
};
