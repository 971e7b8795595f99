#include "tools/evaluation/Truth.h"

#include <cstdio>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include "tools/input/Files.h"

namespace hdsreplay {

namespace {

std::string trim(const std::string& s) {
  const size_t b = s.find_first_not_of(" \t\r"), e = s.find_last_not_of(" \t\r");
  return b == std::string::npos ? std::string() : s.substr(b, e - b + 1);
}

}  // namespace

Truth Truth::load(const std::string& path) { return parse(readText(path, "truth file"), path); }

Truth Truth::parse(const std::string& text, const std::string& name) {
  Truth truth;
  truth.path_ = name;
  std::stringstream lines(text);
  std::string line;
  bool header = true;
  for (int lineNo = 1; std::getline(lines, line); ++lineNo) {
    const auto fail = [&](const std::string& what) {
      return std::runtime_error("truth file '" + name + "' line " + std::to_string(lineNo) + ": " +
                                what);
    };
    if (trim(line).empty() || trim(line)[0] == '#') continue;
    std::vector<std::string> cells;
    std::stringstream row(line);
    for (std::string cell; cells.size() < 3 && std::getline(row, cell, ',');)
      cells.push_back(trim(cell));
    std::string note;
    std::getline(row, note);  // the rest, commas and all
    if (header) {
      if (cells.size() < 3 || cells[0] != "start" || cells[1] != "end" || cells[2] != "label")
        throw fail("the header must be start,end,label (and optionally note)");
      header = false;
      continue;
    }
    if (cells.size() < 3) throw fail("'" + line + "' is not start,end,label");
    Interval interval;
    try {
      interval.start = TimeSpec::parse(cells[0], "start");
      interval.end = TimeSpec::parse(cells[1], "end");
    } catch (const std::invalid_argument& e) {
      throw fail(e.what());
    }
    if (cells[2] != "moving" && cells[2] != "nuisance")
      throw fail("label '" + cells[2] + "' is neither moving nor nuisance");
    interval.moving = cells[2] == "moving";
    interval.note = trim(note);
    truth.intervals_.push_back(interval);
  }
  if (header) throw std::runtime_error("truth file '" + name + "' is empty");
  return truth;
}

std::vector<TruthSpan> Truth::resolve(const FrameClock& clock) const {
  std::vector<TruthSpan> spans;
  for (const Interval& i : intervals_) {
    TruthSpan s{i.start.ms(clock), i.end.ms(clock), i.moving, i.note};
    if (s.endMs <= s.startMs) {
      char what[160];
      std::snprintf(what, sizeof what, "': the interval from %.3g s ends at %.3g s, not after it",
                    s.startMs / 1000.0, s.endMs / 1000.0);
      throw std::runtime_error("truth file '" + path_ + what);
    }
    spans.push_back(s);
  }
  return spans;
}

}  // namespace hdsreplay
