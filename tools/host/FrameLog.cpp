#include "tools/host/FrameLog.h"

#include <algorithm>
#include <string>

#include "tools/host/ClientView.h"
#include "tools/input/FrameSource.h"

namespace hdsreplay {

namespace {

std::unique_ptr<ContactSheet> makeContactSheet(const ReplayOptions& o, long plannedTotal,
                                               cv::Size motionRes) {
  if (o.sheetPath.empty()) return nullptr;
  int every = o.sheetEvery;
  if (every <= 0)
    every = plannedTotal > 0 ? static_cast<int>(std::max(1L, (plannedTotal + 24) / 25)) : 30;
  return std::make_unique<ContactSheet>(
      o.sheetPath, every, motionRes,
      inputName(o.input) + ": 1 frame in " + std::to_string(every) + ", " +
          (o.pace == Pace::Lockstep ? "motion rectangles in green"
                                    : "no rectangles (lockstep only)"));
}

}  // namespace

FrameLog::FrameLog(const ReplayOptions& o, const ReplayPlan& plan, HDSMLClient* client,
                   cv::Size motionRes)
    : client_(client), waitMs_(o.waitMs), annotationLag_(o.pace == Pace::Lockstep ? 0 : 8) {
  if (!o.annotatePath.empty())
    annotator_ = std::make_unique<AnnotationWriter>(o.annotatePath, plan.fps, motionRes);
  sheet_ = makeContactSheet(o, plan.plannedTotal, motionRes);
  if (o.pace != Pace::Lockstep) watcher_ = std::make_unique<MotionWatcher>(client);
  if (plan.plannedTotal > 0) records_.reserve(static_cast<size_t>(plan.plannedTotal));
}

void FrameLog::add(const ReplayRecord& record, const cv::Mat& frame) {
  records_.push_back(record);
  if (!annotator_ && !sheet_) return;
  pendingFrames_.emplace_back(frame.clone(), record.frame);
  emitFrames(annotationLag_);
}

void FrameLog::finish() {
  if (watcher_) {
    waitUntilIdle(client_, waitMs_);
    watcher_->stop();
  }
  emitFrames(0);
  for (ReplayRecord& r : records_) {
    takeWatchedVote(r);
    // DETECT_PRESENCE analyses nothing, and frames of a moving lens are skipped.
    r.dropped = !r.processed && r.state != 1 && !r.lensMoving;
  }
  watcher_.reset();
}

void FrameLog::closeAnnotations() {
  if (annotator_) annotator_->close();
}

void FrameLog::writeSheet() {
  if (sheet_) sheet_->write();
}

// Without lockstep, a frame counts as analysed once the watcher saw its vote.
void FrameLog::takeWatchedVote(ReplayRecord& r) {
  MotionWatcher::Seen seen;
  if (!watcher_ || r.processed || !watcher_->find(r.timestampMs, seen)) return;
  r.processed = true;
  r.motionDetected = seen.motionDetected;
  r.motionScore = seen.score;
}

// Draws the frames held back, all but the newest `keep`.
void FrameLog::emitFrames(size_t keep) {
  while (pendingFrames_.size() > keep) {
    auto& [frame, index] = pendingFrames_.front();
    ReplayRecord& r = records_[static_cast<size_t>(index)];
    takeWatchedVote(r);
    if (annotator_) annotator_->add(frame, r);
    if (sheet_) sheet_->add(frame, r);
    pendingFrames_.pop_front();
  }
}

}  // namespace hdsreplay
