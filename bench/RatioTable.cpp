#include "bench/RatioTable.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <iostream>

namespace hdsml_bench {
namespace {

// One row: a library figure, the peer it is compared with, and the largest
// ratio library/peer that meets the target (0 when there is no target).
struct Pairing {
  const char* ours;
  const char* peer;
  double maxRatio;
};

const Pairing kPairings[] = {
    {"analysis/FrameDiff/320x240", "peer/analysis/absdiff/320x240", 1.0},
    {"analysis/FrameDiff/320x240", "peer/analysis/MOG2/320x240", 0.1},
    {"analysis/FrameDiff/320x240", "peer/analysis/KNN/320x240", 0},
    {"analysis/FrameDiffLowLight/320x240", "peer/analysis/absdiff/320x240", 0.75},
    {"analysis/FrameDiff/640x480", "peer/analysis/absdiff/640x480", 0},
    {"analysis/FrameDiff/640x480", "peer/analysis/MOG2/640x480", 0},
    {"analysis/FrameDiffLowLight/640x480", "peer/analysis/absdiff/640x480", 0},
    {"intake/destride/640x480", "peer/intake/resize+split/640x480", 0.5},
    {"intake/destride/1280x720", "peer/intake/resize+split/1280x720", 0.5},
    {"intake/destride/1920x1080", "peer/intake/resize+split/1920x1080", 0.5},
    {"intake/destride/4032x3024", "peer/intake/resize+split/4032x3024", 0.5},
    {"intake/destride/640x480", "intake/touch-lines/640x480", 2.0},
    {"intake/destride/1280x720", "intake/touch-lines/1280x720", 2.0},
    {"intake/destride/1920x1080", "intake/touch-lines/1920x1080", 2.0},
    {"intake/destride/4032x3024", "intake/touch-lines/4032x3024", 2.0},
    {"intake/fused/640x480", "peer/intake/libyuv/640x480", 0.8},
    {"intake/fused/1280x720", "peer/intake/libyuv/1280x720", 0.8},
    {"intake/fused/1920x1080", "peer/intake/libyuv/1920x1080", 0.8},
    {"intake/fused/4032x3024", "peer/intake/libyuv/4032x3024", 0.8},
    {"intake/fused/640x480", "peer/intake/resize+split+convert/640x480", 0.75},
    {"intake/fused/1280x720", "peer/intake/resize+split+convert/1280x720", 0.75},
    {"intake/fused/1920x1080", "peer/intake/resize+split+convert/1920x1080", 0.75},
    {"intake/fused/4032x3024", "peer/intake/resize+split+convert/4032x3024", 0.75},
    {"intake/destride+convert/640x480", "peer/intake/libyuv/640x480", 0},
    {"intake/destride+convert/1280x720", "peer/intake/libyuv/1280x720", 0},
    {"intake/destride+convert/1920x1080", "peer/intake/libyuv/1920x1080", 0},
    {"intake/destride+convert/4032x3024", "peer/intake/libyuv/4032x3024", 0},
    {"intake/detect/640x480", nullptr, 0},
};

// Cost growth that is held to a bound: the larger figure over the smaller.
const Pairing kScalings[] = {
    {"intake/fused/4032x3024", "intake/fused/640x480", 2.0},
    {"analysis/FrameDiff/640x480", "analysis/FrameDiff/320x240", 4.5},
    {"analysis/FrameDiffLowLight/640x480", "analysis/FrameDiffLowLight/320x240", 4.5},
};

const char* const kAllocationFigures[] = {
    "intake/fused/640x480",
    "intake/fused/4032x3024",
    "intake/detect/640x480",
    "analysis/FrameDiff/320x240",
    "analysis/FrameDiffLowLight/320x240",
    "analysis/FrameDiff/640x480",
};

std::string microseconds(double seconds) {
  if (std::isnan(seconds)) return "-";
  char text[32];
  std::snprintf(text, sizeof text, "%.0f us", seconds * 1e6);
  return text;
}

// Whether a run stopped on an error (or was skipped): Google Benchmark 1.8
// replaced Run::error_occurred (Debian 12 has 1.7) with Run::skipped (Debian
// 13 has 1.9). The int overload is chosen where the old member exists.
template <typename R>
auto runFailed(const R& run, int) -> decltype(static_cast<bool>(run.error_occurred)) {
  return run.error_occurred;
}
template <typename R>
bool runFailed(const R& run, long) {
  return static_cast<bool>(run.skipped);
}

const char* verdict(double ratio, double maxRatio) {
  if (maxRatio <= 0 || std::isnan(ratio)) return "";
  return ratio <= maxRatio ? "met" : "MISSED";
}

}  // namespace

RatioTable::RatioTable() { SetOutputStream(&std::cerr); }

void RatioTable::ReportRuns(const std::vector<Run>& runs) {
  ConsoleReporter::ReportRuns(runs);
  for (const Run& run : runs) {
    if (run.run_type != Run::RT_Iteration || runFailed(run, 0) || run.iterations == 0) continue;
    Figure& figure = figures_[run.run_name.str()];
    // CPU time of the measuring thread: on a shared machine wall time also
    // counts the moments other programs held the core.
    figure.secondsPerFrame.push_back(run.cpu_accumulated_time / double(run.iterations));
    for (const auto& [name, value] : run.counters) {
      auto [it, fresh] = figure.counters.emplace(name, value.value);
      if (!fresh) it->second = std::max(it->second, double(value.value));
    }
  }
}

double RatioTable::median(const std::string& name) const {
  auto it = figures_.find(name);
  if (it == figures_.end()) return NAN;
  std::vector<double> v = it->second.secondsPerFrame;
  std::sort(v.begin(), v.end());
  const size_t n = v.size();
  return n % 2 ? v[n / 2] : (v[n / 2 - 1] + v[n / 2]) / 2;
}

double RatioTable::counter(const std::string& name, const std::string& counterName) const {
  auto it = figures_.find(name);
  if (it == figures_.end()) return NAN;
  auto c = it->second.counters.find(counterName);
  return c == it->second.counters.end() ? NAN : c->second;
}

void RatioTable::printTimes() const {
  std::printf("| per frame | hdsml | peer doing the same job | peer | ratio | target | |\n");
  std::printf("|---|---:|---|---:|---:|---:|---|\n");
  for (const Pairing& p : kPairings) {
    const double ours = median(p.ours);
    const double peer = p.peer ? median(p.peer) : NAN;
    const double ratio = ours / peer;
    char ratioText[32] = "-", targetText[32] = "";
    if (!std::isnan(ratio)) std::snprintf(ratioText, sizeof ratioText, "%.2fx", ratio);
    if (p.maxRatio > 0) std::snprintf(targetText, sizeof targetText, "<= %.2fx", p.maxRatio);
    std::printf("| %s | %s | %s | %s | %s | %s | %s |\n", p.ours, microseconds(ours).c_str(),
                p.peer ? p.peer : "-", microseconds(peer).c_str(), ratioText, targetText,
                verdict(ratio, p.maxRatio));
  }
}

void RatioTable::printScaling() const {
  std::printf("\n| cost growth | larger | smaller | ratio | target | |\n");
  std::printf("|---|---:|---:|---:|---:|---|\n");
  for (const Pairing& p : kScalings) {
    const double larger = median(p.ours), smaller = median(p.peer);
    const double ratio = larger / smaller;
    std::printf("| %s over %s | %s | %s | %.2fx | <= %.1fx | %s |\n", p.ours, p.peer,
                microseconds(larger).c_str(), microseconds(smaller).c_str(), ratio, p.maxRatio,
                verdict(ratio, p.maxRatio));
  }
}

void RatioTable::printAllocations() const {
  std::printf(
      "\n| heap allocations per frame (steady state) | library | OpenCV's findContours |\n");
  std::printf("|---|---:|---:|\n");
  for (const char* name : kAllocationFigures) {
    const double contours = counter(name, "contour_allocs");
    char contourText[32] = "-";
    if (!std::isnan(contours)) std::snprintf(contourText, sizeof contourText, "%.2f", contours);
    std::printf("| %s | %.2f | %s |\n", name, counter(name, "allocs"), contourText);
  }
  const char* detect = "intake/detect/640x480";
  std::printf("| %s, both threads (intake and analysis of each frame) | %.2f | %.2f |\n", detect,
              counter(detect, "process_allocs"), counter(detect, "process_contour_allocs"));
}

void RatioTable::Finalize() {
  ConsoleReporter::Finalize();
  std::fflush(stderr);
  printTimes();
  printScaling();
  printAllocations();
  std::fflush(stdout);
}

}  // namespace hdsml_bench
