// A benchmark reporter that shows the usual progress on standard error and, at
// the end, prints one table to standard output: each library figure's time per
// frame beside the OpenCV peer that does the same job, their ratio and the
// target it is held to. Times are CPU time of the measuring thread per frame;
// with repetitions, each figure is the median of its repetitions, all from the
// same run.
#pragma once

#include <benchmark/benchmark.h>

#include <map>
#include <string>
#include <vector>

namespace hdsml_bench {

class RatioTable : public benchmark::ConsoleReporter {
 public:
  RatioTable();
  void ReportRuns(const std::vector<Run>& runs) override;
  void Finalize() override;

 private:
  struct Figure {
    std::vector<double> secondsPerFrame;
    std::map<std::string, double> counters;  // largest value over the repetitions
  };
  double median(const std::string& name) const;
  double counter(const std::string& name, const std::string& counterName) const;
  void printTimes() const;
  void printScaling() const;
  void printAllocations() const;

  std::map<std::string, Figure> figures_;
};

}  // namespace hdsml_bench
