// Runs a grid of settings over clips with hds-replay, one process a replay and
// as many at once as asked, then reads every replay's CSV back, scores it
// against its clip's truth and writes the table, the scorecard and the
// stacked picture. One Grid per run, used from one thread.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "tools/evaluation/GridOptions.h"
#include "tools/evaluation/GridPicture.h"
#include "tools/evaluation/GridTable.h"

namespace hdsreplay {

class Grid {
 public:
  explicit Grid(GridOptions options) : options_(std::move(options)) {}

  // Throws std::runtime_error when an output cannot be written. Returns the
  // exit status: 0 when every replay ran, else 1.
  int run();

 private:
  struct Cell {
    const Clip* clip;
    const Setting* setting;
    std::string stem;  // DIR/cells/NAME: .csv, .json, .txt, .err
  };

  std::vector<std::string> replayCommand() const;
  // The row of a replay that ended with `exitStatus`, and its strip in the picture.
  GridRow collect(const Cell& cell, int exitStatus, GridStrip& strip) const;

  GridOptions options_;
};

}  // namespace hdsreplay
