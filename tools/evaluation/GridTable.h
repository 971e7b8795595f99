// The results of a grid, one row a replay (a clip under a setting), and the
// forms they are written in: a CSV with every figure, the scorecard (the
// scores alone, which depend on nothing but the frames and the library) and
// the table hds-grid prints (the scorecard with the cost of detect()). Plain
// value type and functions.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "tools/evaluation/Scores.h"

namespace hdsreplay {

struct GridRow {
  std::string clip, setting;
  int exitStatus = 0;
  std::string error;             // what a failed replay said last
  std::optional<Scores> scores;  // with a truth
  long frames = 0;
  double detectMedianUs = 0, detectP99Us = 0;
  std::vector<std::string> settingValues;  // the value on each axis ("none": left out)
};

// `axes`: the options the grid varies, one column each after the setting.
std::string gridCsv(const std::vector<GridRow>& rows, const std::vector<std::string>& axes = {});
// Columns aligned with spaces; `withCost` adds the detect() columns.
std::string gridTable(const std::vector<GridRow>& rows, bool withCost);

}  // namespace hdsreplay
