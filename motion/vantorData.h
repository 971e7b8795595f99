// Polymorphic result of an image algorithm, and the list form in which the motion
// detector hands out its motion rectangles. A consumer receives a vantorData* from
// imageAlgoRunner::getAlgoOutput and converts it with dynamic_cast; the runner keeps
// ownership. Not thread-safe: used only by the thread that drives the runner.
#pragma once

#include <utility>
#include <vector>

#include <opencv2/core.hpp>

#include "hdsml_export.h"

class HDSML_EXPORT vantorData {
 public:
  vantorData() = default;
  virtual ~vantorData() {}

  vantorData(const vantorData&) = delete;
  vantorData& operator=(const vantorData&) = delete;
};

// Exported so that its type information is shared by the library and its callers,
// which need the dynamic_cast above to succeed across the shared-object boundary.
template <typename T>
class HDSML_EXPORT vantorList : public vantorData {
 public:
  vantorList() = default;
  ~vantorList() override {}

  // Replaces `list` with a copy of `source` (a no-op when handed `list` itself).
  void setList(std::vector<T>& source) {
    if (&source != &list) list = source;
  }

  // Replaces the contents of `target` with a copy of `list`.
  void getList(std::vector<T>& target) {
    if (&target != &list) target = list;
  }

  std::vector<T> list;
};

// The motion region list. Instantiated once, in the library, so that its type
// information is exported even though cv::Rect itself has hidden visibility.
extern template class HDSML_EXPORT vantorList<std::pair<cv::Rect, float>>;
