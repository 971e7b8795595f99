// Draws what the detector made of a frame onto the picture: the motion
// rectangles, scaled from the motion resolution to the picture, and a banner
// with time, frame, filter score and the status the host reads. Used by the
// annotated frames and the contact sheet.
#pragma once

#include <opencv2/core.hpp>

#include "tools/output/ReplayRecord.h"

namespace hdsreplay {

// `img` may have any size; the text scales with it.
void drawAnnotation(cv::Mat& img, const ReplayRecord& record, cv::Size motionRes);

}  // namespace hdsreplay
