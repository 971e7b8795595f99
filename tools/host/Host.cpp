#include "tools/host/Host.h"

#include <chrono>
#include <cmath>
#include <mutex>

#include "client/GuardedAnalysis.h"
#include "conditioning/Filter.h"
#include "tools/host/ClientView.h"

namespace hdsreplay {

Host::Host(const Facade& det, const ReplayOptions& o, const ReplayPlan& plan)
    : det_(det),
      client_(det.client()),
      lockstep_(o.pace == Pace::Lockstep),
      waitMs_(o.waitMs),
      fps_(plan.fps),
      changes_(plan.changes),
      previousReport_(det->outputFrameTimestamp),
      hostStatus_(det->status) {}

void Host::enterStates(long frame, int64_t ts) {
  while (nextChange_ < changes_.size() && changes_[nextChange_].frame <= frame) {
    const StateScript::Change& c = changes_[nextChange_++];
    det_->stateChange(c.stateName.c_str(), static_cast<int>(std::lround(fps_)), ts, "hds-replay");
    state_ = det_->state;
  }
}

ReplayRecord Host::handOver(const hdsml::YuvFrame& yuv, const Metadata& metadata, long frame,
                            int64_t ts) {
  using Clock = std::chrono::steady_clock;
  metadata_.exposureTime = metadata.exposureNs;
  metadata_.lensMoving = metadata.lensMoving ? 1 : 0;
  const auto t0 = Clock::now();
  det_->detect(yuv.y, yuv.u, yuv.v, yuv.width, yuv.height, yuv.yPixelStride, yuv.yRowStride,
               yuv.uPixelStride, yuv.uRowStride, yuv.vPixelStride, yuv.vRowStride, ts, metadata_,
               0);
  const auto t1 = Clock::now();

  ReplayRecord r;
  r.frame = frame;
  r.timestampMs = ts;
  r.state = state_;
  r.lensMoving = metadata.lensMoving;
  r.detectUs = std::chrono::duration<double, std::micro>(t1 - t0).count();
  // What the host reads: detect() copies the decision in force when it runs.
  // The motion thread may or may not have decided on this very frame by then,
  // so in lockstep the decision is read again once it has, which gives what
  // the host will read at its next detect() and keeps replays repeatable.
  PresenceOutput decision;
  decision.status = det_->status;
  decision.confidence = det_->confidence;
  decision.frameTimestamp = det_->outputFrameTimestamp;
  if (lockstep_) {
    if (state_ != 1) takeVerdict(r);  // DETECT_PRESENCE analyses nothing
    std::lock_guard<std::mutex> hold(client_->outputMutex);
    decision = client_->output;
  }
  show(decision, r);
  const int64_t lastMotion = client_->lastMotionTimestamp.load();
  if (lastMotion != -1) r.sinceMotionMs = ts - lastMotion;
  return r;
}

// Lockstep: the frame is lent out until the motion thread has decided on it;
// its verdict and rectangles are then read while the thread is idle.
void Host::takeVerdict(ReplayRecord& r) const {
  if (!waitUntilIdle(client_, waitMs_)) return;  // reading the detector now would race
  r.windowVotes = client_->motionFilter->sum;
  r.windowLength = client_->motionFilter->length;
  const MotionStatus status = client_->queryMotionDetector();
  if (!written(status) || status.frameTimestamp != r.timestampMs) return;
  r.processed = true;
  r.motionDetected = status.motionDetected;
  r.motionScore = status.filterScore;
  r.rects = lastRectangles(client_);
  r.rectsKnown = true;
  r.vote = r.rects.empty() ? 0 : 1;
  hdsml::GuardReport guard;
  if (hdsml::lastGuardReport(*client_, guard) && guard.frameTimestamp == r.timestampMs)
    r.guard = guard;
}

// As the facade does: a decision made on a frame older than the last state
// change is not shown to the host, whose status then stays as it was.
void Host::show(const PresenceOutput& decision, ReplayRecord& r) {
  const bool shown = decision.frameTimestamp >= det_->stateChangeTimestamp;
  if (shown) {
    hostStatus_ = decision.status;
    hostDecisionTs_ = decision.frameTimestamp;
  }
  r.status = hostStatus_;
  r.fresh = hostStatus_ == kStatusNone || hostDecisionTs_ >= det_->stateChangeTimestamp;
  r.confidence = decision.confidence;
  r.reportTimestampMs = decision.frameTimestamp;
  r.newReport = shown && decision.frameTimestamp != previousReport_;
  previousReport_ = decision.frameTimestamp;
}

}  // namespace hdsreplay
