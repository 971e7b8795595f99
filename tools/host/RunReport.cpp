#include "tools/host/RunReport.h"

#include <cstdio>
#include <stdexcept>
#include <utility>

#include <opencv2/imgcodecs.hpp>

#include "tools/input/FrameSource.h"

namespace hdsreplay {

namespace {

std::string describeStates(const std::vector<StateScript::Change>& changes,
                           const FrameClock& clock) {
  std::string text;
  for (const auto& c : changes) {
    if (!text.empty()) text += ", ";
    char buf[96];
    std::snprintf(buf, sizeof buf, "%s from %.1f s", c.stateName.c_str(),
                  clock.relativeMs(c.frame) / 1000.0);
    text += buf;
  }
  return text;
}

}  // namespace

std::string summaryHeader(const ReplayOptions& o, const ReplayPlan& plan, const RunFacts& run) {
  char header[768];
  std::snprintf(header, sizeof header,
                "hds-replay: %s (%s, %dx%d, %.4g fps), %s, motion resolution %dx%d, pace %s\n"
                "%s  absence threshold %lld ms; %s\n",
                o.input.c_str(), run.kind.c_str(), run.frameSize.width, run.frameSize.height,
                plan.fps, run.layout.c_str(), run.motionRes.width, run.motionRes.height,
                paceName(o.pace),
                run.cameraLog.empty() ? "" : ("  camera log " + run.cameraLog + "\n").c_str(),
                run.absenceThresholdMs, describeStates(plan.changes, plan.clock).c_str());
  return header;
}

namespace {

// Where the room's probes act: the light switch and the start of settling.
void addSceneEvents(const TransformPlan& probes, TimelineInfo& info) {
  char buf[64];
  if (probes.lightFrame >= 0) {
    std::snprintf(buf, sizeof buf, "light x%.3g", probes.lightFactor);
    info.events.emplace_back(probes.lightFrame, buf);
  }
  if (probes.settleFrame >= 0) {
    std::snprintf(buf, sizeof buf, "settle x%.3g / %ld", probes.settleFactor, probes.settleFrames);
    info.events.emplace_back(probes.settleFrame, buf);
  }
}

}  // namespace

TimelineInfo timelineInfo(const ReplayOptions& o, const ReplayPlan& plan, const RunFacts& run) {
  TimelineInfo info;
  info.title = "hds-replay  " + inputName(o.input);
  char sub[256];
  std::snprintf(sub, sizeof sub,
                "%dx%d at %.4g fps, %s, motion resolution %dx%d, pace %s, absence threshold "
                "%.1f s",
                run.frameSize.width, run.frameSize.height, plan.fps, run.layout.c_str(),
                run.motionRes.width, run.motionRes.height, paceName(o.pace),
                run.absenceThresholdMs / 1000.0);
  info.subtitle = sub;
  info.fps = plan.fps;
  if (plan.leadFrames > 0) info.events.emplace_back(plan.leadFrames, "input");
  if (plan.tailFrames > 0) info.events.emplace_back(plan.leadFrames + run.framesRead, "still tail");
  if (plan.probes.stepFrame >= 0) {
    char buf[48];
    std::snprintf(buf, sizeof buf, "exposure x%.3g", plan.probes.stepFactor);
    info.events.emplace_back(plan.probes.stepFrame, buf);
  }
  if (plan.probes.grayscaleFrame >= 0)
    info.events.emplace_back(plan.probes.grayscaleFrame, "grayscale");
  addSceneEvents(plan.probes, info);
  return info;
}

void writeTimeline(const std::string& path, const std::vector<ReplayRecord>& records,
                   const TimelineInfo& info) {
  if (!cv::imwrite(path, renderTimeline(records, info), {cv::IMWRITE_PNG_COMPRESSION, 9}))
    throw std::runtime_error("cannot write timeline '" + path + "'");
}

void printSummary(const ReplayOptions& o, const std::string& header, const ReplaySummary& summary,
                  const std::string& scores) {
  std::fputs(header.c_str(), stdout);
  std::fputs(summary.format().c_str(), stdout);
  std::fputs(scores.c_str(), stdout);
  for (const auto& [path, what] : std::vector<std::pair<std::string, const char*>>{
           {o.csvPath, "CSV"},
           {o.scoresPath, "scores"},
           {o.plotPath, "timeline"},
           {o.annotatePath, "annotated frames"},
           {o.sheetPath, "contact sheet"},
           {o.saveDumpPath, "camera dump"},
           {o.libraryLog == "-" ? std::string() : o.libraryLog, "library log"}}) {
    if (!path.empty()) std::printf("  %-17s %s\n", what, path.c_str());
  }
  std::fflush(stdout);
}

}  // namespace hdsreplay
