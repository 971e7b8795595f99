// Runs one replay: reads the input, applies the probes, packs every frame as
// YUV 4:2:0 in the chosen camera layout and drives the process-wide detector
// facade with it, pacing the frames as asked; then writes the CSV, the timeline,
// the annotated frames and prints the summary. Owns the facade for the length of
// run(); one Replayer per process at a time, used from one thread.
#pragma once

#include <string>
#include <vector>

#include "tools/options/ReplayOptions.h"
#include "tools/output/ReplayRecord.h"

namespace hdsreplay {

class Replayer {
 public:
  explicit Replayer(ReplayOptions options) : options_(std::move(options)) {}
  Replayer(const Replayer&) = delete;
  Replayer& operator=(const Replayer&) = delete;

  // Throws std::runtime_error with a message for the user when the input, the
  // configuration or an output cannot be used. Returns the process exit status.
  int run();

 private:
  ReplayOptions options_;
};

}  // namespace hdsreplay
