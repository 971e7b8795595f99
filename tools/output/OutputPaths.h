// Checks, before a replay starts, that its pictures and videos can be written
// where they are asked for, so that a bad path fails at once and says what is
// wrong: a folder that does not exist, or a picture type OpenCV cannot write.
#pragma once

#include <string>

namespace hdsreplay {

// ".png, .jpg, ...": the picture types this OpenCV writes.
std::string pictureFormats();
// True for the annotated-frames paths written as a video (.mp4, .avi, .mkv).
bool isVideoPath(const std::string& path);

// `what` names the output in messages ("timeline"). Throw std::runtime_error.
void checkPicturePath(const std::string& path, const std::string& what);
void checkAnnotationPath(const std::string& path);

}  // namespace hdsreplay
