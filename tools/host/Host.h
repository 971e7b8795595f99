// The camera application's side of the facade: sets the detection state as the
// script says, hands each frame to detect() and reads back what the host sees.
// In lockstep it also waits for the motion thread's verdict on every frame.
// Lives on the replay's thread, beside the Facade it borrows.
#pragma once

#include <cstdint>
#include <vector>

#include "client/camera_metadata.h"
#include "tests/support/YuvFrame.h"
#include "tools/host/Facade.h"
#include "tools/host/ReplayPlan.h"
#include "tools/options/ReplayOptions.h"
#include "tools/output/ReplayRecord.h"

namespace hdsreplay {

class Host {
 public:
  Host(const Facade& det, const ReplayOptions& options, const ReplayPlan& plan);
  Host(const Host&) = delete;
  Host& operator=(const Host&) = delete;

  // Calls stateChange() for every change due by `frame`.
  void enterStates(long frame, int64_t ts);
  // What the camera says about a frame besides its pixels.
  struct Metadata {
    int exposureNs;
    bool lensMoving;
  };
  // Hands one frame to detect() and records what came of it.
  ReplayRecord handOver(const hdsml::YuvFrame& yuv, const Metadata& metadata, long frame,
                        int64_t ts);

  int state() const { return state_; }
  int facadeStatus() const { return det_->status; }

 private:
  void takeVerdict(ReplayRecord& r) const;
  void show(const PresenceOutput& decision, ReplayRecord& r);

  const Facade& det_;
  HDSMLClient* const client_;
  const bool lockstep_;
  const double waitMs_;
  const double fps_;
  const std::vector<StateScript::Change>& changes_;
  camera_metadata metadata_;
  size_t nextChange_ = 0;
  int state_ = 0;
  int64_t previousReport_;  // frame timestamp of the decision the host last read
  int hostStatus_;
  int64_t hostDecisionTs_ = 0;  // frame timestamp of the decision behind hostStatus_
};

}  // namespace hdsreplay
