#include "tools/host/GuardedConfig.h"

#include <unistd.h>

#include <boost/property_tree/json_parser.hpp>
#include <boost/property_tree/ptree.hpp>

#include <cstdio>
#include <filesystem>
#include <sstream>
#include <stdexcept>

namespace hdsreplay {

namespace pt = boost::property_tree;

namespace {

pt::ptree readJson(const std::string& path) {
  pt::ptree tree;
  try {
    pt::read_json(path, tree);
  } catch (const pt::json_parser_error& e) {
    throw std::runtime_error("cannot use '" + path + "': " + e.message());
  }
  return tree;
}

// "[x, y]" as the library reads it: a list of two numbers.
pt::ptree point(double x, double y) {
  pt::ptree p, vx, vy;
  std::ostringstream sx, sy;
  sx << x, sy << y;
  vx.put_value(sx.str()), vy.put_value(sy.str());
  p.push_back({"", vx});
  p.push_back({"", vy});
  return p;
}

}  // namespace

GuardedConfig::GuardedConfig(const std::string& basePath, const std::string& guardsPath,
                             const std::vector<std::vector<double>>& masks,
                             const std::vector<std::pair<std::string, std::string>>& keys) {
  pt::ptree config = readJson(basePath);
  if (!guardsPath.empty()) {
    const pt::ptree file = readJson(guardsPath);
    const auto inner = file.get_child_optional("guards");
    config.put_child("guards", inner ? *inner : file);
  }
  if (!config.get_child_optional("guards")) config.put_child("guards", pt::ptree());
  pt::ptree& guards = config.get_child("guards");
  // A key is one level: "a.b" stays one name, which the library then refuses.
  for (const auto& [key, value] : keys) guards.put(pt::ptree::path_type(key, '\0'), value);
  if (!masks.empty()) {
    pt::ptree list = guards.get_child("masks", pt::ptree());
    for (const std::vector<double>& xy : masks) {
      pt::ptree polygon;
      for (size_t i = 0; i + 1 < xy.size(); i += 2)
        polygon.push_back({"", point(xy[i], xy[i + 1])});
      list.push_back({"", polygon});
    }
    guards.put_child("masks", list);
  }
  path_ = (std::filesystem::temp_directory_path() /
           ("hds-replay-" + std::to_string(::getpid()) + "-guarded.json"))
              .string();
  try {
    pt::write_json(path_, config);
  } catch (const pt::json_parser_error& e) {
    throw std::runtime_error("cannot write a temporary configuration to " + path_ + ": " +
                             e.message());
  }
}

GuardedConfig::~GuardedConfig() { std::remove(path_.c_str()); }

}  // namespace hdsreplay
