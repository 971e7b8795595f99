// A client's surroundings for a test: its configuration file and the absence
// property, each undone when the object goes away.
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>

namespace hdsml {

// A configuration file holding `json`, or just the given motion resolution.
class TestConfig {
 public:
  TestConfig(int width, int height)
      : TestConfig("{ \"vantor\": { \"motionResW\": " + std::to_string(width) +
                   ", \"motionResH\": " + std::to_string(height) + " } }") {}
  explicit TestConfig(const std::string& json) {
    static std::atomic<int> counter{0};
    path_ = ::testing::TempDir() + "hdsml_config_" + std::to_string(::getpid()) + "_" +
            std::to_string(counter++) + ".json";
    std::ofstream(path_) << json;
  }
  ~TestConfig() { std::remove(path_.c_str()); }
  TestConfig(const TestConfig&) = delete;
  TestConfig& operator=(const TestConfig&) = delete;

  const char* path() const { return path_.c_str(); }

 private:
  std::string path_;
};

// Sets (or, with null, unsets) an environment variable for the object's lifetime.
class ScopedEnv {
 public:
  ScopedEnv(const char* name, const char* value)
      : name_(name), hadOld_(std::getenv(name) != nullptr) {
    if (hadOld_) old_ = std::getenv(name);
    value != nullptr ? ::setenv(name, value, 1) : ::unsetenv(name);
  }
  ~ScopedEnv() { hadOld_ ? ::setenv(name_.c_str(), old_.c_str(), 1) : ::unsetenv(name_.c_str()); }
  ScopedEnv(const ScopedEnv&) = delete;
  ScopedEnv& operator=(const ScopedEnv&) = delete;

 private:
  std::string name_, old_;
  bool hadOld_;
};

}  // namespace hdsml
