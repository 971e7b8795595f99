// What the pictures of replays share: colours, text, dashed lines, the hatching
// of a stale status, legend items, the truth band, and the status of a run of
// frames. Free functions drawing onto a BGR cv::Mat.
#pragma once

#include <functional>
#include <string>
#include <utility>
#include <vector>

#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include "tools/output/ReplayRecord.h"

namespace hdsreplay {
namespace drawing {

// Colours (BGR).
const cv::Scalar kInk(40, 40, 40);
const cv::Scalar kMuted(110, 110, 110);
const cv::Scalar kGrid(228, 228, 228);
const cv::Scalar kFrame(170, 170, 170);
const cv::Scalar kMotion(40, 110, 235);
const cv::Scalar kMotionPale(205, 225, 252);
const cv::Scalar kAbsence(190, 120, 30);
const cv::Scalar kNone(215, 215, 215);
const cv::Scalar kMoving(70, 150, 60);
const cv::Scalar kNuisance(60, 160, 170);
const cv::Scalar kFalse(50, 40, 220);
const cv::Scalar kWhite(255, 255, 255);

enum class Align { Left, Centre, Right };

// Draws `s` with its baseline at y; returns its width.
int text(cv::Mat& img, const std::string& s, int x, int y, double scale, const cv::Scalar& colour,
         Align align = Align::Left, int thickness = 1, int font = cv::FONT_HERSHEY_SIMPLEX);
int textWidth(const std::string& s, double scale, int thickness = 1);
void dashedLine(cv::Mat& img, cv::Point a, cv::Point b, const cv::Scalar& colour, int thickness,
                int dash = 8, int gap = 6);
// "12" or "12.5": seconds on an axis.
std::string formatSeconds(double s);
// Step between axis ticks, 1-2-5 scaled, giving about `target` ticks over `span`.
double niceTickStep(double span, int target);

// `colour` mixed with white.
cv::Scalar pale(const cv::Scalar& colour);
// Pale `colour` with diagonal stripes of it: a stale status, a nuisance.
void hatch(cv::Mat& img, const cv::Rect& where, const cv::Scalar& colour);
// A swatch and its label at (x, y), moving x on past them.
void legendItem(cv::Mat& img, int& x, int y, const cv::Scalar& colour, const std::string& label,
                bool hatched = false);
const cv::Scalar& statusColour(int status);

// Maps a time, in milliseconds from the first frame, to a column of the picture.
using TimeToX = std::function<int(double ms)>;

// An interval of the truth, as a band shows it.
struct TruthMark {
  double startMs = 0, endMs = 0;
  bool moving = true;  // else nuisance
  std::string label;   // "caught after 0.9 s", "MISSED", "leaves"
  bool missed = false;
};

// Absence while something moved, in milliseconds from the first frame: the
// absence reports decided then, and the runs of frames the host read as ABSENCE.
struct AbsenceErrors {
  std::vector<double> reports;
  std::vector<std::pair<double, double>> read;  // (start, end)

  bool empty() const { return reports.empty() && read.empty(); }
};

// The truth inside `band` (its full width): moving intervals solid, nuisance
// hatched, each labelled where it fits; frames of false motion as red ticks
// along the band's foot.
void truthBand(cv::Mat& img, const cv::Rect& band, const TimeToX& timeX,
               const std::vector<TruthMark>& marks, const std::vector<double>& falseMotionMs);

// The status the host reads, frame by frame inside `band`, stale runs hatched;
// `endMs` is where the last frame ends.
void statusBand(cv::Mat& img, const cv::Rect& band, const TimeToX& timeX,
                const std::vector<ReplayRecord>& records, double endMs);

// Absence errors over a status band: red bars above and below each run read
// as ABSENCE while something moved, labelled where it fits, and a red tick at
// each absence report decided then.
void absenceErrorMarks(cv::Mat& img, const cv::Rect& band, const TimeToX& timeX,
                       const AbsenceErrors& errors);

}  // namespace drawing
}  // namespace hdsreplay
