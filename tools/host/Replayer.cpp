#include "tools/host/Replayer.h"

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <opencv2/core/utils/logger.hpp>
#include <opencv2/imgcodecs.hpp>

#include "tests/support/YuvFrame.h"
#include "tools/host/ConfigFile.h"
#include "tools/host/Facade.h"
#include "tools/host/FrameLog.h"
#include "tools/host/Host.h"
#include "tools/host/Pacer.h"
#include "tools/host/ReplayPlan.h"
#include "tools/host/StdoutRedirect.h"
#include "tools/input/FrameTransform.h"
#include "tools/input/InputFrames.h"
#include "tools/output/CsvWriter.h"
#include "tools/output/OutputPaths.h"
#include "tools/output/ProgressBar.h"
#include "tools/output/ReplaySummary.h"
#include "tools/output/TimelinePlot.h"

namespace hdsreplay {

namespace {

using detector_wrapper::PresenceDetectorWrapper;

std::string describeStates(const std::vector<StateScript::Change>& changes, double fps) {
  std::string text;
  for (const auto& c : changes) {
    if (!text.empty()) text += ", ";
    char buf[96];
    std::snprintf(buf, sizeof buf, "%s from %.1f s", c.stateName.c_str(),
                  frameTimestampMs(c.frame, fps) / 1000.0);
    text += buf;
  }
  return text;
}


void warnUnreached(const ReplayPlan& plan, long total) {
  for (const std::string& what : plan.unreached(total))
    std::fprintf(stderr, "hds-replay: warning: %s\n", what.c_str());
}

// Hands the input frames, then the still tail, to the facade one at a time:
// each with the probes applied, packed in the camera's layout, at its pace.
void replayFrames(const ReplayOptions& o, const ReplayPlan& plan, InputFrames& input, Host& host,
                  const Pacer& pacer, FrameLog& log, ProgressBar& progress) {
  const FrameTransform transform(plan.probes);
  cv::Mat seen;
  for (long i = 0;; ++i) {
    const bool stillTail = !input.next();
    if (stillTail && i >= input.framesRead() + plan.tailFrames) break;
    const int64_t ts = frameTimestampMs(i, plan.fps);
    host.enterStates(i, ts);
    transform.apply(input.last(), i, stillTail, seen);
    const hdsml::YuvFrame yuv = hdsml::packYuv(seen, o.layout, o.rowPadding);
    pacer.waitForFrame(i);
    log.add(host.handOver(yuv, transform.exposure(i), i, ts, stillTail), seen);
    progress.update(i + 1, std::string("state ") + stateShortName(host.state()) + ", status " +
                               statusName(host.facadeStatus()));
  }
}

// What the replay ran with, as the summary and the timeline describe it.
struct RunFacts {
  std::string kind;  // of the input: "video" or "images"
  cv::Size frameSize;
  cv::Size motionRes;
  long long absenceThresholdMs;
};

std::string summaryHeader(const ReplayOptions& o, const ReplayPlan& plan, const RunFacts& run) {
  char header[512];
  std::snprintf(
      header, sizeof header,
      "hds-replay: %s (%s, %dx%d, %.4g fps), %s%s, motion resolution %dx%d, pace %s\n"
      "  absence threshold %lld ms; %s\n",
      o.input.c_str(), run.kind.c_str(), run.frameSize.width, run.frameSize.height, plan.fps,
      hdsml::layoutName(o.layout),
      o.rowPadding ? (" + " + std::to_string(o.rowPadding) + " bytes row padding").c_str() : "",
      run.motionRes.width, run.motionRes.height, paceName(o.pace), run.absenceThresholdMs,
      describeStates(plan.changes, plan.fps).c_str());
  return header;
}

// The timeline's title and the events marked on it: the still tail and the probes.
TimelineInfo timelineInfo(const ReplayOptions& o, const ReplayPlan& plan, const RunFacts& run,
                          long framesRead) {
  TimelineInfo info;
  info.title = "hds-replay  " + inputName(o.input);
  char sub[256];
  std::snprintf(sub, sizeof sub,
                "%dx%d at %.4g fps, %s, motion resolution %dx%d, pace %s, absence threshold "
                "%.1f s",
                run.frameSize.width, run.frameSize.height, plan.fps, hdsml::layoutName(o.layout),
                run.motionRes.width, run.motionRes.height, paceName(o.pace),
                run.absenceThresholdMs / 1000.0);
  info.subtitle = sub;
  info.fps = plan.fps;
  if (plan.tailFrames > 0) info.events.emplace_back(framesRead, "still tail");
  if (plan.probes.stepFrame >= 0) {
    char buf[48];
    std::snprintf(buf, sizeof buf, "exposure x%.3g", plan.probes.stepFactor);
    info.events.emplace_back(plan.probes.stepFrame, buf);
  }
  if (plan.probes.grayscaleFrame >= 0)
    info.events.emplace_back(plan.probes.grayscaleFrame, "grayscale");
  return info;
}

void writeTimeline(const std::string& path, const std::vector<ReplayRecord>& records,
                   const TimelineInfo& info) {
  if (!cv::imwrite(path, renderTimeline(records, info), {cv::IMWRITE_PNG_COMPRESSION, 9}))
    throw std::runtime_error("cannot write timeline '" + path + "'");
}

void printSummary(const ReplayOptions& o, const std::string& header, const ReplaySummary& summary) {
  std::fputs(header.c_str(), stdout);
  std::fputs(summary.format().c_str(), stdout);
  for (const auto& [path, what] : std::vector<std::pair<std::string, const char*>>{
           {o.csvPath, "CSV"},
           {o.plotPath, "timeline"},
           {o.annotatePath, "annotated frames"},
           {o.sheetPath, "contact sheet"},
           {o.libraryLog == "-" ? std::string() : o.libraryLog, "library log"}}) {
    if (!path.empty()) std::printf("  %-17s %s\n", what, path.c_str());
  }
  std::fflush(stdout);
}

}  // namespace

int Replayer::run() {
  const ReplayOptions& o = options_;
  cv::utils::logging::setLogLevel(cv::utils::logging::LOG_LEVEL_ERROR);

  InputFrames input(o.input, o.maxFrames);
  const double fps = frameRate(o, input.source());
  const ConfigFile config(o);
  if (o.absenceMs >= 0) ::setenv("PERSIST_HDS_CV_ABSENCE", std::to_string(o.absenceMs).c_str(), 1);
  const ReplayPlan plan = planReplay(o, input.source().frameCount(), fps);

  // Outputs are opened before the replay so that a bad path fails at once.
  std::unique_ptr<CsvWriter> csv;
  if (!o.csvPath.empty()) csv = std::make_unique<CsvWriter>(o.csvPath);
  checkPicturePath(o.plotPath, "timeline");
  checkPicturePath(o.sheetPath, "contact sheet");
  checkAnnotationPath(o.annotatePath);
  if (plan.plannedTotal >= 0) warnUnreached(plan, plan.plannedTotal);

  StdoutRedirect libraryOutput(o.libraryLog);
  Facade det(config.path(), o.debug);
  const cv::Size motionRes(det.client()->motionResW, det.client()->motionResH);
  const long long absenceThresholdMs = det.client()->absenceThreshold;
  FrameLog log(o, plan, det.client(), motionRes);
  ProgressBar progress(o.progress, plan.plannedTotal);
  Host host(det, o, plan);
  const Pacer pacer(o.pace, fps);
  replayFrames(o, plan, input, host, pacer, log, progress);
  log.finish();
  if (plan.plannedTotal < 0) warnUnreached(plan, static_cast<long>(log.records().size()));
  const double runSeconds = pacer.elapsedSeconds();
  progress.finish();

  // The library's last words (teardown) still go to its log.
  PresenceDetectorWrapper::destroy();
  libraryOutput.restore();

  if (csv) {
    for (const ReplayRecord& r : log.records()) csv->write(r);
    csv->close();
  }
  log.closeAnnotations();
  const RunFacts facts{input.source().kind(), input.last().size(), motionRes, absenceThresholdMs};
  if (!o.plotPath.empty())
    writeTimeline(o.plotPath, log.records(), timelineInfo(o, plan, facts, input.framesRead()));
  log.writeSheet();
  printSummary(o, summaryHeader(o, plan, facts),
               ReplaySummary::compute(log.records(), input.framesRead(), runSeconds));
  return 0;
}

}  // namespace hdsreplay
