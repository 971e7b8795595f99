#include "client/GuardConfiguration.h"

#include <boost/property_tree/ptree.hpp>

#include <cmath>
#include <cstdlib>
#include <stdexcept>

namespace hdsml {
namespace {

namespace pt = boost::property_tree;

[[noreturn]] void fail(const std::string& path, const std::string& key, const std::string& what) {
  throw std::invalid_argument(path + ": " + key + " " + what);
}

// JSON true and false arrive as the texts "true" and "false".
bool readSwitch(const pt::ptree& node, const std::string& path, const std::string& key) {
  if (!node.empty()) fail(path, key, "must be true or false, got an object or a list");
  if (node.data() == "true") return true;
  if (node.data() == "false") return false;
  fail(path, key, "must be true or false, got \"" + node.data() + "\"");
}

double readNumber(const pt::ptree& node, const std::string& path, const std::string& key) {
  if (!node.empty()) fail(path, key, "must be a number, got an object or a list");
  const std::string& text = node.data();
  char* end = nullptr;
  const double value = std::strtod(text.c_str(), &end);
  if (text.empty() || end != text.c_str() + text.size() || !std::isfinite(value))
    fail(path, key, "must be a number, got \"" + text + "\"");
  return value;
}

// A JSON list reads as children with empty names; an object has named ones.
bool isList(const pt::ptree& node) {
  if (node.empty()) return node.data().empty();
  for (const auto& child : node)
    if (!child.first.empty()) return false;
  return true;
}

cv::Point2d readPoint(const pt::ptree& node, const std::string& path, const std::string& key) {
  if (!isList(node) || node.size() != 2) fail(path, key, "must be a point [x, y] of two numbers");
  auto it = node.begin();
  const double x = readNumber(it->second, path, key + "[0]");
  const double y = readNumber((++it)->second, path, key + "[1]");
  for (const double v : {x, y})
    if (v < 0.0 || v > 1.0)
      fail(path, key,
           "is outside the frame: coordinates go from 0 to 1, got " + node.front().second.data() +
               ", " + node.back().second.data());
  return {x, y};
}

std::vector<std::vector<cv::Point2d>> readMasks(const pt::ptree& node, const std::string& path) {
  const std::string key = "guards.masks";
  if (!isList(node)) fail(path, key, "must be a list of polygons");
  std::vector<std::vector<cv::Point2d>> masks;
  int m = 0;
  for (const auto& polygon : node) {
    const std::string where = key + "[" + std::to_string(m++) + "]";
    if (!isList(polygon.second)) fail(path, where, "must be a list of points [x, y]");
    std::vector<cv::Point2d> points;
    int p = 0;
    for (const auto& point : polygon.second)
      points.push_back(readPoint(point.second, path, where + "[" + std::to_string(p++) + "]"));
    if (points.size() < 3)
      fail(path, where,
           "has " + std::to_string(points.size()) + " points: a polygon needs at least 3");
    masks.push_back(std::move(points));
  }
  return masks;
}

}  // namespace

std::optional<GuardSettings> readGuardSettings(const pt::ptree& config, const std::string& path) {
  const auto guards = config.get_child_optional("guards");
  if (!guards) return std::nullopt;
  if (isList(*guards) && !guards->empty()) fail(path, "guards", "must be an object, got a list");
  if (guards->empty() && !guards->data().empty())
    fail(path, "guards", "must be an object, got \"" + guards->data() + "\"");
  GuardSettings s;
  for (const auto& [name, node] : *guards) {
    const std::string key = "guards." + name;
    if (name == "globalChange") {
      s.globalChange = readSwitch(node, path, key);
    } else if (name == "noise") {
      s.noise = readSwitch(node, path, key);
    } else if (name == "night") {
      s.night = readSwitch(node, path, key);
    } else if (name == "sensitivity") {
      s.sensitivity = readNumber(node, path, key);
      if (s.sensitivity < 0.0 || s.sensitivity > 100.0)
        fail(path, key, "is out of range: give a number from 0 to 100, got " + node.data());
    } else if (name == "minRegionArea") {
      s.minRegionArea = readNumber(node, path, key);
      if (!(s.minRegionArea > 0.0) || s.minRegionArea > 100.0)
        fail(path, key,
             "is out of range: give a percentage of the frame above 0 and at most 100, got " +
                 node.data());
    } else if (name == "masks") {
      s.masks = readMasks(node, path);
    } else {
      fail(path, key,
           "is not a guard: the keys are globalChange, noise, night, sensitivity, "
           "minRegionArea and masks");
    }
  }
  return s;
}

}  // namespace hdsml
