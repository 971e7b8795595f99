// What the replay keeps of every frame it hands over: the record, and the frame
// itself for the annotated frames and the contact sheet. Without lockstep a
// frame's own vote is not known when detect() returns; a watcher collects the
// votes, and frames are drawn a few frames late so that it has seen theirs.
// Used from the replay's thread.
#pragma once

#include <deque>
#include <memory>
#include <utility>
#include <vector>

#include <opencv2/core.hpp>

#include "client/HDSMLClient.h"
#include "tools/host/MotionWatcher.h"
#include "tools/host/ReplayPlan.h"
#include "tools/options/ReplayOptions.h"
#include "tools/output/AnnotationWriter.h"
#include "tools/output/ContactSheet.h"
#include "tools/output/ReplayRecord.h"

namespace hdsreplay {

class FrameLog {
 public:
  // Throws std::runtime_error when the annotated frames cannot be written.
  FrameLog(const ReplayOptions& options, const ReplayPlan& plan, HDSMLClient* client,
           cv::Size motionRes);
  FrameLog(const FrameLog&) = delete;
  FrameLog& operator=(const FrameLog&) = delete;

  // Whether add() needs the frames as pictures.
  bool wantsFrames() const { return annotator_ || sheet_; }
  // Records are added in frame order, frame 0 first; `frame` as the detector
  // saw it, in BGR, when wantsFrames().
  void add(const ReplayRecord& record, const cv::Mat& frame);
  // After the last frame: lets the motion thread finish, draws the frames held
  // back and completes every record.
  void finish();

  const std::vector<ReplayRecord>& records() const { return records_; }
  void closeAnnotations();
  void writeSheet();

 private:
  void takeWatchedVote(ReplayRecord& r);
  void emitFrames(size_t keep);

  HDSMLClient* const client_;
  const double waitMs_;
  const size_t annotationLag_;
  std::unique_ptr<AnnotationWriter> annotator_;
  std::unique_ptr<ContactSheet> sheet_;
  std::unique_ptr<MotionWatcher> watcher_;
  std::vector<ReplayRecord> records_;
  std::deque<std::pair<cv::Mat, long>> pendingFrames_;  // (frame, index), oldest first
};

}  // namespace hdsreplay
